#include "kdbx/PayloadCipher.h"

#include "kdbx/Check.h"
#include "kdbx/KdbxError.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <climits>
#include <memory>
#include <utility>

namespace quillon::kdbx {
namespace {

struct CipherCtxFree {
    void operator()(EVP_CIPHER_CTX* c) const noexcept { EVP_CIPHER_CTX_free(c); }
};
using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, CipherCtxFree>;

constexpr std::size_t aesBlock = 16;
// EVP lengths are ints: large buffers go through in slices.
constexpr std::size_t maxSlice = std::size_t{1} << 30;

int sliceLength(std::size_t n) noexcept { return static_cast<int>(std::min(n, maxSlice)); }

// Runs an initialised context over the whole input into out, which has room for input + one block.
bool runCipher(EVP_CIPHER_CTX* ctx, ByteView input, std::uint8_t* out, std::size_t& written)
{
    written = 0;
    while (!input.empty()) {
        int len = 0;
        const int n = sliceLength(input.size());
        if (EVP_CipherUpdate(ctx, out + written, &len, input.data(), n) != 1)
            return false;
        written += static_cast<std::size_t>(len);
        input = input.subspan(static_cast<std::size_t>(n));
    }
    int len = 0;
    if (EVP_CipherFinal_ex(ctx, out + written, &len) != 1)
        return false;
    written += static_cast<std::size_t>(len);
    return true;
}

} // namespace

std::vector<std::uint8_t> aes256CbcEncrypt(const SecureBytes& key, ByteView iv, ByteView plaintext)
{
    QUILLON_CHECK(key.size() == 32 && iv.size() == aesBlock);
    CipherCtx ctx(EVP_CIPHER_CTX_new());
    QUILLON_CHECK(ctx && EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_cbc(), nullptr, key.data(), iv.data()) == 1);
    std::vector<std::uint8_t> out(plaintext.size() + aesBlock);
    std::size_t written = 0;
    QUILLON_CHECK(runCipher(ctx.get(), plaintext, out.data(), written));
    out.resize(written);
    return out;
}

void aes256CbcDecryptInPlace(const SecureBytes& key, ByteView iv, SecureBytes& buffer)
{
    QUILLON_CHECK(key.size() == 32);
    const std::size_t size = buffer.size();
    if (iv.size() != aesBlock || size == 0 || size % aesBlock != 0)
        throw KdbxError::wrongCredentials();

    // Everything but the last block is decrypted in place without padding; the last block then goes
    // through a second context that checks and strips the padding. Its IV is the ciphertext block
    // before it, saved before the first pass overwrites it.
    std::array<std::uint8_t, aesBlock> lastIv{};
    std::copy_n(size > aesBlock ? buffer.data() + size - 2 * aesBlock : iv.data(), aesBlock, lastIv.begin());
    CipherCtx bulk(EVP_CIPHER_CTX_new());
    QUILLON_CHECK(bulk && EVP_DecryptInit_ex(bulk.get(), EVP_aes_256_cbc(), nullptr, key.data(), iv.data()) == 1);
    QUILLON_CHECK(EVP_CIPHER_CTX_set_padding(bulk.get(), 0) == 1);
    std::size_t written = 0;
    QUILLON_CHECK(runCipher(bulk.get(), buffer.span().first(size - aesBlock), buffer.data(), written));

    CipherCtx tail(EVP_CIPHER_CTX_new());
    QUILLON_CHECK(tail && EVP_DecryptInit_ex(tail.get(), EVP_aes_256_cbc(), nullptr, key.data(), lastIv.data()) == 1);
    std::array<std::uint8_t, 2 * aesBlock> last{};
    std::size_t lastLength = 0;
    const bool padded = runCipher(tail.get(), buffer.span().subspan(size - aesBlock), last.data(), lastLength);
    secureWipe(lastIv.data(), lastIv.size());
    if (!padded) {
        secureWipe(last.data(), last.size());
        buffer.wipe();
        throw KdbxError::wrongCredentials();
    }
    std::copy_n(last.begin(), lastLength, buffer.data() + size - aesBlock);
    secureWipe(last.data(), last.size());
    buffer.resize(size - aesBlock + lastLength);
}

SecureBytes aes256CbcDecrypt(const SecureBytes& key, ByteView iv, ByteView ciphertext)
{
    SecureBytes out = SecureBytes::from(ciphertext);
    aes256CbcDecryptInPlace(key, iv, out);
    return out;
}

ChaCha20::ChaCha20(ByteView key, ByteView nonce, std::uint32_t counter)
{
    QUILLON_CHECK(key.size() == 32 && nonce.size() == 12);
    // OpenSSL's IV is the 32-bit little-endian block counter followed by the nonce.
    std::array<std::uint8_t, 16> iv{};
    for (std::size_t i = 0; i < 4; ++i)
        iv[i] = static_cast<std::uint8_t>(counter >> (8 * i));
    std::copy(nonce.begin(), nonce.end(), iv.begin() + 4);
    context_ = EVP_CIPHER_CTX_new();
    QUILLON_CHECK(context_ && EVP_EncryptInit_ex(context_, EVP_chacha20(), nullptr, key.data(), iv.data()) == 1);
}

ChaCha20::~ChaCha20()
{
    // Frees and cleanses the key schedule and any keystream left in the context.
    EVP_CIPHER_CTX_free(context_);
}

ChaCha20::ChaCha20(ChaCha20&& other) noexcept : context_(std::exchange(other.context_, nullptr)) {}

ChaCha20& ChaCha20::operator=(ChaCha20&& other) noexcept
{
    if (this != &other) {
        EVP_CIPHER_CTX_free(context_);
        context_ = std::exchange(other.context_, nullptr);
    }
    return *this;
}

void ChaCha20::apply(std::span<std::uint8_t> data)
{
    QUILLON_CHECK(context_ != nullptr);
    while (!data.empty()) {
        int len = 0;
        const int n = sliceLength(data.size());
        QUILLON_CHECK(EVP_EncryptUpdate(context_, data.data(), &len, data.data(), n) == 1 && len == n);
        data = data.subspan(static_cast<std::size_t>(n));
    }
}

} // namespace quillon::kdbx
