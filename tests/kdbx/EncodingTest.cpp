#include "kdbx/Encoding.h"
#include "kdbx/KdbxError.h"
#include "kdbx/KdbxTime.h"

#include <gtest/gtest.h>

#include <cstdint>
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

// The one decoder every layer uses: the edges of each sequence length, and a cut sequence.
TEST(Encoding, utf8DecodesEachLengthToItsEdges)
{
    const std::pair<const char*, char32_t> rows[] = {
        {"\x7f", 0x7F},          {"\xc2\x80", 0x80},          {"\xdf\xbf", 0x7FF},
        {"\xe0\xa0\x80", 0x800}, {"\xef\xbf\xbf", 0xFFFF},    {"\xf0\x90\x80\x80", 0x10000},
        {"\xf4\x8f\xbf\xbf", 0x10FFFF},
    };
    for (const auto& [text, expected] : rows) {
        const std::string_view bytes = text;
        char32_t c = 0;
        EXPECT_EQ(decodeUtf8(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), c), bytes.size());
        EXPECT_EQ(c, expected);
        EXPECT_EQ(decodeUtf8(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size() - 1, c), 0u)
            << "cut short";
    }
}

TEST(Encoding, decimalIsSignAndDigitsOnly)
{
    EXPECT_EQ(parseDecimal("42"), 42);
    EXPECT_EQ(parseDecimal("+7"), 7);
    EXPECT_EQ(parseDecimal("-0"), 0);
    EXPECT_EQ(parseDecimal("-9223372036854775808"), INT64_MIN);
    EXPECT_EQ(parseDecimal("9223372036854775807"), INT64_MAX);
    for (const char* bad : {"", "+", "-", "abc", "12a", " 12", "12 ", "1.5", "0x10", "--1", "9223372036854775808",
                            "-9223372036854775809", "\xd9\xa1\xd9\xa2"})
        EXPECT_EQ(parseDecimal(bad), std::nullopt) << bad;
}

} // namespace
