#include "model/Encodings.h"

#include "kdbx/Check.h"

#include <limits>

namespace quillon::model {

Time toTime(kdbx::SystemTime t) noexcept
{
    return Time(std::chrono::duration_cast<std::chrono::seconds>(t.time_since_epoch()));
}

std::optional<Time> readTime(std::string_view text)
{
    if (const auto seconds = kdbx::decodeKdbxTime(text)) {
        // Counts far before year 1 would overflow the shift to the Unix epoch; such a time means nothing.
        if (*seconds < std::numeric_limits<std::int64_t>::min() + kdbx::unixEpochInKdbxSeconds)
            return std::nullopt;
        return Time(std::chrono::seconds(*seconds - kdbx::unixEpochInKdbxSeconds));
    }
    return readIso8601(text);
}

std::string writeTime(Time t)
{
    const std::int64_t unix = t.time_since_epoch().count();
    if (unix > std::numeric_limits<std::int64_t>::max() - kdbx::unixEpochInKdbxSeconds)
        fatal("A time outside the range the database format can store.");
    return kdbx::encodeKdbxTime(unix + kdbx::unixEpochInKdbxSeconds);
}

namespace {

// Reads exactly `width` digits at pos.
bool digits(std::string_view s, std::size_t& pos, std::size_t width, int& out) noexcept
{
    if (width > s.size() - pos)
        return false;
    int v = 0;
    for (std::size_t i = 0; i < width; ++i) {
        const char c = s[pos + i];
        if (c < '0' || c > '9')
            return false;
        v = v * 10 + (c - '0');
    }
    pos += width;
    out = v;
    return true;
}

bool expect(std::string_view s, std::size_t& pos, char c) noexcept
{
    if (pos >= s.size() || s[pos] != c)
        return false;
    ++pos;
    return true;
}

} // namespace

std::optional<Time> readIso8601(std::string_view s)
{
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\n' || s.front() == '\r'))
        s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\n' || s.back() == '\r'))
        s.remove_suffix(1);
    std::size_t pos = 0;
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!digits(s, pos, 4, year) || !expect(s, pos, '-') || !digits(s, pos, 2, month) || !expect(s, pos, '-') ||
        !digits(s, pos, 2, day))
        return std::nullopt;
    if (pos >= s.size() || (s[pos] != 'T' && s[pos] != 't' && s[pos] != ' '))
        return std::nullopt;
    ++pos;
    if (!digits(s, pos, 2, hour) || !expect(s, pos, ':') || !digits(s, pos, 2, minute) || !expect(s, pos, ':') ||
        !digits(s, pos, 2, second))
        return std::nullopt;
    if (pos < s.size() && (s[pos] == '.' || s[pos] == ',')) {
        ++pos;
        const std::size_t start = pos;
        while (pos < s.size() && s[pos] >= '0' && s[pos] <= '9')
            ++pos;
        if (pos == start)
            return std::nullopt;
    }
    int offsetSeconds = 0;
    if (pos < s.size()) {
        if (s[pos] == 'Z' || s[pos] == 'z') {
            ++pos;
        } else if (s[pos] == '+' || s[pos] == '-') {
            const int sign = s[pos] == '-' ? -1 : 1;
            ++pos;
            int oh = 0, om = 0;
            if (!digits(s, pos, 2, oh))
                return std::nullopt;
            if (pos < s.size() && s[pos] == ':')
                ++pos;
            if (!digits(s, pos, 2, om) || oh > 23 || om > 59)
                return std::nullopt;
            offsetSeconds = sign * (oh * 3600 + om * 60);
        } else {
            return std::nullopt;
        }
    }
    if (pos != s.size() || hour > 23 || minute > 59 || second > 60)
        return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    if (!date.ok())
        return std::nullopt;
    const auto days = std::chrono::sys_days(date);
    return Time(days) + std::chrono::hours(hour) + std::chrono::minutes(minute) + std::chrono::seconds(second) -
           std::chrono::seconds(offsetSeconds);
}

bool isNoUuid(std::string_view uuid) noexcept
{
    return uuid.empty() || uuid == kdbx::noUuid;
}

bool equalsIgnoringCase(std::string_view text, std::string_view lowerWord) noexcept
{
    if (text.size() != lowerWord.size())
        return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
        if (c != lowerWord[i])
            return false;
    }
    return true;
}

std::optional<bool> readLooseBool(std::string_view text) noexcept
{
    if (equalsIgnoringCase(text, "true"))
        return true;
    if (equalsIgnoringCase(text, "false"))
        return false;
    return std::nullopt;
}

std::optional<std::int64_t> readDecimal(std::string_view s) noexcept
{
    const auto isSpace = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!s.empty() && isSpace(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && isSpace(s.back()))
        s.remove_suffix(1);
    return kdbx::parseDecimal(s);
}

bool isXmlChar(char32_t c) noexcept
{
    return c == 0x9 || c == 0xA || c == 0xD || (c >= 0x20 && c <= 0xD7FF) || (c >= 0xE000 && c <= 0xFFFD) ||
           (c >= 0x10000 && c <= 0x10FFFF);
}

bool isXmlSafe(std::string_view utf8) noexcept
{
    const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
    std::size_t left = utf8.size();
    while (left > 0) {
        if (*p >= 0x20 && *p < 0x80) {
            ++p;
            --left;
            continue;
        }
        char32_t c = 0;
        const std::size_t n = kdbx::decodeUtf8(p, left, c);
        if (n == 0 || !isXmlChar(c))
            return false;
        p += n;
        left -= n;
    }
    return true;
}

} // namespace quillon::model
