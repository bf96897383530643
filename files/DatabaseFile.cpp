#include "files/DatabaseFile.h"

#include "files/CanonicalPath.h"
#include "files/RegularFile.h"
#include "files/SafeWrite.h"
#include "kdbx/WrittenFileCheck.h"

#include <limits>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

namespace quillon::files {

DiskBytes readDiskBytes(const std::filesystem::path& location)
{
    std::error_code error;
    auto file = RegularFile::open(location, error);
    if (!file)
        throw readFailure(location, error);

    DiskBytes read;
    // The size is only a hint: read to the end, whatever another program did to the length meanwhile.
    std::size_t want = file->sizeAtOpen() < std::numeric_limits<std::size_t>::max() / 2
                           ? static_cast<std::size_t>(file->sizeAtOpen()) + 1
                           : std::size_t{64} << 10;
    for (;;) {
        const std::size_t have = read.bytes.size();
        read.bytes.resize(have + want);
        const std::size_t got = file->read(read.bytes.data() + have, want, error);
        read.bytes.resize(have + got);
        if (error)
            throw readFailure(location, error);
        if (got < want)
            break;
        want = std::size_t{64} << 10;
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
    EncodedDatabase encoded = encode(location, credentials);
    const Committed done = commit(encoded, expected, backup, backedUp_);
    adopt(location, done.stamp);
    return done.backup;
}

EncodedDatabase DatabaseFile::encode(const std::filesystem::path& location, const kdbx::Credentials& credentials)
{
    // The temporary file is made with the first piece, so that a document the encoder refuses touches no file.
    std::optional<SafeWrite> file;
    const kdbx::PayloadDigests digests = file_->encodeTo(credentials, [&](kdbx::ByteView piece) {
        if (!file)
            file.emplace(SafeWrite::begin(location));
        file->append(piece);
    });
    if (!file)
        file.emplace(SafeWrite::begin(location));
    return {location, std::move(*file), digests, credentials.copy()};
}

void DatabaseFile::adopt(const std::filesystem::path& location, const DiskStamp& stamp)
{
    location_ = location;
    stamp_ = stamp;
}

namespace {

// The pre-save backup, filed under the same text every run, whatever route reached the file, so that its backups
// share one folder.
SafeWrite::Backup backupFor(const std::filesystem::path& location, const BackupSetting& backup,
                            PreSaveBackup& backedUp, Committed& done)
{
    return [database = canonicalPath(location), &backup, &backedUp, &done] {
        if (backup.backups)
            done.backup = backedUp.beforeSave(*backup.backups, database, backup.backUpBeforeSaving);
    };
}

} // namespace

Committed commit(EncodedDatabase& encoded, const std::optional<DiskStamp>& expected, const BackupSetting& backup,
                 PreSaveBackup& backedUp, bool keepBytes)
{
    Committed done;
    // What is about to replace the file must open with the credentials that will be asked for next time, and
    // hold exactly what was encoded.
    kdbx::WrittenFileCheck check(encoded.credentials, encoded.digests);
    const auto readBack = [&](kdbx::ByteView piece) {
        if (piece.empty())
            return check.finish();
        check.write(piece);
        if (keepBytes)
            done.bytes.insert(done.bytes.end(), piece.begin(), piece.end());
    };
    done.stamp = encoded.file.finish(expected, readBack, backupFor(encoded.location, backup, backedUp, done));
    return done;
}

Committed commitSealed(kdbx::ByteView bytes, const std::filesystem::path& location,
                       const std::optional<DiskStamp>& expected, const BackupSetting& backup, PreSaveBackup& backedUp)
{
    Committed done;
    done.stamp = SafeWrite::write(bytes, location, expected, {}, backupFor(location, backup, backedUp, done));
    return done;
}

} // namespace quillon::files
