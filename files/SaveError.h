// files/SaveError.h: why the writer could not save, with the failed step, the file and the system's cause apart.
#pragma once

#include <cstdint>
#include <string>
#include <system_error>

namespace quillon::files {

// what() is the whole sentence quillon-cli prints: "Could not save the read-only file db.kdbx: Permission
// denied". cause() is the same failure without the leading "Could not …", for a window whose alert already
// begins "Could not save:": "db.kdbx is read-only (Permission denied)". Both carry the file's name, fixed words
// and the system's message, never content, so they can be shown and logged.
class SaveError final : public std::system_error {
public:
    enum class Step : std::uint8_t {
        save,                   // the target is not a file, or the final rename failed
        find,                   // resolving the target's links
        findFolder,             // resolving the folder of a new file
        readOnlyFile,
        readOnlyFolder,
        checkPermissions,       // the kernel's write check failed for another reason
        checkFolderPermissions,
        read,                   // the file in place could not be looked at or stamped
        createTemporary,
        writeTemporary,
        readBackTemporary,
        setPermissions,         // of the temporary file
        putBack,                // another app's file, swapped out, could not be swapped back
    };

    // name: the last path component of the file the step concerns (the temporary file's for its steps).
    SaveError(Step step, std::string name, int error);

    Step step() const noexcept { return step_; }
    const std::string& name() const noexcept { return name_; }
    std::string cause() const;

private:
    Step step_;
    std::string name_;
};

} // namespace quillon::files
