// kdbx/Argon2Kdf.h: Argon2 key derivation from the header's parameters, and the master and HMAC keys.
#pragma once

#include "kdbx/SecureBytes.h"
#include "kdbx/VariantDictionary.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>

namespace quillon::kdbx {

enum class Argon2Variant : std::uint8_t { argon2d, argon2id };

// The caller gave up on a key derivation (its cancel flag was set). Not a KdbxError: nothing is wrong
// with the file.
class Cancelled final : public std::exception {
public:
    const char* what() const noexcept override { return "cancelled"; }
};

// The one Argon2 call of the program (the duress record of the lock layer uses it too); as many threads
// as lanes. Throws KdbxError::argon2(code) for whatever the library refuses; a memory cost beyond the
// machine's physical memory is refused as an allocation failure before anything is allocated, so a
// hostile header cannot push the machine into swap.
SecureBytes argon2Raw(Argon2Variant variant, ByteView password, ByteView salt, ByteView secret,
                      ByteView associatedData, std::uint32_t iterations, std::uint32_t memoryKiB,
                      std::uint32_t lanes, std::uint32_t version, std::size_t outputLength = 32);

// Runs the header's key-derivation function over the 32-byte composite key; throws KdbxError.
// With a cancel flag, Argon2 runs in a child process and the call throws Cancelled within moments of the
// flag being set (a hostile header may ask for 2^32-1 passes): the child is killed and reaped before the
// call returns, so an abandoned derivation uses no more CPU. Failing to start the child throws
// std::system_error.
SecureBytes transformKey(const SecureBytes& compositeKey, const VariantDictionary& kdf,
                         const std::atomic<bool>* cancel = nullptr);

struct DerivedKeys {
    SecureBytes masterKey;   // 32 bytes, for the payload cipher
    SecureBytes hmacBaseKey; // 64 bytes, for the header and block authentication codes
};

DerivedKeys deriveKeys(ByteView masterSeed, const SecureBytes& transformedKey);

} // namespace quillon::kdbx
