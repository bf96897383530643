// files/SafeWrite.h: the one writer of database files: whole, checked, and never over another app's change.
#pragma once

#include "files/ChangedOnDisk.h"
#include "files/DiskStamp.h"
#include "files/SaveError.h"
#include "kdbx/SecureBytes.h"

#include <filesystem>
#include <functional>
#include <optional>

namespace quillon::files {

class SafeWrite {
public:
    // Runs once the temporary file has been read back and found to hold exactly the bytes written, and is given
    // those bytes; whatever it throws stops the save.
    using Check = std::function<void(kdbx::ByteView written)>;
    // Makes the pre-save backup and reports its own failure ("Could not back up the file first"). A backup
    // never stops a save, so whatever it throws is dropped.
    using Backup = std::function<void()>;

    // Replaces target with bytes if the file there still has the stamp expected (absent: there was no file),
    // and returns the stamp of bytes. A symbolic link at target stays a link: the file it names is replaced,
    // and the replacement keeps that file's permission bits (a new file gets 0600).
    //
    // Throws ChangedOnDisk when the file changed, appeared or vanished; the check's own error when it refuses
    // the written bytes; SaveError (a std::system_error) naming the file and the failed step otherwise, including for a
    // target or folder that is read-only: without its owner's write bit (refused even for root, whom the kernel
    // would let through), not writable by this user, or on a read-only file system.
    // After any failure the target is as it was and no temporary file is left.
    static DiskStamp write(kdbx::ByteView bytes, const std::filesystem::path& target,
                           const std::optional<DiskStamp>& expected, const Check& check = {},
                           const Backup& backup = {});
};

} // namespace quillon::files
