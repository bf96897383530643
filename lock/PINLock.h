// lock/PINLock.h: the salted hash of a quick-unlock PIN and the count of wrong tries it still allows.
#pragma once

#include "kdbx/SecureBytes.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace quillon::lock {

inline constexpr int pinTries = 3;
inline constexpr std::size_t minimumPINLength = 4;

// User-perceived characters, approximated without a Unicode database: a base code point together with
// what follows it and cannot stand alone counts as one. That covers combining marks (U+0300–036F,
// U+1AB0–1AFF, U+1DC0–1DFF, U+20D0–20FF, U+FE20–FE2F), variation selectors, emoji skin-tone modifiers and
// tag characters, a ZWJ together with the code point it joins, regional indicators in pairs, and CR LF.
// Hangul jamo sequences and Indic conjuncts count per code point. Each byte of broken UTF-8 counts as one.
std::size_t countUserCharacters(std::string_view utf8) noexcept;

// SHA-256 of the salt followed by the PIN's UTF-8 bytes, one pass.
std::array<std::uint8_t, 32> pinHash(kdbx::ByteView pin, kdbx::ByteView salt);

// Lives in memory only, one per window; never written anywhere. The PIN itself is not kept. Nothing is
// encrypted with the PIN: it only decides whether the credentials held in memory are released (PINGate).
struct PINLock {
    std::array<std::uint8_t, 16> salt{};
    std::array<std::uint8_t, 32> hash{};
    int triesLeft = pinTries;

    // A fresh salt every time; none when the PIN has fewer than minimumPINLength characters.
    static std::optional<PINLock> make(kdbx::ByteView pin);
    // Compares in constant time; does not look at triesLeft.
    bool check(kdbx::ByteView pin) const;
    void wipe() noexcept;
};

} // namespace quillon::lock
