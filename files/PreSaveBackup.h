// files/PreSaveBackup.h: a window's backup before saving: one attempt per file per run.
#pragma once

#include "files/Backups.h"

#include <cstdint>
#include <filesystem>
#include <set>
#include <string>

namespace quillon::files {

class PreSaveBackup {
public:
    enum class Outcome : std::uint8_t { skipped, made, failed };

    // The SafeWrite backup hook of a window calls this; on failed it shows couldNotBackUpMessage. A path is
    // recorded before the attempt, so a failed backup is not retried in this run (deliberately).
    Outcome beforeSave(const Backups& backups, const std::filesystem::path& database, bool backUpBeforeSaving);

private:
    std::set<std::string> backedUp_;
};

} // namespace quillon::files
