// kdbx/Argon2Kdf.h: Argon2 key derivation from the header's parameters, and the master and HMAC keys.
#pragma once

#include "kdbx/SecureBytes.h"
#include "kdbx/VariantDictionary.h"

#include <cstddef>
#include <cstdint>

namespace quillon::kdbx {

enum class Argon2Variant : std::uint8_t { argon2d, argon2id };

// The one Argon2 call of the program (the duress record of the lock layer uses it too); as many threads
// as lanes. Throws KdbxError::argon2(code) for whatever the library refuses.
SecureBytes argon2Raw(Argon2Variant variant, ByteView password, ByteView salt, ByteView secret,
                      ByteView associatedData, std::uint32_t iterations, std::uint32_t memoryKiB,
                      std::uint32_t lanes, std::uint32_t version, std::size_t outputLength = 32);

// Runs the header's key-derivation function over the 32-byte composite key; throws KdbxError.
SecureBytes transformKey(const SecureBytes& compositeKey, const VariantDictionary& kdf);

struct DerivedKeys {
    SecureBytes masterKey;   // 32 bytes, for the payload cipher
    SecureBytes hmacBaseKey; // 64 bytes, for the header and block authentication codes
};

DerivedKeys deriveKeys(ByteView masterSeed, const SecureBytes& transformedKey);

} // namespace quillon::kdbx
