// files/OpenFiles.h: which window holds which database file, so that one file is open in one window.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace quillon::files {

// The file itself rather than a name of it: device and inode of the resolved path.
struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const FileId&) const = default;
};

// A window keeps a std::shared_ptr token for as long as it lives; the registry only watches it, so a window
// destroyed without releasing its file frees it all the same.
using Owner = std::shared_ptr<void>;

struct Claim {
    std::weak_ptr<void> owner;
    std::filesystem::path path;      // canonical path
    std::optional<FileId> identity;  // absent when the file did not exist when claimed
};

// Main thread only.
class OpenFiles {
public:
    struct Identity {
        std::filesystem::path path;
        std::optional<FileId> identity;
    };

    // Never fails: a file that cannot be looked at has no identity, and is then matched by its path alone.
    static Identity identity(const std::filesystem::path& location);

    // The live owner of the first claim on the file at location, leaving out except (a window looking up its
    // own file); nothing when the file is free. Matched by identity first, so a file renamed while open or
    // reached through any link is found, then by path, so a file that a save replaced (new inode) is found.
    Owner owner(const std::filesystem::path& location, const Owner& except = {});
    // A window holds one file at a time: its earlier claim (before a Save As) is dropped.
    void claim(const std::filesystem::path& location, const Owner& owner);
    void release(const Owner& owner);
    // Drops the claims of destroyed owners; every lookup and claim begins with it.
    void prune();

    const std::vector<Claim>& claims() const noexcept { return claims_; }

private:
    std::vector<Claim> claims_;
};

} // namespace quillon::files
