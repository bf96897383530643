#include "kdbx/Encoding.h"
#include "kdbx/KdbxTime.h"
#include "tests/support/Helpers.h"

#include <gtest/gtest.h>

#include <string>

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

TEST(KdbxTime, unixEpochAndRoundTrip)
{
    EXPECT_EQ(decodeKdbxTime(encodeKdbxTime(unixEpochInKdbxSeconds)), unixEpochInKdbxSeconds);
    EXPECT_EQ(fromKdbxSeconds(unixEpochInKdbxSeconds), SystemTime{});
    EXPECT_EQ(decodeKdbxTime("AAAAAAAAAA=="), std::nullopt); // 7 bytes
    EXPECT_EQ(newUuidText().size(), 24u);
    EXPECT_NE(newUuidText(), newUuidText());
}

} // namespace
