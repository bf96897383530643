// files/SafeWrite.h: the one writer of database files: whole, checked, and never over another app's change.
#pragma once

#include "files/ChangedOnDisk.h"
#include "files/DiskStamp.h"
#include "files/SaveError.h"
#include "kdbx/SecureBytes.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

namespace quillon::files {

// A save in two steps, so that a large file goes to disk as it is produced and is never held whole:
//
//     auto write = SafeWrite::begin(target);      // checks the target and its folder, creates the temporary file
//     write.append(piece); ...                    // as the encoder produces them
//     DiskStamp stamp = write.finish(expected, check, backup);
//
// Leaving without finish() (an exception, or abandon()) removes the temporary file; the target is never touched
// before finish() replaces it. One thread at a time; the object may move to another thread between steps.
class SafeWrite {
public:
    // Is handed the temporary file as read back from disk after fsync, in pieces in order, then an empty piece
    // once the end is reached; whatever it throws stops the save. The writer itself proves that the file holds
    // exactly the bytes appended (size and SHA-256) before the save goes on.
    using Check = std::function<void(kdbx::ByteView piece)>;
    // Makes the pre-save backup and reports its own failure ("Could not back up the file first"). A backup
    // never stops a save, so whatever it throws is dropped.
    using Backup = std::function<void()>;

    // Resolves target (a symbolic link stays a link: the file it names is replaced, keeping its permission bits;
    // a new file gets 0600), refuses what could not be replaced, and creates a temporary file beside it.
    // Throws SaveError (a std::system_error) naming the file and the failed step, including for a target or
    // folder that is read-only: without its owner's write bit (refused even for root, whom the kernel would let
    // through), not writable by this user, or on a read-only file system.
    static SafeWrite begin(const std::filesystem::path& target);
    // Appends to the temporary file. Throws SaveError (a full disk, say); the temporary file is removed when
    // this object goes.
    void append(kdbx::ByteView bytes);
    // Syncs the temporary file, reads it back through check, makes the backup, and replaces target with it if
    // the file there still has the stamp expected (absent: there was no file). Returns the stamp of what was
    // appended. Throws ChangedOnDisk when the file changed, appeared or vanished; the check's own error when it
    // refuses the written bytes; SaveError otherwise. After any failure the target is as it was and no temporary
    // file is left. Called once.
    DiskStamp finish(const std::optional<DiskStamp>& expected, const Check& check = {}, const Backup& backup = {});
    // Removes the temporary file now (also done when this object goes without finish()).
    void abandon() noexcept;

    // The whole save of bytes already in memory: begin, append, finish.
    static DiskStamp write(kdbx::ByteView bytes, const std::filesystem::path& target,
                           const std::optional<DiskStamp>& expected, const Check& check = {},
                           const Backup& backup = {});

    SafeWrite(SafeWrite&&) noexcept;
    SafeWrite& operator=(SafeWrite&&) noexcept;
    ~SafeWrite();

private:
    struct State;
    explicit SafeWrite(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

} // namespace quillon::files
