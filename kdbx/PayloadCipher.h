// kdbx/PayloadCipher.h: the two payload ciphers, AES-256-CBC and the ChaCha20 stream (also the inner stream).
#pragma once

#include "kdbx/Argon2Kdf.h"
#include "kdbx/ByteReader.h"
#include "kdbx/OuterHeader.h"
#include "kdbx/SecureBytes.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

struct evp_cipher_ctx_st;

namespace quillon::kdbx {

// PKCS#7 padding; key 32 bytes and IV 16 bytes, else the program stops.
std::vector<std::uint8_t> aes256CbcEncrypt(const SecureBytes& key, ByteView iv, ByteView plaintext);
// Any failure (bad padding, a length not a whole number of blocks, an IV of the wrong size) is
// wrongCredentials: the authentication codes were checked before, so only a wrong key gets here.
SecureBytes aes256CbcDecrypt(const SecureBytes& key, ByteView iv, ByteView ciphertext);

// Decrypts a payload that arrives in pieces (the blocks of the block stream) straight into the caller's
// buffer, so the joined ciphertext is never held as a copy of its own. AES-256-CBC holds back its last
// block until finish, which strips the padding.
class PayloadDecryptor {
public:
    static PayloadDecryptor aes256Cbc(const SecureBytes& key, ByteView iv);
    static PayloadDecryptor chaCha20(const SecureBytes& key, ByteView nonce);
    ~PayloadDecryptor();
    PayloadDecryptor(PayloadDecryptor&& other) noexcept;
    PayloadDecryptor& operator=(PayloadDecryptor&&) = delete;
    PayloadDecryptor(const PayloadDecryptor&) = delete;
    PayloadDecryptor& operator=(const PayloadDecryptor&) = delete;

    // Writes at most input.size() + 16 bytes at out and returns how many it wrote.
    std::size_t update(ByteView input, std::uint8_t* out);
    // Writes at most 16 bytes at out. Throws wrongCredentials for a bad length or padding.
    std::size_t finish(std::uint8_t* out);

private:
    explicit PayloadDecryptor(evp_cipher_ctx_st* context) noexcept : context_(context) {}
    evp_cipher_ctx_st* context_ = nullptr;
};

// Encrypts a payload handed over in pieces under the header's cipher (AES-256-CBC with PKCS#7 padding, or the
// ChaCha20 stream), so that it never needs to be joined first. Throws unsupportedCipher for any other cipher.
class PayloadEncryptor {
public:
    PayloadEncryptor(const OuterHeader& header, const SecureBytes& key);
    ~PayloadEncryptor();
    PayloadEncryptor(const PayloadEncryptor&) = delete;
    PayloadEncryptor& operator=(const PayloadEncryptor&) = delete;

    // Writes at most input.size() + 16 bytes at out and returns how many it wrote.
    std::size_t update(ByteView input, std::uint8_t* out);
    // Writes at most 16 bytes at out (the padding block).
    std::size_t finish(std::uint8_t* out);

private:
    evp_cipher_ctx_st* context_ = nullptr;
};

// The decryptor for the header's cipher. Throws unsupportedCipher, or malformedHeader for an IV of the wrong
// length.
PayloadDecryptor payloadDecryptor(const OuterHeader& header, const DerivedKeys& keys);

// Reads the block stream at the reader and decrypts it with the header's cipher. Each block is decrypted
// straight out of the file's bytes once its code checks, so the joined ciphertext is never held as a copy
// of its own. Throws KdbxError: a bad block code, an unsupported cipher, an IV of the wrong length, or
// wrongCredentials for bad padding.
SecureBytes decryptPayload(ByteReader& reader, const OuterHeader& header, const DerivedKeys& keys);

// RFC 8439 ChaCha20: a 32-byte key and a 12-byte nonce, else the program stops.
class ChaCha20 {
public:
    ChaCha20(ByteView key, ByteView nonce, std::uint32_t counter = 0);
    ~ChaCha20();
    ChaCha20(ChaCha20&& other) noexcept;
    ChaCha20& operator=(ChaCha20&& other) noexcept;
    ChaCha20(const ChaCha20&) = delete;
    ChaCha20& operator=(const ChaCha20&) = delete;

    // XORs data in place with the keystream; the position carries over to the next call, so two calls
    // equal one over the joined bytes. Encrypts and decrypts alike.
    void apply(std::span<std::uint8_t> data);

private:
    evp_cipher_ctx_st* context_ = nullptr;
};

} // namespace quillon::kdbx
