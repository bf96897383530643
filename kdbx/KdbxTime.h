// kdbx/KdbxTime.h: KDBX 4 time stamps and UUID texts as they appear in the document.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillon::kdbx {

// Seconds between 0001-01-01T00:00:00Z and 1970-01-01T00:00:00Z.
inline constexpr std::int64_t unixEpochInKdbxSeconds = 62135596800;

using SystemTime = std::chrono::system_clock::time_point;

// Whole seconds since 0001-01-01T00:00:00Z, truncated toward zero.
std::int64_t kdbxSeconds(SystemTime t) noexcept;

// Base64 of the little-endian signed 64-bit count of seconds.
std::string encodeKdbxTime(std::int64_t seconds);
// Reads base64 of at least 8 bytes (extra bytes ignored); nothing otherwise.
std::optional<std::int64_t> decodeKdbxTime(std::string_view text);

// The all-zero UUID text, meaning "no item".
inline constexpr std::string_view noUuid = "AAAAAAAAAAAAAAAAAAAAAA==";
// Base64 of 16 fresh random bytes.
std::string newUuidText();

} // namespace quillon::kdbx
