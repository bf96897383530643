#include "kdbx/Crypto.h"

#include "kdbx/Check.h"

#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>

namespace quillon::kdbx {
namespace {

const EVP_MD* md(HashAlgorithm algorithm) noexcept
{
    switch (algorithm) {
    case HashAlgorithm::sha1:
        return EVP_sha1();
    case HashAlgorithm::sha256:
        return EVP_sha256();
    case HashAlgorithm::sha512:
        return EVP_sha512();
    }
    return nullptr;
}

struct MdCtxFree {
    void operator()(EVP_MD_CTX* c) const noexcept { EVP_MD_CTX_free(c); }
};
using MdCtx = std::unique_ptr<EVP_MD_CTX, MdCtxFree>;

void digest(const EVP_MD* type, std::initializer_list<ByteView> parts, std::uint8_t* out)
{
    MdCtx ctx(EVP_MD_CTX_new());
    QUILLON_CHECK(ctx && EVP_DigestInit_ex(ctx.get(), type, nullptr) == 1);
    for (ByteView p : parts)
        QUILLON_CHECK(EVP_DigestUpdate(ctx.get(), p.data(), p.size()) == 1);
    unsigned int len = 0;
    QUILLON_CHECK(EVP_DigestFinal_ex(ctx.get(), out, &len) == 1);
}

} // namespace

Digest256 sha256(ByteView data)
{
    Digest256 out{};
    digest(EVP_sha256(), {data}, out.data());
    return out;
}

Digest512 sha512(ByteView data)
{
    Digest512 out{};
    digest(EVP_sha512(), {data}, out.data());
    return out;
}

Digest160 sha1(ByteView data)
{
    Digest160 out{};
    digest(EVP_sha1(), {data}, out.data());
    return out;
}

void sha256(std::initializer_list<ByteView> parts, std::span<std::uint8_t, 32> out)
{
    digest(EVP_sha256(), parts, out.data());
}

void sha512(std::initializer_list<ByteView> parts, std::span<std::uint8_t, 64> out)
{
    digest(EVP_sha512(), parts, out.data());
}

SecureBytes sha256Secret(std::initializer_list<ByteView> parts)
{
    SecureBytes out(32);
    digest(EVP_sha256(), parts, out.data());
    return out;
}

SecureBytes sha512Secret(std::initializer_list<ByteView> parts)
{
    SecureBytes out(64);
    digest(EVP_sha512(), parts, out.data());
    return out;
}

struct Sha256::State {
    MdCtx ctx{EVP_MD_CTX_new()};
};

Sha256::Sha256() : state_(std::make_unique<State>())
{
    QUILLON_CHECK(state_->ctx && EVP_DigestInit_ex(state_->ctx.get(), EVP_sha256(), nullptr) == 1);
}

Sha256::~Sha256() = default;

void Sha256::update(ByteView data) { QUILLON_CHECK(EVP_DigestUpdate(state_->ctx.get(), data.data(), data.size()) == 1); }

Digest256 Sha256::finish()
{
    Digest256 out{};
    unsigned int len = 0;
    QUILLON_CHECK(EVP_DigestFinal_ex(state_->ctx.get(), out.data(), &len) == 1);
    return out;
}

std::vector<std::uint8_t> hmac(HashAlgorithm algorithm, ByteView key, std::initializer_list<ByteView> parts)
{
    // Fetched once: the lookup costs more than a short MAC.
    static EVP_MAC* const mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    QUILLON_CHECK(mac != nullptr);
    const EVP_MD* type = md(algorithm);
    std::unique_ptr<EVP_MAC_CTX, decltype(&EVP_MAC_CTX_free)> ctx(EVP_MAC_CTX_new(mac), &EVP_MAC_CTX_free);
    QUILLON_CHECK(ctx != nullptr);
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string("digest", const_cast<char*>(EVP_MD_get0_name(type)), 0),
        OSSL_PARAM_construct_end(),
    };
    // An empty key is legal for HMAC; OpenSSL wants a non-null pointer for it.
    static const std::uint8_t none = 0;
    QUILLON_CHECK(EVP_MAC_init(ctx.get(), key.empty() ? &none : key.data(), key.size(), params) == 1);
    for (ByteView p : parts)
        QUILLON_CHECK(EVP_MAC_update(ctx.get(), p.data(), p.size()) == 1);
    std::vector<std::uint8_t> out(static_cast<std::size_t>(EVP_MD_get_size(type)));
    std::size_t len = 0;
    QUILLON_CHECK(EVP_MAC_final(ctx.get(), out.data(), &len, out.size()) == 1 && len == out.size());
    return out;
}

Digest256 hmacSha256(ByteView key, std::initializer_list<ByteView> parts)
{
    const auto v = hmac(HashAlgorithm::sha256, key, parts);
    Digest256 out{};
    std::copy(v.begin(), v.end(), out.begin());
    return out;
}

bool constantTimeEqual(ByteView a, ByteView b) noexcept
{
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace quillon::kdbx
