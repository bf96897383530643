// files/LeftoverSave.h: the temporary file a save left beside its database when the program stopped mid-save.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string_view>

namespace quillon::files {

// The writer's own temporary name for a file named target: "." + target + "." + upper-case UUID + ".tmp".
// Another program's temporary files (other names) never match.
bool isTemporaryNameFor(std::string_view candidate, std::string_view target);

struct LeftoverSave {
    std::filesystem::path path;
    std::chrono::system_clock::time_point modified;
};

// The newest of the writer's temporary files beside the database (beside the file its links lead to, where the
// writer puts them) that is newer than the database itself; none when there is none or the folder cannot be
// read. A killed save leaves the newest version only there. Nothing is opened or removed.
std::optional<LeftoverSave> findLeftoverSave(const std::filesystem::path& database);

} // namespace quillon::files
