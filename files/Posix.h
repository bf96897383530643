// files/Posix.h: every file-system call of this layer, through one seam that tests can intercept.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::files::posix {

enum class Call : std::uint8_t {
    open,
    close,
    read,
    pread,
    write,
    fsync,
    fchmod,
    chmod,
    fstat,
    access,
    stat,
    lstat,
    realpath,
    rename,
    unlink,
    mkdir,
    rmdir,
    listDirectory,
};

std::string_view callName(Call call) noexcept;

// Runs before every call below. A non-zero result makes that call fail with it as errno without being made;
// zero lets it through. Tests use it to fail the Nth call, or to act (as another writer) right before one.
using Interceptor = std::function<int(Call)>;
// Replaces the interceptor (an empty one removes it) and returns the previous one. Not thread-safe: tests set
// it while nothing else runs file calls.
Interceptor setInterceptor(Interceptor interceptor);

// Thin wrappers: same arguments, results and errno as the C library's calls.
int open(const std::filesystem::path& path, int flags, mode_t mode = 0);
int close(int fd);
ssize_t read(int fd, void* buffer, std::size_t size);
ssize_t pread(int fd, void* buffer, std::size_t size, off_t offset);
ssize_t write(int fd, const void* buffer, std::size_t size);
int fsync(int fd);
int fchmod(int fd, mode_t mode);
int chmod(const std::filesystem::path& path, mode_t mode);
int fstat(int fd, struct ::stat& out);
// faccessat(2) with the effective user and group, as the kernel checks a write.
int access(const std::filesystem::path& path, int mode);
int stat(const std::filesystem::path& path, struct ::stat& out);
int lstat(const std::filesystem::path& path, struct ::stat& out);
// replace is rename(2). The others are renameat2(2) on Linux and renamex_np(3) on macOS: noReplace fails
// with EEXIST when `to` exists, exchange swaps the two files atomically. A file system that cannot do
// them fails with EINVAL, ENOSYS or ENOTSUP.
enum class Rename : std::uint8_t { replace, noReplace, exchange };
int rename(const std::filesystem::path& from, const std::filesystem::path& to, Rename how = Rename::replace);
int unlink(const std::filesystem::path& path);
int mkdir(const std::filesystem::path& path, mode_t mode);
int rmdir(const std::filesystem::path& path);
// realpath(3): every symbolic link resolved; nothing (errno set) when a component is missing.
std::optional<std::filesystem::path> realpath(const std::filesystem::path& path);
// The names in a folder, without "." and ".."; nothing (errno set) when it cannot be read.
std::optional<std::vector<std::string>> listDirectory(const std::filesystem::path& path);

// What tells one file from another on a device. The inode number of a deleted file is handed to the next new
// one at once on some file systems; its birth time is not, where the file system records one (ext4, xfs,
// btrfs, tmpfs, APFS).
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    std::int64_t bornNanoseconds = 0; // 0: the file system records no birth time
};
// stat(2) for that identity, following links: statx(2) on Linux, st_birthtimespec on macOS. Intercepted as
// Call::stat; same results and errno.
int identify(const std::filesystem::path& path, FileIdentity& out);

} // namespace quillon::files::posix
