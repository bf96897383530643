#include "files/SafeWrite.h"

#include "files/Posix.h"
#include "kdbx/Encoding.h"
#include "kdbx/Random.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace quillon::files {

namespace {

namespace fs = std::filesystem;

using Step = SaveError::Step;

SaveError failure(Step step, const fs::path& file, int error = errno)
{
    return {step, file.filename().string(), error};
}

// "." + name + "." + a fresh version-4 UUID in upper case + ".tmp": hidden, and beside the target so that the
// rename stays on one volume.
fs::path temporaryBeside(const fs::path& resolved)
{
    std::array<std::uint8_t, 16> id{};
    kdbx::randomFill(id);
    id[6] = static_cast<std::uint8_t>((id[6] & 0x0f) | 0x40);
    id[8] = static_cast<std::uint8_t>((id[8] & 0x3f) | 0x80);
    const std::string hex = kdbx::hexEncode(id, true);
    const std::string uuid = hex.substr(0, 8) + "-" + hex.substr(8, 4) + "-" + hex.substr(12, 4) + "-" +
                             hex.substr(16, 4) + "-" + hex.substr(20);
    return resolved.parent_path() / ("." + resolved.filename().string() + "." + uuid + ".tmp");
}

// The file a save replaces: a link's final target, or for a new file its resolved folder plus its name.
fs::path resolve(const fs::path& target)
{
    if (auto real = posix::realpath(target))
        return *real;
    const int error = errno;
    struct ::stat link {};
    if (error != ENOENT || posix::lstat(target, link) == 0)
        throw failure(Step::find, target, error); // a dangling link is refused, not replaced by a file
    const fs::path parent = target.has_parent_path() ? target.parent_path() : fs::path(".");
    const auto folder = posix::realpath(parent);
    if (!folder)
        throw failure(Step::findFolder, target);
    return *folder / target.filename();
}

// Owns the temporary file until it has been renamed into place; removes it on every other way out.
class Temporary {
public:
    Temporary(fs::path path, int fd) : path_(std::move(path)), fd_(fd) {}
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    ~Temporary()
    {
        const int saved = errno;
        if (fd_ >= 0)
            posix::close(fd_);
        if (!gone_)
            posix::unlink(path_);
        errno = saved;
    }

    const fs::path& path() const noexcept { return path_; }
    int fd() const noexcept { return fd_; }
    int close() { return posix::close(std::exchange(fd_, -1)); }
    void forget() noexcept { gone_ = true; }

private:
    fs::path path_;
    int fd_;
    bool gone_ = false;
};

void writeAll(const Temporary& file, kdbx::ByteView bytes)
{
    while (!bytes.empty()) {
        const ssize_t done = posix::write(file.fd(), bytes.data(), bytes.size());
        if (done < 0 && errno == EINTR)
            continue;
        if (done <= 0)
            throw failure(Step::writeTemporary, file.path(), done < 0 ? errno : EIO);
        bytes = bytes.subspan(static_cast<std::size_t>(done));
    }
}

// Reads the temporary file back in pieces, hands them to the check and proves that they are exactly what was
// written, by size and digest, so that no copy of a large file is held.
void readBack(const Temporary& file, const DiskStamp& written, const SafeWrite::Check& check)
{
    std::vector<std::uint8_t> piece(std::min<std::size_t>(static_cast<std::size_t>(written.size) + 1,
                                                          std::size_t{256} << 10));
    kdbx::Sha256 digest;
    std::int64_t have = 0;
    for (;;) {
        const ssize_t got = posix::pread(file.fd(), piece.data(), piece.size(), static_cast<off_t>(have));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw failure(Step::readBackTemporary, file.path());
        if (got == 0)
            break;
        const kdbx::ByteView read(piece.data(), static_cast<std::size_t>(got));
        have += got;
        if (have > written.size)
            throw failure(Step::readBackTemporary, file.path(), EIO);
        digest.update(read);
        if (check)
            check(read);
    }
    if (DiskStamp{have, digest.finish()} != written)
        throw failure(Step::readBackTemporary, file.path(), EIO);
    if (check)
        check({});
}

// The stamp of the file at path; absent only when there is no file. Any other failure to read it is an error:
// a file that cannot be read is never written over.
std::optional<DiskStamp> currentStamp(const fs::path& path, const fs::path& shownAs)
{
    std::error_code error;
    auto stamp = DiskStamp::ofFile(path, error);
    if (error && error != std::errc::no_such_file_or_directory)
        throw failure(Step::read, shownAs, error.value());
    return stamp;
}

void syncFolder(const fs::path& folder)
{
    // The new name is already in place and whole; a folder that cannot be synced (some file systems refuse)
    // does not make the save fail, or the window would keep a stamp that no longer matches the disk.
    const int fd = posix::open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return;
    posix::fsync(fd);
    posix::close(fd);
}

// The kernel's own answer for the user running this: another user's file, or a read-only file system.
void requireWritable(const fs::path& path, Step readOnly, Step unknown, const fs::path& target)
{
    if (posix::access(path, W_OK) == 0)
        return;
    const int error = errno;
    throw failure(error == EACCES || error == EPERM || error == EROFS ? readOnly : unknown, target, error);
}

bool unsupportedFlags(int error) { return error == EINVAL || error == ENOSYS || error == ENOTSUP; }

// Moves the temporary file into place if, at that instant, the target still is what the caller expects.
void replace(Temporary& file, const fs::path& resolved, const fs::path& target,
             const std::optional<DiskStamp>& expected)
{
    const std::string name = target.filename().string();
    if (!expected) {
        // Refuses a file that appeared since the comparison.
        if (posix::rename(file.path(), resolved, posix::Rename::noReplace) == 0) {
            file.forget();
            return;
        }
        if (errno == EEXIST)
            throw ChangedOnDisk(name);
        if (!unsupportedFlags(errno))
            throw failure(Step::save, target);
    } else {
        // Swaps the files, then looks at the one taken out: a change that landed after the comparison is seen
        // there and swapped back, so it is never lost.
        if (posix::rename(file.path(), resolved, posix::Rename::exchange) == 0) {
            std::error_code error;
            const auto displaced = DiskStamp::ofFile(file.path(), error);
            if (displaced == expected) {
                posix::unlink(file.path());
                file.forget();
                return;
            }
            if (posix::rename(file.path(), resolved, posix::Rename::exchange) != 0) {
                // The other version now sits at the temporary name: keep it rather than delete the only copy.
                file.forget();
                throw failure(Step::putBack, target);
            }
            if (error)
                throw failure(Step::read, target, error.value());
            throw ChangedOnDisk(name);
        }
        if (errno == ENOENT)
            throw ChangedOnDisk(name);
        if (!unsupportedFlags(errno))
            throw failure(Step::save, target);
    }
    // A file system without atomic exchange: the plain rename right after the comparison is the best it offers.
    if (posix::rename(file.path(), resolved) != 0)
        throw failure(Step::save, target);
    file.forget();
}

} // namespace

struct SafeWrite::State {
    State(fs::path target_, fs::path resolved_, mode_t mode_, fs::path temporary, int fd)
        : target(std::move(target_)), resolved(std::move(resolved_)), mode(mode_), file(std::move(temporary), fd)
    {
    }
    fs::path target;
    fs::path resolved;
    mode_t mode;
    Temporary file;
    kdbx::Sha256 digest;
    std::int64_t size = 0;
    bool broken = false; // an append failed: what is on disk is not what was handed over
};

SafeWrite::SafeWrite(std::unique_ptr<State> state) : state_(std::move(state)) {}
SafeWrite::SafeWrite(SafeWrite&&) noexcept = default;
SafeWrite& SafeWrite::operator=(SafeWrite&&) noexcept = default;
SafeWrite::~SafeWrite() = default;

void SafeWrite::abandon() noexcept { state_.reset(); }

SafeWrite SafeWrite::begin(const fs::path& target)
{
    if (!target.has_filename())
        throw failure(Step::save, target, EISDIR);
    const fs::path resolved = resolve(target);

    struct ::stat info {};
    mode_t mode = S_IRUSR | S_IWUSR;
    if (posix::stat(resolved, info) == 0) {
        if (!S_ISREG(info.st_mode))
            throw failure(Step::save, target, S_ISDIR(info.st_mode) ? EISDIR : EINVAL);
        // rename(2) needs no write permission on the file itself, and root needs none anywhere: a read-only
        // file would be replaced without this. The mode bit stops root; the access check stops the rest.
        if ((info.st_mode & S_IWUSR) == 0)
            throw failure(Step::readOnlyFile, target, EACCES);
        requireWritable(resolved, Step::readOnlyFile, Step::checkPermissions, target);
        mode = info.st_mode & 0777;
    } else if (errno != ENOENT) {
        throw failure(Step::read, target);
    }
    const fs::path folder = resolved.parent_path();
    struct ::stat folderInfo {};
    if (posix::stat(folder, folderInfo) != 0)
        throw failure(Step::findFolder, target);
    if ((folderInfo.st_mode & S_IWUSR) == 0)
        throw failure(Step::readOnlyFolder, target, EACCES);
    requireWritable(folder, Step::readOnlyFolder, Step::checkFolderPermissions, target);

    fs::path temporaryPath = temporaryBeside(resolved);
    const int fd = posix::open(temporaryPath, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0)
        throw failure(Step::createTemporary, temporaryPath);
    return SafeWrite(std::make_unique<State>(target, resolved, mode, std::move(temporaryPath), fd));
}

void SafeWrite::append(kdbx::ByteView bytes)
{
    if (!state_ || state_->broken)
        throw std::logic_error("append to a save that is over");
    state_->broken = true;
    writeAll(state_->file, bytes);
    state_->digest.update(bytes);
    state_->size += static_cast<std::int64_t>(bytes.size());
    state_->broken = false;
}

DiskStamp SafeWrite::finish(const std::optional<DiskStamp>& expected, const Check& check, const Backup& backup)
{
    if (!state_ || state_->broken)
        throw std::logic_error("finish of a save that is over");
    // Whatever happens below, this save is over: the temporary file goes with it unless it was renamed.
    const std::unique_ptr<State> state = std::move(state_);
    Temporary& file = state->file;
    const DiskStamp written{state->size, state->digest.finish()};

    if (posix::fsync(file.fd()) != 0)
        throw failure(Step::writeTemporary, file.path());
    if (check)
        readBack(file, written, check);

    if (backup) {
        try {
            backup();
        } catch (...) { // NOLINT(bugprone-empty-catch): the hook reports its own failure
        }
    }

    if (posix::fchmod(file.fd(), state->mode) != 0)
        throw failure(Step::setPermissions, file.path());
    if (file.close() != 0)
        throw failure(Step::writeTemporary, file.path());
    // Nothing but the rename between this comparison and the replacement, so that the window in which another
    // app's change could slip through is as short as the file system allows.
    if (currentStamp(state->resolved, state->target) != expected)
        throw ChangedOnDisk(state->target.filename().string());
    replace(file, state->resolved, state->target, expected);
    syncFolder(state->resolved.parent_path());
    return written;
}

DiskStamp SafeWrite::write(kdbx::ByteView bytes, const fs::path& target, const std::optional<DiskStamp>& expected,
                           const Check& check, const Backup& backup)
{
    SafeWrite write = begin(target);
    write.append(bytes);
    return write.finish(expected, check, backup);
}

} // namespace quillon::files
