// The recovery half of DatabaseSession: a newer version that a killed save left beside the file, offered after
// an unlock from the file.
#include "state/DatabaseSession.h"

#include "files/LeftoverSave.h"

namespace quillon::state {

struct DatabaseSession::LeftoverResult {
    std::unique_ptr<kdbx::KdbxFile> file;
    std::chrono::system_clock::time_point modified;
};

void DatabaseSession::lookForLeftover()
{
    if (!location_ || !credentials_ || isDecoy_)
        return;
    const auto found = files::findLeftoverSave(*location_);
    if (!found)
        return;
    const auto token = unlockToken_;
    auto credentials = std::make_shared<kdbx::Credentials>(credentials_->copy());
    std::weak_ptr<QObject> receiver = receiver_;
    services_.runInBackground([this, receiver, token, credentials, found = *found] {
        auto result = std::make_shared<LeftoverResult>();
        result->modified = found.modified;
        try {
            result->file = kdbx::KdbxFile::open(files::readDiskBytes(found.path).bytes, *credentials);
        } catch (const std::exception &) {
            // Cut short by the kill, or not ours to open: the user is told its name, and it stays.
        }
        postBack(receiver,
                 [this, token, path = found.path, result] { finishLeftover(token, path, std::move(*result)); });
    });
}

void DatabaseSession::finishLeftover(std::uint64_t token, const std::filesystem::path &path, LeftoverResult result)
{
    // Locked or reopened since, or saved since (the file is newer now): the offer no longer applies.
    if (token != unlockToken_ || !document_ || isLocked() || !location_)
        return;
    const auto still = files::findLeftoverSave(*location_);
    if (!still || still->path != path)
        return;
    if (!result.file) {
        Q_EMIT leftoverUnreadable(QString::fromStdString(path.filename().string()));
        return;
    }
    leftover_ = std::move(result.file);
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(result.modified.time_since_epoch());
    Q_EMIT leftoverFound(QDateTime::fromMSecsSinceEpoch(ms.count()));
}

bool DatabaseSession::recoverLeftover()
{
    if (!leftover_ || !document_ || !credentials_ || !location_)
        return false;
    // The stamp stays that of the database file, which is untouched: the next save compares with it.
    auto kept = stamp();
    auto credentials = std::move(*credentials_);
    auto database = std::make_unique<files::DatabaseFile>(*location_, std::move(leftover_), std::move(kept));
    attach(std::move(database), std::move(credentials));
    undo_.clear();
    undo_.markUnsaved();
    dirtyMaybeChanged();
    Q_EMIT undoStateChanged();
    return true;
}

void DatabaseSession::dropLeftover()
{
    leftover_.reset();
}

} // namespace quillon::state
