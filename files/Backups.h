// files/Backups.h: copies of a database as it was before its first save in a run; the newest five are kept.
#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string_view>
#include <vector>

namespace quillon::files {

// Shown by the window when the pre-save backup fails; the save goes on.
inline constexpr std::string_view couldNotBackUpMessage = "Could not back up the file first";

class Backups {
public:
    using Clock = std::function<std::chrono::system_clock::time_point()>;
    static constexpr std::size_t kept = 5;

    // root: the data folder + "Quillon/Backups" (on Linux ~/.local/share/Quillon/Backups).
    explicit Backups(std::filesystem::path root, Clock now = &std::chrono::system_clock::now);

    const std::filesystem::path& root() const noexcept { return root_; }

    // root / (name without extension + "-" + 8 hex digits of SHA-256 of the path text as given). Callers pass
    // the same text each run (the canonical path) so a database keeps its folder.
    std::filesystem::path backupFolder(const std::filesystem::path& database) const;
    // The ".kdbx" files of the database's folder, oldest first (name order is time order).
    std::vector<std::filesystem::path> listBackups(const std::filesystem::path& database) const;
    // Copies the file to "<name> yyyy-MM-dd HH.mm.ss.SSS.kdbx" (local time), private to the user, then keeps
    // the newest five. False when no copy could be made; pruning errors are ignored.
    bool makeBackup(const std::filesystem::path& database) const;
    // Removes the database's backup folder; errors are ignored.
    void clearBackups(const std::filesystem::path& database) const;

private:
    std::filesystem::path root_;
    Clock now_;
};

} // namespace quillon::files
