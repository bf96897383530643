// fuzz/FuzzDatabase.h: the fixed outer header and password under which the whole-file harness seals its
// input, shared with the seed generator so seeds and harness agree.
#pragma once

#include "kdbx/CompositeKey.h"
#include "kdbx/Identifiers.h"
#include "kdbx/OuterHeader.h"

#include <cstdint>
#include <vector>

namespace quillon::fuzz {

// Argon2id at its smallest legal cost (8 KiB, one pass, one lane), uncompressed AES, fixed seed and IV:
// the fuzzer's bytes are the payload itself (inner header and XML), and each run costs microseconds.
inline kdbx::OuterHeader fuzzHeader()
{
    kdbx::OuterHeader h;
    h.major = 4;
    h.minor = 0;
    h.cipher.assign(kdbx::cipherAes256.begin(), kdbx::cipherAes256.end());
    h.compressed = false;
    h.masterSeed.assign(32, 0x11);
    h.encryptionIV.assign(16, 0x22);
    h.kdf.entries = {
        {"$UUID", std::vector<std::uint8_t>(kdbx::kdfArgon2id.begin(), kdbx::kdfArgon2id.end())},
        {"S", std::vector<std::uint8_t>(32, 0x33)},
        {"M", std::uint64_t{8 * 1024}},
        {"I", std::uint64_t{1}},
        {"P", std::uint32_t{1}},
    };
    return h;
}

inline kdbx::Credentials fuzzCredentials()
{
    kdbx::Credentials c;
    c.password = kdbx::SecureBytes::fromText("fuzz");
    return c;
}

} // namespace quillon::fuzz
