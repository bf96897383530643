#include "app/FileBytes.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace quillon::app {

std::vector<std::uint8_t> readFileBytes(const std::filesystem::path& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), "Could not read " + path.string());
    std::vector<std::uint8_t> bytes;
    struct stat st {};
    if (::fstat(fd, &st) == 0 && st.st_size > 0)
        bytes.reserve(static_cast<std::size_t>(st.st_size));
    std::uint8_t buffer[1 << 16];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            const int error = errno;
            ::close(fd);
            throw std::system_error(error, std::generic_category(), "Could not read " + path.string());
        }
        if (n == 0)
            break;
        bytes.insert(bytes.end(), buffer, buffer + n);
    }
    ::close(fd);
    return bytes;
}

} // namespace quillon::app
