#include "kdbx/PayloadCipher.h"

#include "kdbx/BlockStream.h"
#include "kdbx/Check.h"
#include "kdbx/Encoding.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxError.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <climits>
#include <memory>
#include <optional>
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

SecureBytes aes256CbcDecrypt(const SecureBytes& key, ByteView iv, ByteView ciphertext)
{
    if (iv.size() != aesBlock)
        throw KdbxError::wrongCredentials();
    PayloadDecryptor decryptor = PayloadDecryptor::aes256Cbc(key, iv);
    SecureBytes out = SecureBytes::uninitialised(ciphertext.size() + aesBlock);
    std::size_t length = decryptor.update(ciphertext, out.data());
    length += decryptor.finish(out.data() + length);
    out.resize(length);
    return out;
}

PayloadDecryptor PayloadDecryptor::aes256Cbc(const SecureBytes& key, ByteView iv)
{
    QUILLON_CHECK(key.size() == 32 && iv.size() == aesBlock);
    PayloadDecryptor decryptor(EVP_CIPHER_CTX_new());
    QUILLON_CHECK(decryptor.context_ &&
                  EVP_DecryptInit_ex(decryptor.context_, EVP_aes_256_cbc(), nullptr, key.data(), iv.data()) == 1);
    return decryptor;
}

PayloadDecryptor PayloadDecryptor::chaCha20(const SecureBytes& key, ByteView nonce)
{
    QUILLON_CHECK(key.size() == 32 && nonce.size() == 12);
    // OpenSSL's IV is the 32-bit little-endian block counter (0 for the payload) followed by the nonce.
    std::array<std::uint8_t, 16> iv{};
    std::copy(nonce.begin(), nonce.end(), iv.begin() + 4);
    PayloadDecryptor decryptor(EVP_CIPHER_CTX_new());
    QUILLON_CHECK(decryptor.context_ &&
                  EVP_DecryptInit_ex(decryptor.context_, EVP_chacha20(), nullptr, key.data(), iv.data()) == 1);
    return decryptor;
}

PayloadDecryptor::~PayloadDecryptor()
{
    // Frees and cleanses the key schedule and the held-back block.
    EVP_CIPHER_CTX_free(context_);
}

PayloadDecryptor::PayloadDecryptor(PayloadDecryptor&& other) noexcept
    : context_(std::exchange(other.context_, nullptr))
{
}

std::size_t PayloadDecryptor::update(ByteView input, std::uint8_t* out)
{
    QUILLON_CHECK(context_ != nullptr);
    std::size_t written = 0;
    while (!input.empty()) {
        int len = 0;
        const int n = sliceLength(input.size());
        QUILLON_CHECK(EVP_DecryptUpdate(context_, out + written, &len, input.data(), n) == 1);
        written += static_cast<std::size_t>(len);
        input = input.subspan(static_cast<std::size_t>(n));
    }
    return written;
}

std::size_t PayloadDecryptor::finish(std::uint8_t* out)
{
    QUILLON_CHECK(context_ != nullptr);
    int len = 0;
    if (EVP_DecryptFinal_ex(context_, out, &len) != 1)
        throw KdbxError::wrongCredentials();
    return static_cast<std::size_t>(len);
}

PayloadDecryptor payloadDecryptor(const OuterHeader& header, const DerivedKeys& keys)
{
    if (isIdentifier(header.cipher, cipherAes256)) {
        if (header.encryptionIV.size() != aesBlock)
            throw KdbxError::malformedHeader("encryption IV length");
        return PayloadDecryptor::aes256Cbc(keys.masterKey, header.encryptionIV);
    }
    if (isIdentifier(header.cipher, cipherChaCha20)) {
        if (header.encryptionIV.size() != 12)
            throw KdbxError::malformedHeader("encryption IV length");
        return PayloadDecryptor::chaCha20(keys.masterKey, header.encryptionIV);
    }
    throw KdbxError::unsupportedCipher(base64Encode(header.cipher));
}

SecureBytes decryptPayload(ByteReader& reader, const OuterHeader& header, const DerivedKeys& keys)
{
    PayloadDecryptor decryptor = payloadDecryptor(header, keys);
    // The blocks' data and their 36-byte headers are all within what is left, so that is room enough for
    // the plaintext and the cipher's held-back block.
    SecureBytes payload = SecureBytes::uninitialised(reader.remaining());
    std::size_t length = 0;
    readBlocks(reader, keys.hmacBaseKey,
               [&](ByteView block) { length += decryptor.update(block, payload.data() + length); });
    length += decryptor.finish(payload.data() + length);
    payload.resize(length);
    return payload;
}

PayloadEncryptor::PayloadEncryptor(const OuterHeader& header, const SecureBytes& key)
{
    QUILLON_CHECK(key.size() == 32);
    std::array<std::uint8_t, 16> iv{};
    const EVP_CIPHER* cipher = nullptr;
    if (isIdentifier(header.cipher, cipherAes256)) {
        QUILLON_CHECK(header.encryptionIV.size() == aesBlock);
        std::copy(header.encryptionIV.begin(), header.encryptionIV.end(), iv.begin());
        cipher = EVP_aes_256_cbc();
    } else if (isIdentifier(header.cipher, cipherChaCha20)) {
        QUILLON_CHECK(header.encryptionIV.size() == 12);
        // OpenSSL's IV is the 32-bit little-endian block counter (0 for the payload) followed by the nonce.
        std::copy(header.encryptionIV.begin(), header.encryptionIV.end(), iv.begin() + 4);
        cipher = EVP_chacha20();
    } else {
        throw KdbxError::unsupportedCipher("write");
    }
    context_ = EVP_CIPHER_CTX_new();
    QUILLON_CHECK(context_ && EVP_EncryptInit_ex(context_, cipher, nullptr, key.data(), iv.data()) == 1);
}

PayloadEncryptor::~PayloadEncryptor() { EVP_CIPHER_CTX_free(context_); }

std::size_t PayloadEncryptor::update(ByteView input, std::uint8_t* out)
{
    std::size_t written = 0;
    while (!input.empty()) {
        int len = 0;
        const int n = sliceLength(input.size());
        QUILLON_CHECK(EVP_EncryptUpdate(context_, out + written, &len, input.data(), n) == 1);
        written += static_cast<std::size_t>(len);
        input = input.subspan(static_cast<std::size_t>(n));
    }
    return written;
}

std::size_t PayloadEncryptor::finish(std::uint8_t* out)
{
    int len = 0;
    QUILLON_CHECK(EVP_EncryptFinal_ex(context_, out, &len) == 1);
    return static_cast<std::size_t>(len);
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
