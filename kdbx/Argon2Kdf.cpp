#include "kdbx/Argon2Kdf.h"

#include "kdbx/Check.h"
#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxError.h"

#include <argon2.h>

#include <limits>
#include <optional>

namespace quillon::kdbx {
namespace {

constexpr std::uint64_t u32Max = std::numeric_limits<std::uint32_t>::max();

// libargon2 takes non-const pointers but only reads its inputs (no clearing flags are set).
std::uint8_t* input(ByteView bytes) noexcept
{
    return bytes.empty() ? nullptr : const_cast<std::uint8_t*>(bytes.data());
}

std::uint32_t length32(ByteView bytes)
{
    QUILLON_CHECK(bytes.size() <= u32Max);
    return static_cast<std::uint32_t>(bytes.size());
}

// "M" and "I" may be written as either width.
std::optional<std::uint64_t> unsignedNumber(const VariantDictionary& kdf, const std::string& key)
{
    if (const auto* v = kdf.get<std::uint64_t>(key))
        return *v;
    if (const auto* v = kdf.get<std::uint32_t>(key))
        return *v;
    return std::nullopt;
}

ByteView optionalBytes(const VariantDictionary& kdf, const std::string& key)
{
    const auto* v = kdf.get<std::vector<std::uint8_t>>(key);
    return v ? ByteView(*v) : ByteView();
}

} // namespace

SecureBytes argon2Raw(Argon2Variant variant, ByteView password, ByteView salt, ByteView secret,
                      ByteView associatedData, std::uint32_t iterations, std::uint32_t memoryKiB,
                      std::uint32_t lanes, std::uint32_t version, std::size_t outputLength)
{
    QUILLON_CHECK(outputLength > 0 && outputLength <= u32Max);
    SecureBytes out(outputLength);
    argon2_context context{};
    context.out = out.data();
    context.outlen = static_cast<std::uint32_t>(outputLength);
    context.pwd = input(password);
    context.pwdlen = length32(password);
    context.salt = input(salt);
    context.saltlen = length32(salt);
    context.secret = input(secret);
    context.secretlen = length32(secret);
    context.ad = input(associatedData);
    context.adlen = length32(associatedData);
    context.t_cost = iterations;
    context.m_cost = memoryKiB;
    context.lanes = lanes;
    context.threads = lanes;
    context.version = version;
    context.flags = 0;
    const int code = variant == Argon2Variant::argon2id ? argon2id_ctx(&context) : argon2d_ctx(&context);
    if (code != ARGON2_OK)
        throw KdbxError::argon2(code);
    return out;
}

SecureBytes transformKey(const SecureBytes& compositeKey, const VariantDictionary& kdf)
{
    const auto* uuid = kdf.get<std::vector<std::uint8_t>>("$UUID");
    if (!uuid)
        throw KdbxError::unsupportedKdf("missing");
    Argon2Variant variant{};
    if (isIdentifier(*uuid, kdfArgon2id))
        variant = Argon2Variant::argon2id;
    else if (isIdentifier(*uuid, kdfArgon2d))
        variant = Argon2Variant::argon2d;
    else if (isIdentifier(*uuid, kdfAesKdf))
        throw KdbxError::unsupportedKdf("AES-KDF");
    else
        throw KdbxError::unsupportedKdf(base64Encode(*uuid));

    const auto* salt = kdf.get<std::vector<std::uint8_t>>("S");
    const auto memory = unsignedNumber(kdf, "M");
    const auto iterations = unsignedNumber(kdf, "I");
    const auto* lanes = kdf.get<std::uint32_t>("P");
    if (!salt || !memory || !iterations || !lanes)
        throw KdbxError::unsupportedKdf("incomplete Argon2 parameters");
    const auto* v = kdf.get<std::uint32_t>("V");
    const std::uint32_t version = v && *v == ARGON2_VERSION_10 ? ARGON2_VERSION_10 : ARGON2_VERSION_13;
    const ByteView secret = optionalBytes(kdf, "K");
    const ByteView associatedData = optionalBytes(kdf, "A");

    if (*memory / 1024 > u32Max || *iterations > u32Max || salt->size() > u32Max || secret.size() > u32Max ||
        associatedData.size() > u32Max)
        throw KdbxError::malformedHeader("Argon2 parameters out of range");

    return argon2Raw(variant, compositeKey.span(), *salt, secret, associatedData,
                     static_cast<std::uint32_t>(*iterations), static_cast<std::uint32_t>(*memory / 1024), *lanes,
                     version);
}

DerivedKeys deriveKeys(ByteView masterSeed, const SecureBytes& transformedKey)
{
    static constexpr std::uint8_t one[] = {0x01};
    return {sha256Secret({masterSeed, transformedKey.span()}),
            sha512Secret({masterSeed, transformedKey.span(), one})};
}

} // namespace quillon::kdbx
