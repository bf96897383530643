// One-time codes agree with KeePassXC for otp fields stored in a KDBX 4 file made by pykeepass.
#include "kdbx/Random.h"
#include "tests/support/PeerDatabases.h"
#include "tests/support/Peers.h"
#include "tests/support/TempDir.h"
#include "tools/OtpAuthUri.h"
#include "tools/TOTP.h"

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace quillon::tools {
namespace {

// Prints "<title>\t<otp>" for every entry, as read back from the file.
const char* const readScript = R"(
import sys
from pykeepass import PyKeePass
for e in PyKeePass(sys.argv[1], password=sys.argv[2]).entries:
    print('%s\t%s' % (e.title, e.otp))
)";

TOTP record(Algorithm algorithm, int digits, std::int64_t period, bool steam = false)
{
    TOTP totp;
    totp.secret = kdbx::randomSecret(20);
    totp.algorithm = algorithm;
    totp.digits = steam ? 5 : digits;
    totp.period = period;
    totp.steam = steam;
    totp.issuer = "ACME Co";
    totp.account = "john@example.com";
    return totp;
}

TEST(OtpInterop, codesMatchKeepassxcForUrisInTheOtpField)
{
    QUILLON_REQUIRE_PEER(test::pykeepassPython(), "pykeepass");
    QUILLON_REQUIRE_PEER(test::keepassxcCli(), "keepassxc-cli");

    std::vector<TOTP> records;
    for (const auto algorithm : {Algorithm::sha1, Algorithm::sha256, Algorithm::sha512})
        for (const int digits : {6, 8})
            for (const std::int64_t period : {30, 60})
                records.push_back(record(algorithm, digits, period));
    records.push_back(record(Algorithm::sha1, 5, 30, true));

    test::TempDir dir;
    const auto file = dir / "otp.kdbx";
    test::PeerDatabase wanted;
    for (std::size_t i = 0; i < records.size(); ++i) {
        test::PeerEntry entry;
        entry.title = "e" + std::to_string(i);
        entry.fields = {{"otp", std::string(formatOtp(records[i]).view())}};
        wanted.entries.push_back(entry);
    }
    const auto created = test::makePykeepassDatabase(file, wanted);
    ASSERT_EQ(created.exitCode, 0) << created.err;

    const auto read = test::pykeepass(readScript, {file.string(), *wanted.credentials.password});
    ASSERT_EQ(read.exitCode, 0) << read.err;
    std::map<std::string, std::string> stored;
    std::istringstream lines(read.out);
    for (std::string line; std::getline(lines, line);)
        if (const auto tab = line.find('\t'); tab != std::string::npos)
            stored[line.substr(0, tab)] = line.substr(tab + 1);
    ASSERT_EQ(stored.size(), records.size());

    for (std::size_t i = 0; i < records.size(); ++i) {
        const std::string title = "e" + std::to_string(i);
        const auto totp = parseOtp(stored[title]);
        ASSERT_TRUE(totp) << stored[title];
        EXPECT_TRUE(*totp == records[i]) << stored[title];

        // Both codes must come from the same time step; if a boundary passed in between, ask again.
        bool compared = false;
        for (int attempt = 0; attempt < 3 && !compared; ++attempt) {
            const double before = secondsSince1970Now();
            const auto shown = test::keepassxcOn("show", file, wanted.credentials, {title}, {"--totp"});
            const double after = secondsSince1970Now();
            ASSERT_EQ(shown.exitCode, 0) << shown.err;
            const auto step = [&](double t) { return std::floor(t) / static_cast<double>(totp->period); };
            if (std::floor(step(before)) != std::floor(step(after)))
                continue;
            EXPECT_EQ(std::string(totpCode(*totp, before).view()) + "\n", shown.out) << stored[title];
            compared = true;
        }
        EXPECT_TRUE(compared) << "every attempt crossed a time step";
    }
}

} // namespace
} // namespace quillon::tools
