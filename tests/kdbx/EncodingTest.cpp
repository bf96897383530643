#include "kdbx/Encoding.h"
#include "kdbx/KdbxTime.h"
#include "tests/support/Helpers.h"

#include <gtest/gtest.h>

#include <cstdint>

using namespace quillon::kdbx;
using quillon::test::bytesOf;

namespace {

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
