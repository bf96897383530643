#include "kdbx/Argon2Kdf.h"

#include "kdbx/Check.h"
#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxError.h"

#include <argon2.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <optional>
#include <span>
#include <system_error>

namespace quillon::kdbx {
namespace {

constexpr std::uint64_t u32Max = std::numeric_limits<std::uint32_t>::max();

// libargon2 takes non-const pointers but only reads its inputs (no clearing flags are set).
std::uint8_t* input(ByteView bytes) noexcept
{
    return bytes.empty() ? nullptr : const_cast<std::uint8_t*>(bytes.data());
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

struct Argon2Inputs {
    Argon2Variant variant{};
    ByteView password;
    ByteView salt;
    ByteView secret;
    ByteView associatedData;
    std::uint32_t iterations = 0;
    std::uint32_t memoryKiB = 0;
    std::uint32_t lanes = 0;
    std::uint32_t version = 0;
};

// Refused before anything is allocated, so a hostile header cannot push the machine into swap.
void refuseBeyondTheMachine(const Argon2Inputs& in)
{
    if (in.memoryKiB > physicalMemoryKiB())
        throw KdbxError::argon2(ARGON2_MEMORY_ALLOCATION_ERROR);
}

// libargon2's result code; every length fits 32 bits (checked by the callers). Allocates nothing of ours
// and throws nothing, so a forked child may call it.
int runArgon2(const Argon2Inputs& in, std::span<std::uint8_t> out) noexcept
{
    argon2_context context{};
    context.out = out.data();
    context.outlen = static_cast<std::uint32_t>(out.size());
    context.pwd = input(in.password);
    context.pwdlen = static_cast<std::uint32_t>(in.password.size());
    context.salt = input(in.salt);
    context.saltlen = static_cast<std::uint32_t>(in.salt.size());
    context.secret = input(in.secret);
    context.secretlen = static_cast<std::uint32_t>(in.secret.size());
    context.ad = input(in.associatedData);
    context.adlen = static_cast<std::uint32_t>(in.associatedData.size());
    context.t_cost = in.iterations;
    context.m_cost = in.memoryKiB;
    context.lanes = in.lanes;
    context.threads = in.lanes;
    context.version = in.version;
    context.flags = 0;
    return in.variant == Argon2Variant::argon2id ? argon2id_ctx(&context) : argon2d_ctx(&context);
}

SecureBytes deriveHere(const Argon2Inputs& in, std::size_t outputLength)
{
    for (const ByteView bytes : {in.password, in.salt, in.secret, in.associatedData})
        QUILLON_CHECK(bytes.size() <= u32Max);
    refuseBeyondTheMachine(in);
    SecureBytes out(outputLength);
    if (const int code = runArgon2(in, out.span()); code != ARGON2_OK)
        throw KdbxError::argon2(code);
    return out;
}

std::system_error childFailure(int error)
{
    return {error, std::generic_category(), "Could not run the key derivation"};
}

bool writeAll(int fd, const std::uint8_t* data, std::size_t size) noexcept
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

// The child of a fork from a program that may run other threads: it calls only what is safe there
// (libargon2 needs malloc and pthread_create, which glibc and macOS make fork-safe), answers with
// libargon2's code and, on success, the key, wipes its copy and ends without running any destructor or
// exit handler of the parent's. It inherits the parent's protection from core dumps (the dumpable flag
// and RLIMIT_CORE survive a fork).
// Every signal stays blocked, as forked, so none of the parent's handlers runs here; SIGKILL, which cannot
// be blocked, is how it is stopped.
[[noreturn]] void deriveInChild(const Argon2Inputs& in, std::span<std::uint8_t> out, pid_t parent, int answer) noexcept
{
#ifdef __linux__
    // Descriptors the parent holds (a pipe someone reads to its end, say) are not kept open by this child.
    if (answer > 3)
        (void)::close_range(3, static_cast<unsigned>(answer) - 1, 0);
    (void)::close_range(static_cast<unsigned>(std::max(answer, 2)) + 1, ~0u, 0);
    // Dies with the thread that waits for it, should the whole program go first.
    (void)::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent)
        ::_exit(1);
#else
    (void)parent;
#endif
    const std::int32_t code = runArgon2(in, out);
    std::uint8_t codeBytes[sizeof code];
    std::memcpy(codeBytes, &code, sizeof code);
    bool sent = writeAll(answer, codeBytes, sizeof codeBytes);
    if (sent && code == ARGON2_OK)
        sent = writeAll(answer, out.data(), out.size());
    secureWipe(out.data(), out.size());
    ::_exit(sent ? 0 : 1);
}

// The forked child and the read end of its pipe. Until it has been waited for, leaving this scope kills
// the child and reaps it, so no path leaves it running or a zombie.
class Child {
public:
    Child(pid_t pid, int answer) noexcept : pid_(pid), answer_(answer) {}
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child()
    {
        ::close(answer_);
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            (void)reap();
        }
    }

    // Fills `into` from the child's answer, checking the cancel flag between short waits. False when the
    // child ended before it had said as much.
    bool receive(std::span<std::uint8_t> into, const std::atomic<bool>& cancel)
    {
        std::size_t got = 0;
        while (got < into.size()) {
            if (cancel.load())
                throw Cancelled();
            pollfd ready{answer_, POLLIN, 0};
            const int n = ::poll(&ready, 1, 20);
            if (n < 0 && errno != EINTR)
                throw childFailure(errno);
            if (n <= 0)
                continue;
            const ssize_t read = ::read(answer_, into.data() + got, into.size() - got);
            if (read < 0 && (errno == EINTR || errno == EAGAIN))
                continue;
            if (read < 0)
                throw childFailure(errno);
            if (read == 0)
                return false;
            got += static_cast<std::size_t>(read);
        }
        return true;
    }

    // Waits for the child to end; its wait status, or none when the system reaped it already.
    std::optional<int> reap() noexcept
    {
        int status = 0;
        pid_t done = 0;
        do
            done = ::waitpid(pid_, &status, 0);
        while (done < 0 && errno == EINTR);
        pid_ = -1;
        if (done < 0)
            return std::nullopt; // ECHILD: SIGCHLD is ignored, so the kernel reaped it
        return status;
    }

private:
    pid_t pid_;
    int answer_;
};

void openPipe(int (&fds)[2])
{
#ifdef __APPLE__
    if (::pipe(fds) != 0)
        throw childFailure(errno);
    (void)::fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    (void)::fcntl(fds[1], F_SETFD, FD_CLOEXEC);
#else
    if (::pipe2(fds, O_CLOEXEC) != 0)
        throw childFailure(errno);
#endif
}

// libargon2 has no way to stop early, so an abandonable run happens in a child process that is killed
// when the flag is set: a hostile header asking for 2^32-1 passes then costs nothing once given up.
SecureBytes deriveCancellable(const Argon2Inputs& in, const std::atomic<bool>& cancel)
{
    refuseBeyondTheMachine(in);
    if (cancel.load())
        throw Cancelled();
    // Allocated before the fork, so the child writes into its copy of this buffer and allocates nothing.
    SecureBytes out(32);
    int fds[2];
    openPipe(fds);
    const pid_t parent = ::getpid();
    // Blocked across the fork, so the child starts with every signal blocked; this thread's own mask is
    // restored at once.
    sigset_t all;
    sigset_t previous;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &previous);
    const pid_t pid = ::fork();
    const int forkError = errno;
    if (pid == 0) {
        ::close(fds[0]);
        deriveInChild(in, out.span(), parent, fds[1]);
    }
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    ::close(fds[1]);
    if (pid < 0) {
        ::close(fds[0]);
        throw childFailure(forkError);
    }
    Child child(pid, fds[0]);

    std::uint8_t codeBytes[sizeof(std::int32_t)]{};
    const bool answered = child.receive(codeBytes, cancel);
    std::int32_t code = ARGON2_OK;
    std::memcpy(&code, codeBytes, sizeof code);
    const bool keyReceived = answered && code == ARGON2_OK && child.receive(out.span(), cancel);
    const auto status = child.reap();
    if (answered && code != ARGON2_OK)
        throw KdbxError::argon2(code);
    if (!keyReceived) {
        // Killed without answering: most likely by the kernel for want of memory.
        const bool killed = status && WIFSIGNALED(*status) && WTERMSIG(*status) == SIGKILL;
        throw KdbxError::argon2(killed ? ARGON2_MEMORY_ALLOCATION_ERROR : ARGON2_THREAD_FAIL);
    }
    return out;
}

} // namespace

SecureBytes argon2Raw(Argon2Variant variant, ByteView password, ByteView salt, ByteView secret,
                      ByteView associatedData, std::uint32_t iterations, std::uint32_t memoryKiB,
                      std::uint32_t lanes, std::uint32_t version, std::size_t outputLength)
{
    QUILLON_CHECK(outputLength > 0 && outputLength <= u32Max);
    return deriveHere({variant, password, salt, secret, associatedData, iterations, memoryKiB, lanes, version},
                      outputLength);
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

    const Argon2Inputs in{variant,
                          compositeKey.span(),
                          *salt,
                          secret,
                          associatedData,
                          static_cast<std::uint32_t>(*iterations),
                          static_cast<std::uint32_t>(*memory / 1024),
                          *lanes,
                          version};
    return cancel ? deriveCancellable(in, *cancel) : deriveHere(in, 32);
}

DerivedKeys deriveKeys(ByteView masterSeed, const SecureBytes& transformedKey)
{
    static constexpr std::uint8_t one[] = {0x01};
    return {sha256Secret({masterSeed, transformedKey.span()}),
            sha512Secret({masterSeed, transformedKey.span(), one})};
}

} // namespace quillon::kdbx
