// kdbx/Crypto.h: SHA-1/256/512 and HMAC over OpenSSL's EVP interfaces, shared by every layer.
#pragma once

#include "kdbx/SecureBytes.h"

#include <array>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <vector>

namespace quillon::kdbx {

using Digest256 = std::array<std::uint8_t, 32>;
using Digest512 = std::array<std::uint8_t, 64>;
using Digest160 = std::array<std::uint8_t, 20>;

enum class HashAlgorithm : std::uint8_t { sha1, sha256, sha512 };

// One-shot digests of public data.
Digest256 sha256(ByteView data);
Digest512 sha512(ByteView data);
Digest160 sha1(ByteView data);

// Digests of several pieces straight into a caller's buffer, so key material can stay in SecureBytes.
void sha256(std::initializer_list<ByteView> parts, std::span<std::uint8_t, 32> out);
void sha512(std::initializer_list<ByteView> parts, std::span<std::uint8_t, 64> out);
SecureBytes sha256Secret(std::initializer_list<ByteView> parts);
SecureBytes sha512Secret(std::initializer_list<ByteView> parts);

// Incremental SHA-256 (file stamps read in pieces).
class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;
    void update(ByteView data);
    Digest256 finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

// HMAC of several pieces; the output length is the hash's (20, 32 or 64 bytes).
std::vector<std::uint8_t> hmac(HashAlgorithm algorithm, ByteView key, std::initializer_list<ByteView> parts);
Digest256 hmacSha256(ByteView key, std::initializer_list<ByteView> parts);

// Constant-time comparison; different lengths compare unequal.
bool constantTimeEqual(ByteView a, ByteView b) noexcept;

} // namespace quillon::kdbx
