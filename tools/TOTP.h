// tools/TOTP.h: time-based one-time password settings and the code they give at an instant.
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quillon::tools {

enum class Algorithm : std::uint8_t { sha1, sha256, sha512 };

// "SHA1", "SHA256", "SHA512".
std::string_view algorithmName(Algorithm algorithm) noexcept;

// Base32 (RFC 4648) and Steam alphabets; a symbol's value is its position.
inline constexpr std::string_view base32Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZ234567";
inline constexpr std::string_view steamAlphabet = "23456789BCDFGHJKMNPQRTVWXY";

// Move-only because the secret is key material; copy() is explicit.
struct TOTP {
    kdbx::SecureBytes secret; // never empty in a parsed record
    int digits = 6;           // 1..9; 5 when steam is on
    std::int64_t period = 30; // seconds, at least 1
    Algorithm algorithm = Algorithm::sha1;
    bool steam = false;
    std::optional<std::string> issuer;
    std::optional<std::string> account;

    TOTP copy() const;
    friend bool operator==(const TOTP& a, const TOTP& b) noexcept;
};

// The code valid at an instant given as seconds since 1970-01-01 (finite, not negative). A record that
// breaks the parser's guarantees (period < 1, digits outside 1..9, empty secret) stops the program.
kdbx::SecureBytes totpCode(const TOTP& totp, double secondsSince1970);

// Seconds until the code changes: period minus (seconds since 1970 mod period), in 1..period.
std::int64_t secondsLeftInStep(const TOTP& totp, double secondsSince1970);

// Seconds since 1970 now, from the system clock.
double secondsSince1970Now() noexcept;

} // namespace quillon::tools
