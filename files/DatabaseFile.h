// files/DatabaseFile.h: a database opened from a path and saved back to it, for every caller without windows.
#pragma once

#include "files/Backups.h"
#include "files/DiskStamp.h"
#include "files/PreSaveBackup.h"
#include "kdbx/CompositeKey.h"
#include "kdbx/KdbxFile.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace quillon::files {

// A file's bytes and the stamp of exactly those bytes, taken from one read, so the stamp never describes a
// version other than the one decoded.
struct DiskBytes {
    std::vector<std::uint8_t> bytes; // still encrypted: nothing secret
    DiskStamp stamp;
};

// Throws std::system_error naming the file ("Could not read db.kdbx: No such file or directory"); a folder or a
// special file is refused, not read.
DiskBytes readDiskBytes(const std::filesystem::path& location);

// Where backups go and whether the user wants them (the preference is read by the caller). A database's backups
// are filed under its canonical path, whatever route reached it: backupFolder(canonicalPath(location)).
struct BackupSetting {
    const Backups* backups = nullptr; // none: no backups at all
    bool backUpBeforeSaving = true;
};

// One open database: where it lives, its decoded content and the stamp of the file as last read or written.
//
//     auto db = DatabaseFile::open(path, credentials);          // read, stamp, decode
//     ... edit db.file().document ...
//     auto outcome = db.save(credentials, {&backups, setting}); // encode, check, back up, replace
//
// save() encodes with fresh seeds, writes a temporary file beside the target, proves that file decrypts with the
// same credentials to what was encoded, backs the old file up before the first save of this object's life (one attempt per file),
// and replaces the file only if it still has the stamp expected; the file's permission bits are kept. Every
// failure leaves the file on disk, this object's location and stamp, and the document as they were, so a later
// save compares with the same expectation.
//
// Errors: std::system_error (reading; SaveError for writing, naming the file and the step), kdbx::KdbxError and
// kdbx::DecompressionError (decoding, or a written file that does not read back), ChangedOnDisk (another program changed, created or removed the file).
class DatabaseFile {
public:
    // Reads and decodes the file at location.
    static DatabaseFile open(const std::filesystem::path& location, const kdbx::Credentials& credentials);
    // Decodes bytes read earlier (a window reads at once and decodes after the user unlocks).
    static DatabaseFile decode(const std::filesystem::path& location, const DiskBytes& read,
                               const kdbx::Credentials& credentials);
    // For a caller that will not try again: the bytes are let go once decrypted (read.bytes ends empty).
    static DatabaseFile decode(const std::filesystem::path& location, DiskBytes&& read,
                               const kdbx::Credentials& credentials);
    // A database that has no file yet, or whose stamp the caller keeps; with no stamp, the first save refuses to
    // write over a file that exists at its location.
    DatabaseFile(std::filesystem::path location, std::unique_ptr<kdbx::KdbxFile> file,
                 std::optional<DiskStamp> stamp);

    const std::filesystem::path& location() const noexcept { return location_; }
    kdbx::KdbxFile& file() noexcept { return *file_; }
    const kdbx::KdbxFile& file() const noexcept { return *file_; }
    // Absent: there was no file at location when it was last looked at.
    const std::optional<DiskStamp>& stamp() const noexcept { return stamp_; }

    // Saves in place, expecting the file to hold what it held when last read or written. Returns what became
    // of the backup; on PreSaveBackup::Outcome::failed the caller shows couldNotBackUpMessage.
    PreSaveBackup::Outcome save(const kdbx::Credentials& credentials, const BackupSetting& backup);
    // Saves to location expecting the stamp given: after the user agreed to overwrite a changed file (the
    // stamp it has now), or for Save As. On success this object lives at location.
    PreSaveBackup::Outcome saveTo(const std::filesystem::path& location, const std::optional<DiskStamp>& expected,
                                  const kdbx::Credentials& credentials, const BackupSetting& backup);

private:
    std::filesystem::path location_;
    std::unique_ptr<kdbx::KdbxFile> file_;
    std::optional<DiskStamp> stamp_;
    PreSaveBackup backedUp_;
};

} // namespace quillon::files
