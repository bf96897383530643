#include "files/DiskStamp.h"

#include "files/Posix.h"

#include <fcntl.h>

#include <array>
#include <cerrno>

namespace quillon::files {

DiskStamp DiskStamp::of(kdbx::ByteView bytes)
{
    return {static_cast<std::int64_t>(bytes.size()), kdbx::sha256(bytes)};
}

std::optional<DiskStamp> DiskStamp::ofFile(const std::filesystem::path& path)
{
    std::error_code ignored;
    return ofFile(path, ignored);
}

std::optional<DiskStamp> DiskStamp::ofFile(const std::filesystem::path& path, std::error_code& error)
{
    error.clear();
    const int fd = posix::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        error.assign(errno, std::generic_category());
        return std::nullopt;
    }
    kdbx::Sha256 hash;
    std::int64_t size = 0;
    std::array<std::uint8_t, 64 * 1024> chunk{};
    for (;;) {
        const ssize_t got = posix::read(fd, chunk.data(), chunk.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            if (got < 0)
                error.assign(errno, std::generic_category());
            break;
        }
        hash.update(kdbx::ByteView(chunk).first(static_cast<std::size_t>(got)));
        size += got;
    }
    // A descriptor opened only for reading loses nothing when its close fails.
    posix::close(fd);
    if (error)
        return std::nullopt;
    return DiskStamp{size, hash.finish()};
}

} // namespace quillon::files
