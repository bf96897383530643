// files/DatabaseFile.h: a database opened from a path and saved back to it, for every caller without windows.
#pragma once

#include "files/Backups.h"
#include "files/DiskStamp.h"
#include "files/PreSaveBackup.h"
#include "files/SafeWrite.h"
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

// A save encoded and not yet in place: the whole file, already written to a temporary file beside its target
// (never held in memory), the digests of the payload it carries and a copy of the credentials it must open with.
// It refers to nothing of the DatabaseFile or its document, so it can be handed to another thread. Dropped
// without commit(), it removes its temporary file.
struct EncodedDatabase {
    std::filesystem::path location;
    SafeWrite file;
    kdbx::PayloadDigests digests;
    kdbx::Credentials credentials;
};

// What a commit did: the stamp of the file now on disk, and what became of the backup.
struct Committed {
    DiskStamp stamp;
    PreSaveBackup::Outcome backup = PreSaveBackup::Outcome::skipped;
    // The file as read back and proven, when commit() was asked to keep it (encrypted: nothing secret).
    std::vector<std::uint8_t> bytes;
};

// Puts an encoded database in place at its location through SafeWrite, if the file there still has the stamp
// expected: the temporary file is synced, read back and proven to decrypt, with the credentials, to exactly the
// payload that was encoded (a stream of a few hundred KiB, no second document), then come the pre-save backup,
// the last comparison and the replacement. With keepBytes, the file read back is returned too. Throws as
// DatabaseFile::save does; any failure leaves the file on disk as it was and removes the temporary file.
//
// Thread safety: touches no DatabaseFile and no document, so it may run on a worker while the caller's thread
// goes on (even editing: the encoded snapshot is what gets written). While it runs, encoded, backup.backups and
// backedUp belong to it: one commit at a time per PreSaveBackup, and nothing else uses them meanwhile.
Committed commit(EncodedDatabase& encoded, const std::optional<DiskStamp>& expected, const BackupSetting& backup,
                 PreSaveBackup& backedUp, bool keepBytes = false);

// Writes bytes encoded and sealed earlier, whose credentials are no longer held (a locked window's unsaved
// changes): the same writer, backup and last comparison as commit(). The decryption check is left out; the writer
// still reads the temporary file back and finds exactly these bytes, which decode as the window's unlock would.
Committed commitSealed(kdbx::ByteView bytes, const std::filesystem::path& location,
                       const std::optional<DiskStamp>& expected, const BackupSetting& backup, PreSaveBackup& backedUp);

// One open database: where it lives, its decoded content and the stamp of the file as last read or written.
//
//     auto db = DatabaseFile::open(path, credentials);          // read, stamp, decode
//     ... edit db.file().document ...
//     auto outcome = db.save(credentials, {&backups, setting}); // encode, check, back up, replace
//
// save() encodes with fresh seeds, writes a temporary file beside the target, proves that file decrypts with the
// same credentials to what was encoded, backs the old file up before the first save of this object's life (one
// attempt per file), and replaces the file only if it still has the stamp expected; the file's permission bits
// are kept. Every failure leaves the file on disk, this object's location and stamp, and the document as they
// were, so a later save compares with the same expectation.
//
// Errors: std::system_error (reading; SaveError for writing, naming the file and the step), kdbx::KdbxError and
// kdbx::DecompressionError (decoding, or a written file that does not read back), ChangedOnDisk (another program
// changed, created or removed the file).
//
// A window saves in two steps, so that it never freezes on a large database:
//
//     auto encoded = db.encode(location, credentials);        // caller's thread: a snapshot of the document
//     // on a worker: encoded, db.stamp() and db.preSaveBackup() moved, copied or lent to it
//     Committed done = commit(encoded, expected, setting, backedUp);
//     // back on the caller's thread, after success only:
//     db.adopt(location, done.stamp);
//     openFiles.refresh(owner);                               // the file at location is a new one
//
// A DatabaseFile and its document belong to one thread at a time. commit() needs neither. encode() deflates on
// every core and takes seconds on a large database (7 s for 50,000 entries on two busy cores): a window may run
// it on a worker too, provided nothing touches this object (document, headers) until it returns.
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

    // The first half of a save: draws fresh seeds into the header and encodes the document, which it only reads
    // (nothing may change it meanwhile), into a temporary file beside location as it goes. Throws
    // kdbx::KdbxError for a document no reader would open (before any file is touched), and SaveError as
    // SafeWrite::begin and append do.
    EncodedDatabase encode(const std::filesystem::path& location, const kdbx::Credentials& credentials);
    // After a commit succeeded: this object lives at location, and expects the file there to have stamp.
    void adopt(const std::filesystem::path& location, const DiskStamp& stamp);
    // The backups made in this object's life (one per file); lent to commit().
    PreSaveBackup& preSaveBackup() noexcept { return backedUp_; }

private:
    std::filesystem::path location_;
    std::unique_ptr<kdbx::KdbxFile> file_;
    std::optional<DiskStamp> stamp_;
    PreSaveBackup backedUp_;
};

} // namespace quillon::files
