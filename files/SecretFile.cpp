#include "files/SecretFile.h"

#include "files/Posix.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>

namespace quillon::files {

namespace {

std::system_error readFailure(const std::filesystem::path& path, int error)
{
    return {error, std::generic_category(), "Could not read " + path.filename().string()};
}

// Reads until `into` is full or the file ends; the count read.
std::size_t readInto(int fd, std::uint8_t* into, std::size_t size, const std::filesystem::path& path)
{
    std::size_t got = 0;
    while (got < size) {
        const ssize_t n = posix::read(fd, into + got, size - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            throw readFailure(path, errno);
        if (n == 0)
            break;
        got += static_cast<std::size_t>(n);
    }
    return got;
}

} // namespace

kdbx::SecureBytes readSecretFile(const std::filesystem::path& path)
{
    // Non-blocking so that opening a named pipe cannot hang; it is refused below like any special file.
    const int fd = posix::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        throw readFailure(path, errno);
    struct Closer {
        int fd;
        ~Closer() { posix::close(fd); }
    } closer{fd};
    struct ::stat info {};
    if (posix::fstat(fd, info) != 0)
        throw readFailure(path, errno);
    if (!S_ISREG(info.st_mode))
        throw readFailure(path, S_ISDIR(info.st_mode) ? EISDIR : EINVAL);
    if (info.st_size < 0 || static_cast<std::uint64_t>(info.st_size) > maxSecretFileBytes)
        throw readFailure(path, EFBIG);

    const auto size = static_cast<std::size_t>(info.st_size);
    auto bytes = kdbx::SecureBytes::uninitialised(size);
    const std::size_t got = readInto(fd, bytes.data(), size, path);
    if (got < size) {
        // Shrunk while read: the buffer is cut in place, never moved.
        bytes.resizeUninitialised(got);
        return bytes;
    }
    std::uint8_t more = 0;
    if (readInto(fd, &more, 1, path) != 0) {
        kdbx::secureWipe(&more, 1);
        throw readFailure(path, EAGAIN);
    }
    return bytes;
}

} // namespace quillon::files
