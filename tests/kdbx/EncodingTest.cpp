#include "kdbx/Encoding.h"
#include "kdbx/KdbxError.h"
#include "kdbx/KdbxTime.h"

#include <gtest/gtest.h>

#include <string>

using namespace quillon::kdbx;

namespace {

std::vector<std::uint8_t> bytesOf(std::string_view s) { return {s.begin(), s.end()}; }

// RFC 4648 section 10 test vectors, both directions.
TEST(Encoding, base64MatchesRfc4648Vectors)
{
    const std::pair<const char*, const char*> vectors[] = {
        {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},         {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
    };
    for (auto [plain, encoded] : vectors) {
        EXPECT_EQ(base64Encode(bytesOf(plain)), encoded);
        EXPECT_EQ(base64Decode(encoded), bytesOf(plain)) << encoded;
    }
}

TEST(Encoding, base64RefusesWhatIsNotBase64)
{
    for (const char* bad : {"Zg=a", "Z", "Zm9vY", "Zg===", "Zm9v!", "Zm\x80v", "=Zg"})
        EXPECT_FALSE(base64Decode(bad)) << bad;
    EXPECT_EQ(base64Decode(" Zm9v\r\nYmFy\t"), bytesOf("foobar"));
    EXPECT_EQ(base64Decode("Zg"), bytesOf("f"));
}

TEST(Encoding, hexDecodingIsStrict)
{
    EXPECT_EQ(hexDecode(""), std::vector<std::uint8_t>{});
    EXPECT_EQ(hexDecode("00fFA9"), (std::vector<std::uint8_t>{0x00, 0xff, 0xa9}));
    for (const char* bad : {"0", "0g", "zz", " 00", "0x00"})
        EXPECT_FALSE(hexDecode(bad)) << bad;
    EXPECT_EQ(hexEncode(std::vector<std::uint8_t>{0xab, 0x01}, true), "AB01");
}

TEST(Encoding, utf8ValidityFollowsTheStandard)
{
    EXPECT_TRUE(isValidUtf8("plain"));
    EXPECT_TRUE(isValidUtf8("\xc3\xa9\xc3\x9f\xe6\xbc\xa2\xf0\x9f\x94\x91"));
    for (const char* bad : {"\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\x80", "\xff"})
        EXPECT_FALSE(isValidUtf8(bad));
}

TEST(KdbxTime, unixEpochAndRoundTrip)
{
    EXPECT_EQ(decodeKdbxTime(encodeKdbxTime(unixEpochInKdbxSeconds)), unixEpochInKdbxSeconds);
    EXPECT_EQ(fromKdbxSeconds(unixEpochInKdbxSeconds), SystemTime{});
    EXPECT_EQ(decodeKdbxTime("AAAAAAAAAA=="), std::nullopt); // 7 bytes
    EXPECT_EQ(newUuidText().size(), 24u);
    EXPECT_NE(newUuidText(), newUuidText());
}

TEST(KdbxError, messagesReadAsTheUserSeesThem)
{
    EXPECT_STREQ(KdbxError::malformedHeader(unexpectedEnd).what(), "Malformed header: unexpected end of data.");
    EXPECT_STREQ(KdbxError::blockCorrupt(3).what(), "Data block 3 failed its integrity check.");
    EXPECT_STREQ(KdbxError::argon2(-14).what(), "Argon2 failed with code -14.");
    EXPECT_EQ(std::string(KdbxError::unsupportedVersion(3, 1).what())
                  .rfind("This is a KDBX 3.1 database, and Quillon opens KDBX 4 only.", 0),
              0u);
    EXPECT_EQ(KdbxError::wrongCredentials().which(), KdbxError::Case::wrongCredentials);
}

} // namespace
