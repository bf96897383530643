#include "files/DatabaseFile.h"

#include "files/CanonicalPath.h"
#include "files/Posix.h"
#include "files/SafeWrite.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <limits>
#include <string>
#include <system_error>
#include <utility>

namespace quillon::files {

namespace {

std::system_error readFailure(const std::filesystem::path& location, int error)
{
    return {error, std::generic_category(), "Could not read " + location.filename().string()};
}

} // namespace

DiskBytes readDiskBytes(const std::filesystem::path& location)
{
    // Non-blocking so that a named pipe cannot hang the open; it is refused below like any other special file.
    const int fd = posix::open(location, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        throw readFailure(location, errno);
    struct Closer {
        int fd;
        ~Closer() { posix::close(fd); }
    } closer{fd};
    struct ::stat info {};
    if (posix::fstat(fd, info) != 0)
        throw readFailure(location, errno);
    if (!S_ISREG(info.st_mode))
        throw readFailure(location, S_ISDIR(info.st_mode) ? EISDIR : EINVAL);

    DiskBytes read;
    // The size is only a hint: read to the end, whatever another program did to the length meanwhile.
    if (info.st_size > 0 && static_cast<std::uint64_t>(info.st_size) < std::numeric_limits<std::size_t>::max() / 2)
        read.bytes.reserve(static_cast<std::size_t>(info.st_size));
    std::vector<std::uint8_t> chunk(64 * 1024);
    for (;;) {
        const ssize_t got = posix::read(fd, chunk.data(), chunk.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw readFailure(location, errno);
        if (got == 0)
            break;
        read.bytes.insert(read.bytes.end(), chunk.begin(), chunk.begin() + got);
    }
    read.stamp = DiskStamp::of(read.bytes);
    return read;
}

DatabaseFile DatabaseFile::open(const std::filesystem::path& location, const kdbx::Credentials& credentials)
{
    return decode(location, readDiskBytes(location), credentials);
}

DatabaseFile DatabaseFile::decode(const std::filesystem::path& location, DiskBytes&& read,
                                  const kdbx::Credentials& credentials)
{
    return {location, kdbx::KdbxFile::open(std::move(read.bytes), credentials), read.stamp};
}

DatabaseFile DatabaseFile::decode(const std::filesystem::path& location, const DiskBytes& read,
                                  const kdbx::Credentials& credentials)
{
    return {location, kdbx::KdbxFile::open(read.bytes, credentials), read.stamp};
}

DatabaseFile::DatabaseFile(std::filesystem::path location, std::unique_ptr<kdbx::KdbxFile> file,
                           std::optional<DiskStamp> stamp)
    : location_(std::move(location)), file_(std::move(file)), stamp_(std::move(stamp))
{
}

PreSaveBackup::Outcome DatabaseFile::save(const kdbx::Credentials& credentials, const BackupSetting& backup)
{
    return saveTo(location_, stamp_, credentials, backup);
}

PreSaveBackup::Outcome DatabaseFile::saveTo(const std::filesystem::path& location,
                                            const std::optional<DiskStamp>& expected,
                                            const kdbx::Credentials& credentials, const BackupSetting& backup)
{
    const EncodedDatabase encoded = encode(credentials);
    const Committed done = commit(encoded, location, expected, backup, backedUp_);
    adopt(location, done.stamp);
    return done.backup;
}

EncodedDatabase DatabaseFile::encode(const kdbx::Credentials& credentials)
{
    kdbx::EncodedFile file = file_->encode(credentials);
    return {std::move(file.bytes), file.digests, credentials.copy()};
}

void DatabaseFile::adopt(const std::filesystem::path& location, const DiskStamp& stamp)
{
    location_ = location;
    stamp_ = stamp;
}

namespace {

Committed write(kdbx::ByteView bytes, const std::filesystem::path& location, const std::optional<DiskStamp>& expected,
                const SafeWrite::Check& check, const BackupSetting& backup, PreSaveBackup& backedUp)
{
    Committed done;
    // The same text every run, whatever route reached the file, so that its backups share one folder.
    const std::filesystem::path database = canonicalPath(location);
    const auto makeBackup = [&] {
        if (backup.backups)
            done.backup = backedUp.beforeSave(*backup.backups, database, backup.backUpBeforeSaving);
    };
    done.stamp = SafeWrite::write(bytes, location, expected, check, makeBackup);
    return done;
}

} // namespace

Committed commit(const EncodedDatabase& encoded, const std::filesystem::path& location,
                 const std::optional<DiskStamp>& expected, const BackupSetting& backup, PreSaveBackup& backedUp)
{
    // What is about to replace the file must open with the credentials that will be asked for next time, and
    // hold exactly what was encoded.
    const auto check = [&encoded](kdbx::ByteView written) {
        kdbx::KdbxFile::verify(written, encoded.credentials, encoded.digests);
    };
    return write(encoded.bytes, location, expected, check, backup, backedUp);
}

Committed commitSealed(kdbx::ByteView bytes, const std::filesystem::path& location,
                       const std::optional<DiskStamp>& expected, const BackupSetting& backup, PreSaveBackup& backedUp)
{
    return write(bytes, location, expected, {}, backup, backedUp);
}

} // namespace quillon::files
