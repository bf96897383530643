#include "model/Encodings.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace quillon::model;
using namespace std::chrono;

namespace {

TEST(Encodings, kdbxTimeOfUnixEpochAndNowRoundTrip)
{
    // 62135596800 seconds, little-endian, is the Unix epoch.
    EXPECT_EQ(readTime("APeRdw4AAAA="), Time(seconds(0)));
    EXPECT_EQ(writeTime(Time(seconds(0))), "APeRdw4AAAA=");
    const Time now = toTime(system_clock::now());
    EXPECT_EQ(readTime(writeTime(now)), now);
    // Year 9999 and year 1 are far beyond a nanosecond clock but must still read.
    EXPECT_EQ(readTime(writeTime(sys_days(year(9999) / 12 / 31))), Time(sys_days(year(9999) / 12 / 31)));
    EXPECT_EQ(readTime("AAAAAAAAAAA="), Time(seconds(-62135596800)));
    // Extra decoded bytes are ignored.
    EXPECT_EQ(readTime("APeRdw4AAAAAAA=="), Time(seconds(0)));
}

TEST(Encodings, timeFallsBackToIso8601AndOtherwiseIsAbsent)
{
    const Time epoch{seconds(0)};
    const struct {
        const char* text;
        std::optional<Time> expected;
    } rows[] = {
        {"1970-01-01T00:00:00Z", epoch},
        {"2017-03-04T05:06:07Z", Time(sys_days(year(2017) / 3 / 4)) + hours(5) + minutes(6) + seconds(7)},
        {"1970-01-01T01:00:00+01:00", epoch},
        {"1970-01-01T00:00:00.999Z", epoch},
        {"1970-01-01T00:00:00", epoch},
        {" 1970-01-01T00:00:00Z\n", epoch},
        {"1970-02-30T00:00:00Z", std::nullopt},
        {"1970-01-01", std::nullopt},
        {"yesterday", std::nullopt},
        {"", std::nullopt},
        {"AAAA", std::nullopt}, // base64, but fewer than 8 bytes
    };
    for (const auto& row : rows)
        EXPECT_EQ(readTime(row.text), row.expected) << row.text;
}

TEST(Encodings, textLosesOnlyWhatXmlCannotCarry)
{
    const struct {
        std::string in;
        std::string out;
    } rows[] = {
        {"plain", "plain"},
        {"a\x01" "b", "ab"},
        {"tab\tlf\ncr\r", "tab\tlf\ncr\r"},
        {"x\xEF\xBF\xBEy", "xy"},             // U+FFFE
        {"x\xEF\xBF\xBFy", "xy"},             // U+FFFF
        {"\xEF\xBF\xBD ok", "\xEF\xBF\xBD ok"}, // U+FFFD stays
        {"caf\xC3\xA9 \xF0\x9F\x94\x91", "caf\xC3\xA9 \xF0\x9F\x94\x91"},
        {"bad\xC3", "bad"},                    // cut UTF-8
        {"\xED\xA0\x80surrogate", "surrogate"},
        {std::string("nul\0in", 6), "nulin"},
    };
    for (const auto& row : rows) {
        std::string out;
        appendXmlSafe(row.in, out);
        EXPECT_EQ(out, row.out) << row.in;
        EXPECT_EQ(isXmlSafe(row.in), row.in == row.out) << row.in;
    }
}

TEST(Encodings, decimalsAndLooseBooleans)
{
    EXPECT_EQ(readDecimal(" 10\n"), 10);
    EXPECT_EQ(readDecimal("\t-1\r\n"), -1);
    for (const char* bad : {"", " ", "1x", "1 2"})
        EXPECT_EQ(readDecimal(bad), std::nullopt) << bad;
    EXPECT_EQ(readLooseBool("TRUE"), true);
    EXPECT_EQ(readLooseBool("fAlSe"), false);
    EXPECT_EQ(readLooseBool("null"), std::nullopt);
    EXPECT_EQ(readLooseBool(" true"), std::nullopt);
    EXPECT_TRUE(isNoUuid(""));
    EXPECT_TRUE(isNoUuid("AAAAAAAAAAAAAAAAAAAAAA=="));
    EXPECT_FALSE(isNoUuid("AAAAAAAAAAAAAAAAAAAAAQ=="));
}

} // namespace
