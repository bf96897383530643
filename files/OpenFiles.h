// files/OpenFiles.h: which window holds which database file, so that one file is open in one window.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <vector>

namespace quillon::files {

// The file itself rather than a name of it: device, inode and birth time of the resolved path. A save replaces
// the file and frees its inode, which ext4 hands to the next new file at once; the birth time tells that file
// from the one claimed.
struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    std::int64_t bornNanoseconds = 0; // 0 where the file system records no birth time
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
    // Takes the identity of the file now at the owner's claimed path. The holder calls it after every save it
    // makes, which puts a new file in place, so that the claim goes on finding that file under any name.
    void refresh(const Owner& owner);
    // Drops the claims of destroyed owners; every lookup and claim begins with it.
    void prune();

    const std::vector<Claim>& claims() const noexcept { return claims_; }

private:
    std::vector<Claim> claims_;
};

} // namespace quillon::files
