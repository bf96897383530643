// tools/DecimalText.h: reading typed numbers ("+5", "-30", "20") as 64-bit decimal integers.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

namespace quillon::tools {

// An optional "+" or "-", then one or more ASCII digits and nothing else; overflow gives nothing.
inline std::optional<std::int64_t> parseDecimal(std::string_view text) noexcept
{
    bool negative = false;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    if (text.empty())
        return std::nullopt;
    // Accumulate as a negative number so that the most negative value is reachable.
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    std::int64_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return std::nullopt;
        const int digit = c - '0';
        if (value < (lowest + digit) / 10)
            return std::nullopt;
        value = value * 10 - digit;
    }
    if (!negative) {
        if (value == lowest)
            return std::nullopt;
        value = -value;
    }
    return value;
}

} // namespace quillon::tools
