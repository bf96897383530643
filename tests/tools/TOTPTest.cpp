// Codes against RFC 6238 / RFC 4226 vectors, oathtool, and an independent Steam computation.
#include "kdbx/Encoding.h"
#include "tests/support/Peers.h"
#include "tools/OtpAuthUri.h"
#include "tools/TOTP.h"

#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>
#include <vector>

namespace quillon::tools {
namespace {

TOTP record(std::string_view asciiKey, Algorithm algorithm, int digits, std::int64_t period = 30)
{
    TOTP totp;
    totp.secret = kdbx::SecureBytes::fromText(asciiKey);
    totp.algorithm = algorithm;
    totp.digits = digits;
    totp.period = period;
    return totp;
}

constexpr std::string_view key20 = "12345678901234567890";
constexpr std::string_view key32 = "12345678901234567890123456789012";
constexpr std::string_view key64 = "1234567890123456789012345678901234567890123456789012345678901234";

struct Rfc6238Row {
    double time;
    const char* sha1;
    const char* sha256;
    const char* sha512;
};

TEST(TOTP, rfc6238AppendixBVectors)
{
    const Rfc6238Row rows[] = {
        {59, "94287082", "46119246", "90693936"},
        {1111111109, "07081804", "68084774", "25091201"},
        {1111111111, "14050471", "67062674", "99943326"},
        {1234567890, "89005924", "91819424", "93441116"},
        {2000000000, "69279037", "90698825", "38618901"},
        {20000000000, "65353130", "77737706", "47863826"},
    };
    const auto sha1 = record(key20, Algorithm::sha1, 8);
    const auto sha256 = record(key32, Algorithm::sha256, 8);
    const auto sha512 = record(key64, Algorithm::sha512, 8);
    for (const auto& row : rows) {
        EXPECT_EQ(totpCode(sha1, row.time).view(), row.sha1) << row.time;
        EXPECT_EQ(totpCode(sha256, row.time).view(), row.sha256) << row.time;
        EXPECT_EQ(totpCode(sha512, row.time).view(), row.sha512) << row.time;
    }
}

TEST(TOTP, secondsLeftCountsDownToTheStepBoundary)
{
    const auto totp = record(key20, Algorithm::sha1, 6, 30);
    EXPECT_EQ(secondsLeftInStep(totp, 0), 30);
    EXPECT_EQ(secondsLeftInStep(totp, 29.9), 1);
    EXPECT_EQ(secondsLeftInStep(totp, 30), 30);
    EXPECT_EQ(secondsLeftInStep(totp, 1234567890), 30 - 1234567890 % 30);
}

// oathtool computes the same RFC 6238 codes for other digit counts and periods, read through a URI.
TEST(TOTP, codesFromUrisMatchOathtool)
{
    const auto oathtool = test::findInPath("oathtool");
    QUILLON_REQUIRE_PEER(oathtool, "oathtool");
    const std::string secret = "JBSWY3DPEHPK3PXPGEZDGNBV";
    struct Row {
        const char* query;
        const char* oathAlgorithm;
        const char* digits;
        const char* period;
    };
    const Row rows[] = {
        {"", "sha1", "6", "30"},
        {"&digits=7&period=60", "sha1", "7", "60"},
        {"&algorithm=SHA256&digits=8", "sha256", "8", "30"},
        {"&algorithm=sha512&period=45", "sha512", "6", "45"},
    };
    for (const auto& row : rows) {
        const auto totp = parseOtp("otpauth://totp/x?secret=" + secret + row.query);
        ASSERT_TRUE(totp) << row.query;
        for (const long long t : {59LL, 1234567890LL, 1700000000LL, 4102444800LL}) {
            const auto r = test::run({oathtool->string(), std::string("--totp=") + row.oathAlgorithm, "-b", "-d",
                                      row.digits, "-s", std::string(row.period) + "s",
                                      "--now=@" + std::to_string(t), secret});
            ASSERT_EQ(r.exitCode, 0) << r.err;
            EXPECT_EQ(std::string(totpCode(*totp, static_cast<double>(t)).view()) + "\n", r.out)
                << row.query << " at " << t;
        }
    }
}

// Steam's alphabet step checked against a separate computation with Python's hmac module.
TEST(TOTP, steamCodesMatchAnIndependentComputation)
{
    const auto python = test::pykeepassPython();
    QUILLON_REQUIRE_PEER(python, "/usr/bin/python3");
    const char* script = R"(
import hmac, hashlib, struct, sys
key = bytes.fromhex(sys.argv[1])
for t in sys.argv[2:]:
    mac = hmac.new(key, struct.pack('>Q', int(t) // 30), hashlib.sha1).digest()
    o = mac[-1] & 15
    n = struct.unpack('>I', mac[o:o + 4])[0] & 0x7fffffff
    s = ''
    for _ in range(5):
        s += '23456789BCDFGHJKMNPQRTVWXY'[n % 26]
        n //= 26
    print(s)
)";
    const std::vector<std::string> times = {"0", "59", "1111111109", "1234567890", "1700000015", "2000000000"};
    for (const std::string_view secretText : {"JBSWY3DPEHPK3PXP", "GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ",
                                              "MFRGGZDFMZTWQ2LKNNWG23TPOBYXE43UOV3HO6DZPIYTEMZUGU3DOOBZ"}) {
        auto totp = parseOtp("otpauth://totp/Steam:me?secret=" + std::string(secretText) + "&encoder=steam");
        ASSERT_TRUE(totp);
        EXPECT_TRUE(totp->steam);
        EXPECT_EQ(totp->digits, 5);
        std::vector<std::string> args{kdbx::hexEncode(totp->secret.span())};
        args.insert(args.end(), times.begin(), times.end());
        const auto r = test::run([&] {
            std::vector<std::string> argv{python->string(), "-c", script};
            argv.insert(argv.end(), args.begin(), args.end());
            return argv;
        }());
        ASSERT_EQ(r.exitCode, 0) << r.err;
        std::istringstream expected(r.out);
        for (const auto& t : times) {
            std::string line;
            std::getline(expected, line);
            const auto code = totpCode(*totp, std::stod(t));
            EXPECT_EQ(code.view(), line) << secretText << " at " << t;
            EXPECT_EQ(code.size(), 5u);
            for (const char c : code.view())
                EXPECT_NE(steamAlphabet.find(c), std::string_view::npos);
        }
    }
}

} // namespace
} // namespace quillon::tools
