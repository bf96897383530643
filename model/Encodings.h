// model/Encodings.h: how the document writes UUIDs, times, booleans and text that XML can carry.
#pragma once

#include "kdbx/Encoding.h"
#include "kdbx/KdbxTime.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillon::model {

// Whole seconds: KDBX times run from year 1 to 9999, beyond what a nanosecond clock can hold.
using Time = std::chrono::sys_seconds;

// Truncates toward zero, as the file format counts whole seconds.
Time toTime(kdbx::SystemTime t) noexcept;

// Base64 of at least 8 bytes first, then an ISO 8601 date-time; otherwise absent.
std::optional<Time> readTime(std::string_view text);
// Stops the program for a time outside the signed 64-bit range of the format.
std::string writeTime(Time t);
std::optional<Time> readIso8601(std::string_view text);

// "AAAAAAAAAAAAAAAAAAAAAA==" and empty text both mean "no item".
bool isNoUuid(std::string_view uuid) noexcept;

inline constexpr std::string_view trueText = "True";
inline constexpr std::string_view falseText = "False";
inline std::string_view boolText(bool value) noexcept { return value ? trueText : falseText; }
// Compares ASCII case-insensitively.
bool equalsIgnoringCase(std::string_view text, std::string_view lowerWord) noexcept;
// "true" gives true, "false" false, in any case; anything else is no answer.
std::optional<bool> readLooseBool(std::string_view text) noexcept;

// kdbx::parseDecimal after trimming the white space XML may put around a number.
std::optional<std::int64_t> readDecimal(std::string_view text) noexcept;

// XML 1.0 Char: tab, LF, CR, 0x20-0xD7FF, 0xE000-0xFFFD, 0x10000-0x10FFFF.
bool isXmlChar(char32_t c) noexcept;
// True when the text is valid UTF-8 made only of XML characters, so it can go into the tree as it is.
bool isXmlSafe(std::string_view utf8) noexcept;
// Appends the text without the characters XML 1.0 cannot carry (and without bytes that are not UTF-8).
// Output is a template so that secrets can be filtered straight into wiped memory.
template <class Out>
void appendXmlSafe(std::string_view utf8, Out& out);

template <class Out>
void appendXmlSafe(std::string_view utf8, Out& out)
{
    const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
    std::size_t left = utf8.size();
    while (left > 0) {
        char32_t c = 0;
        const std::size_t n = kdbx::decodeUtf8(p, left, c);
        if (n == 0) {
            ++p;
            --left;
            continue;
        }
        if (isXmlChar(c))
            out.append(std::string_view(reinterpret_cast<const char*>(p), n));
        p += n;
        left -= n;
    }
}

} // namespace quillon::model
