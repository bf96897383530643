#include "kdbx/KdbxTime.h"

#include "kdbx/Encoding.h"
#include "kdbx/Random.h"

#include <array>

namespace quillon::kdbx {

std::int64_t kdbxSeconds(SystemTime t) noexcept
{
    // duration_cast truncates toward zero, as the format asks.
    const auto unix = std::chrono::duration_cast<std::chrono::seconds>(t.time_since_epoch()).count();
    return static_cast<std::int64_t>(unix) + unixEpochInKdbxSeconds;
}

std::string encodeKdbxTime(std::int64_t seconds)
{
    std::array<std::uint8_t, 8> b{};
    const auto u = static_cast<std::uint64_t>(seconds);
    for (std::size_t i = 0; i < 8; ++i)
        b[i] = static_cast<std::uint8_t>(u >> (8 * i));
    return base64Encode(b);
}

std::optional<std::int64_t> decodeKdbxTime(std::string_view text)
{
    const auto bytes = base64Decode(text);
    if (!bytes || bytes->size() < 8)
        return std::nullopt;
    std::uint64_t u = 0;
    for (std::size_t i = 0; i < 8; ++i)
        u |= static_cast<std::uint64_t>((*bytes)[i]) << (8 * i);
    return static_cast<std::int64_t>(u);
}

std::string newUuidText()
{
    std::array<std::uint8_t, 16> b{};
    randomFill(b);
    return base64Encode(b);
}

} // namespace quillon::kdbx
