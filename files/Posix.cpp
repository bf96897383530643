#include "files/Posix.h"

#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>
#if !defined(__APPLE__)
#include <sys/sysmacros.h>
#endif

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

namespace quillon::files::posix {

namespace {

Interceptor& interceptor()
{
    static Interceptor current;
    return current;
}

// The errno with which the interceptor refuses the call, or zero.
int refusal(Call call)
{
    const auto& hook = interceptor();
    return hook ? hook(call) : 0;
}

// False (errno set) when the interceptor refuses the call.
bool allowed(Call call)
{
    if (const int error = refusal(call); error != 0) {
        errno = error;
        return false;
    }
    return true;
}

} // namespace

std::string_view callName(Call call) noexcept
{
    switch (call) {
    case Call::open: return "open";
    case Call::close: return "close";
    case Call::read: return "read";
    case Call::pread: return "pread";
    case Call::write: return "write";
    case Call::fsync: return "fsync";
    case Call::fchmod: return "fchmod";
    case Call::chmod: return "chmod";
    case Call::fstat: return "fstat";
    case Call::access: return "access";
    case Call::stat: return "stat";
    case Call::lstat: return "lstat";
    case Call::realpath: return "realpath";
    case Call::rename: return "rename";
    case Call::unlink: return "unlink";
    case Call::mkdir: return "mkdir";
    case Call::rmdir: return "rmdir";
    case Call::listDirectory: return "listDirectory";
    }
    return "?";
}

Interceptor setInterceptor(Interceptor next)
{
    return std::exchange(interceptor(), std::move(next));
}

int open(const std::filesystem::path& path, int flags, mode_t mode)
{
    return allowed(Call::open) ? ::open(path.c_str(), flags, mode) : -1;
}

int close(int fd)
{
    if (const int error = refusal(Call::close); error != 0) {
        // The descriptor is gone either way, as after a real close that reports an error.
        ::close(fd);
        errno = error;
        return -1;
    }
    return ::close(fd);
}

ssize_t read(int fd, void* buffer, std::size_t size)
{
    return allowed(Call::read) ? ::read(fd, buffer, size) : -1;
}

ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset)
{
    return allowed(Call::pread) ? ::pread(fd, buffer, size, offset) : -1;
}

ssize_t write(int fd, const void* buffer, std::size_t size)
{
    return allowed(Call::write) ? ::write(fd, buffer, size) : -1;
}

int fsync(int fd) { return allowed(Call::fsync) ? ::fsync(fd) : -1; }

int fchmod(int fd, mode_t mode) { return allowed(Call::fchmod) ? ::fchmod(fd, mode) : -1; }

int chmod(const std::filesystem::path& path, mode_t mode)
{
    return allowed(Call::chmod) ? ::chmod(path.c_str(), mode) : -1;
}

int fstat(int fd, struct ::stat& out) { return allowed(Call::fstat) ? ::fstat(fd, &out) : -1; }

int access(const std::filesystem::path& path, int mode)
{
    return allowed(Call::access) ? ::faccessat(AT_FDCWD, path.c_str(), mode, AT_EACCESS) : -1;
}

int stat(const std::filesystem::path& path, struct ::stat& out)
{
    return allowed(Call::stat) ? ::stat(path.c_str(), &out) : -1;
}

int lstat(const std::filesystem::path& path, struct ::stat& out)
{
    return allowed(Call::lstat) ? ::lstat(path.c_str(), &out) : -1;
}

int rename(const std::filesystem::path& from, const std::filesystem::path& to, Rename how)
{
    if (!allowed(Call::rename))
        return -1;
    if (how == Rename::replace)
        return ::rename(from.c_str(), to.c_str());
#ifdef __APPLE__
    return ::renamex_np(from.c_str(), to.c_str(), how == Rename::exchange ? RENAME_SWAP : RENAME_EXCL);
#else
    return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(),
                       how == Rename::exchange ? RENAME_EXCHANGE : RENAME_NOREPLACE);
#endif
}

int unlink(const std::filesystem::path& path) { return allowed(Call::unlink) ? ::unlink(path.c_str()) : -1; }

int mkdir(const std::filesystem::path& path, mode_t mode)
{
    return allowed(Call::mkdir) ? ::mkdir(path.c_str(), mode) : -1;
}

int rmdir(const std::filesystem::path& path) { return allowed(Call::rmdir) ? ::rmdir(path.c_str()) : -1; }

std::optional<std::filesystem::path> realpath(const std::filesystem::path& path)
{
    if (!allowed(Call::realpath))
        return std::nullopt;
    const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    if (!resolved)
        return std::nullopt;
    return std::filesystem::path(resolved.get());
}

std::optional<std::vector<std::string>> listDirectory(const std::filesystem::path& path)
{
    if (!allowed(Call::listDirectory))
        return std::nullopt;
    struct CloseDir {
        void operator()(DIR* dir) const noexcept { ::closedir(dir); }
    };
    const std::unique_ptr<DIR, CloseDir> dir(::opendir(path.c_str()));
    if (!dir)
        return std::nullopt;
    std::vector<std::string> names;
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(dir.get());
        if (!entry)
            break;
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..")
            names.emplace_back(name);
    }
    if (errno != 0)
        return std::nullopt;
    return names;
}

int identify(const std::filesystem::path& path, FileIdentity& out)
{
    if (!allowed(Call::stat))
        return -1;
#if defined(__APPLE__)
    struct ::stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return -1;
    out = {info.st_dev, info.st_ino,
           std::int64_t{info.st_birthtimespec.tv_sec} * 1'000'000'000 + info.st_birthtimespec.tv_nsec};
    return 0;
#else
    struct ::statx info {};
    if (::statx(AT_FDCWD, path.c_str(), AT_STATX_SYNC_AS_STAT, STATX_INO | STATX_BTIME, &info) == 0) {
        out = {makedev(info.stx_dev_major, info.stx_dev_minor), info.stx_ino, 0};
        if ((info.stx_mask & STATX_BTIME) != 0)
            out.bornNanoseconds = std::int64_t{info.stx_btime.tv_sec} * 1'000'000'000 + info.stx_btime.tv_nsec;
        return 0;
    }
    if (errno != ENOSYS && errno != EPERM)
        return -1;
    // A kernel or sandbox without statx: the inode alone.
    struct ::stat plain {};
    if (::stat(path.c_str(), &plain) != 0)
        return -1;
    out = {plain.st_dev, plain.st_ino, 0};
    return 0;
#endif
}

} // namespace quillon::files::posix
