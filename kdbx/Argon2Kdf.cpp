#include "kdbx/Argon2Kdf.h"

#include "kdbx/Check.h"
#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxError.h"

#include <argon2.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

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

// Physical memory in KiB, or the largest cost when the system does not say.
std::uint64_t physicalMemoryKiB() noexcept
{
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGESIZE);
    if (pages <= 0 || pageSize <= 0)
        return u32Max;
    return static_cast<std::uint64_t>(pages) / 1024 * static_cast<std::uint64_t>(pageSize);
}

struct Argon2Parameters {
    Argon2Variant variant{};
    SecureBytes password;
    SecureBytes salt;
    SecureBytes secret;
    SecureBytes associatedData;
    std::uint32_t iterations = 0;
    std::uint32_t memoryKiB = 0;
    std::uint32_t lanes = 0;
    std::uint32_t version = 0;

    SecureBytes run() const
    {
        return argon2Raw(variant, password.span(), salt.span(), secret.span(), associatedData.span(), iterations,
                         memoryKiB, lanes, version);
    }
};

// The job is shared with its thread, so an abandoned run still owns everything it reads and writes.
struct Argon2Job {
    Argon2Parameters parameters;
    std::mutex mutex;
    std::condition_variable finished;
    bool done = false;
    SecureBytes result;
    std::exception_ptr error;
};

SecureBytes runCancellable(Argon2Parameters parameters, const std::atomic<bool>& cancel)
{
    auto job = std::make_shared<Argon2Job>();
    job->parameters = std::move(parameters);
    std::thread([job] {
        SecureBytes out;
        std::exception_ptr error;
        try {
            out = job->parameters.run();
        } catch (...) {
            error = std::current_exception();
        }
        const std::lock_guard lock(job->mutex);
        job->result = std::move(out);
        job->error = error;
        job->done = true;
        job->finished.notify_all();
    }).detach();

    std::unique_lock lock(job->mutex);
    while (!job->finished.wait_for(lock, std::chrono::milliseconds(20), [&] { return job->done; }))
        if (cancel.load())
            throw Cancelled();
    if (job->error)
        std::rethrow_exception(job->error);
    return std::move(job->result);
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
    if (memoryKiB > physicalMemoryKiB())
        throw KdbxError::argon2(ARGON2_MEMORY_ALLOCATION_ERROR);
    const int code = variant == Argon2Variant::argon2id ? argon2id_ctx(&context) : argon2d_ctx(&context);
    if (code != ARGON2_OK)
        throw KdbxError::argon2(code);
    return out;
}

SecureBytes transformKey(const SecureBytes& compositeKey, const VariantDictionary& kdf, const std::atomic<bool>* cancel)
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

    Argon2Parameters parameters{variant,
                                compositeKey.copy(),
                                SecureBytes::from(*salt),
                                SecureBytes::from(secret),
                                SecureBytes::from(associatedData),
                                static_cast<std::uint32_t>(*iterations),
                                static_cast<std::uint32_t>(*memory / 1024),
                                *lanes,
                                version};
    if (!cancel)
        return parameters.run();
    return runCancellable(std::move(parameters), *cancel);
}

DerivedKeys deriveKeys(ByteView masterSeed, const SecureBytes& transformedKey)
{
    static constexpr std::uint8_t one[] = {0x01};
    return {sha256Secret({masterSeed, transformedKey.span()}),
            sha512Secret({masterSeed, transformedKey.span(), one})};
}

} // namespace quillon::kdbx
