#include "files/PreSaveBackup.h"

#include "files/Posix.h"

#include <sys/stat.h>

namespace quillon::files {

PreSaveBackup::Outcome PreSaveBackup::beforeSave(const Backups& backups, const std::filesystem::path& database,
                                                 bool backUpBeforeSaving)
{
    if (!backUpBeforeSaving || backedUp_.contains(database.native()))
        return Outcome::skipped;
    struct ::stat info {};
    if (posix::stat(database, info) != 0)
        return Outcome::skipped; // a first save: nothing to keep yet
    backedUp_.insert(database.native());
    return backups.makeBackup(database) ? Outcome::made : Outcome::failed;
}

} // namespace quillon::files
