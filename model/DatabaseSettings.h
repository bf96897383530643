// model/DatabaseSettings.h: what a database keeps about itself (cipher, key derivation, history limit),
// the ranges each may take, and the one writer of them.
#pragma once

#include "kdbx/OuterHeader.h"
#include "model/Document.h"

#include <cstdint>
#include <optional>

namespace quillon::model {

// A number typed for a setting: text that is not a number takes the fallback, a number is clamped.
struct SettingRange {
    std::int64_t fallback;
    std::int64_t low;
    std::int64_t high;
    std::int64_t valueOf(std::optional<std::int64_t> typed) const noexcept;
};

// The memory floor lies below the 16 MB the settings form warns about: the warning advises, the floor only
// refuses absurd values.
inline constexpr SettingRange memoryMiBRange{64, 8, 8192};
inline constexpr SettingRange iterationsRange{10, 1, 1000};
inline constexpr SettingRange threadsRange{2, 1, 64};
// No fallback: a limit that is not a number leaves the database's as it was.
inline constexpr std::int64_t historyLow = 0;
inline constexpr std::int64_t historyHigh = 100000;

enum class Cipher : std::uint8_t { aes256, chaCha20 };
enum class Kdf : std::uint8_t { argon2id, argon2d };

// A change to a database's settings; what is absent stays as the database has it. Every database that opens
// derives its key with Argon2, so only the variant and the three costs are ever written.
struct DatabaseSettings {
    std::optional<Cipher> cipher;
    std::optional<Kdf> kdf;
    std::optional<std::int64_t> memoryMiB;
    std::optional<std::int64_t> iterations;
    std::optional<std::int64_t> threads;
    std::optional<std::int64_t> historyMaxItems;
    bool unlimitedHistory = false; // every version is kept, whatever historyMaxItems says

    // Writes the cipher, the KDF's `$UUID`, `M` (in bytes), `I` and `P` into the header and the history limit
    // (-1 when unlimited) into the document, each clamped to its range; the salt and every other parameter stay. Memory only: the
    // file takes it with the next save, which also draws a fresh salt.
    void applyTo(kdbx::OuterHeader& header, Document& document) const;
};

} // namespace quillon::model
