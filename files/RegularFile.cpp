#include "files/RegularFile.h"

#include "files/Posix.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>
#include <utility>

namespace quillon::files {

std::optional<RegularFile> RegularFile::open(const std::filesystem::path& path, std::error_code& error)
{
    error.clear();
    // Non-blocking so that opening a named pipe cannot hang; it is refused below like any special file.
    const int fd = posix::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        error.assign(errno, std::generic_category());
        return std::nullopt;
    }
    struct ::stat info {};
    int failure = 0;
    if (posix::fstat(fd, info) != 0)
        failure = errno;
    else if (!S_ISREG(info.st_mode))
        failure = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    if (failure != 0) {
        posix::close(fd);
        error.assign(failure, std::generic_category());
        return std::nullopt;
    }
    return RegularFile(fd, info.st_size > 0 ? static_cast<std::uint64_t>(info.st_size) : 0);
}

RegularFile::RegularFile(RegularFile&& other) noexcept : fd_(std::exchange(other.fd_, -1)), size_(other.size_) {}

RegularFile::~RegularFile()
{
    // A descriptor opened only for reading loses nothing when its close fails.
    if (fd_ >= 0)
        posix::close(fd_);
}

std::size_t RegularFile::read(std::uint8_t* into, std::size_t size, std::error_code& error)
{
    error.clear();
    std::size_t got = 0;
    while (got < size) {
        const ssize_t n = posix::read(fd_, into + got, size - got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            error.assign(errno, std::generic_category());
            break;
        }
        if (n == 0)
            break;
        got += static_cast<std::size_t>(n);
    }
    return got;
}

std::system_error readFailure(const std::filesystem::path& path, std::error_code error)
{
    return {error, "Could not read " + path.filename().string()};
}

} // namespace quillon::files
