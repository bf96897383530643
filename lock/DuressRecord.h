// lock/DuressRecord.h: the stored check for the duress password: a salt and a slow Argon2id hash.
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quillon::lock {

// 16-byte salt followed by 32 bytes of Argon2id (2 passes, 16 MiB, 1 lane, version 0x13) of the password.
// The record alone does not give the password back; its storage belongs to the preferences.
class DuressRecord {
public:
    static constexpr std::size_t saltSize = 16;
    static constexpr std::size_t hashSize = 32;
    static constexpr std::size_t size = saltSize + hashSize;

    // A fresh salt each time; throws KdbxError when Argon2 fails, so a stored record stays as it was.
    static std::vector<std::uint8_t> make(kdbx::ByteView password);
    // False for an empty text, a record of any other size, or an Argon2 failure. A well-formed record is
    // always derived against in full, so the time taken does not tell a near miss from a match.
    static bool check(kdbx::ByteView record, kdbx::ByteView text) noexcept;
};

} // namespace quillon::lock
