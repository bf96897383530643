#include "ui/SaveFlow.h"

#include "files/CanonicalPath.h"
#include "ui/Asker.h"
#include "ui/Paths.h"
#include "ui/VaultTexts.h"

#include <QDateTime>
#include <QDesktopServices>
#include <QLocale>
#include <QRegularExpression>

#include <system_error>

namespace quillon::ui {
namespace {

QString nameOf(const std::filesystem::path& path)
{
    return QString::fromStdString(path.filename().string());
}

void finish(const SaveFlow::Done& done, bool ok)
{
    if (done)
        done(ok);
}

} // namespace

SaveFlow::SaveFlow(state::DatabaseSession& session, Asker& asker, files::OpenFiles* openFiles,
                   const files::Backups* backups, Window window, QObject* parent)
    : QObject(parent), session_(session), asker_(asker), openFiles_(openFiles), backups_(backups),
      window_(std::move(window))
{
    if (!window_.openFolder)
        window_.openFolder = [](const QUrl& url) { QDesktopServices::openUrl(url); };
    connect(&session_, &state::DatabaseSession::saved, this, &SaveFlow::saved);
    connect(&session_, &state::DatabaseSession::saveFailed, this, &SaveFlow::saveFailed);
    connect(&session_, &state::DatabaseSession::leftoverFound, this, [this](const QDateTime& modified) {
        if (asker_.confirm(window_.parent(), vaultText::recoverQuestion.arg(dateAndTime(modified))))
            session_.recoverLeftover();
        else
            session_.dropLeftover();
    });
    connect(&session_, &state::DatabaseSession::leftoverUnreadable, this, [this](const QString& name) {
        asker_.warn(window_.parent(), vaultText::leftoverUnreadable, vaultText::leftoverKept.arg(name));
    });
}

QString SaveFlow::dateAndTime(const QDateTime& when)
{
    const QLocale locale;
    // The long format names the weekday and spells the month out; the medium one does neither.
    QString format = locale.dateFormat(QLocale::LongFormat);
    format.remove(QRegularExpression(QStringLiteral("d{4}[,.]?\\s*")));
    format.replace(QStringLiteral("MMMM"), QStringLiteral("MMM"));
    const QDateTime local = when.toLocalTime();
    // Some locales' short time still carries the seconds.
    QString time = locale.timeFormat(QLocale::ShortFormat);
    time.remove(QRegularExpression(QStringLiteral("[:.]ss?")));
    return locale.toString(local.date(), format.trimmed()) + QStringLiteral(", ") + locale.toString(local.time(), time);
}

DiskCheck SaveFlow::checkDisk(const std::filesystem::path& location, const std::optional<files::DiskStamp>& recorded,
                              bool afterConflict)
{
    if (!recorded && !afterConflict)
        return {false, recorded};
    std::error_code error;
    const auto current = files::DiskStamp::ofFile(location, error);
    QString question;
    if (!current) {
        // Unreadable for another reason: the writer says why.
        if (!recorded || error != std::errc::no_such_file_or_directory)
            return {false, recorded};
        question = nameOf(location) + vaultText::movedSuffix;
    } else if (recorded && *current == *recorded) {
        return {false, current};
    } else {
        question = nameOf(location) + vaultText::changedSuffix;
    }
    if (!asker_.confirm(window_.parent(), question)) {
        // Neither version need be lost: the other one can be merged into this one, then saved.
        if (current)
            window_.showSubtitle(QStringLiteral("Not saved. Merge Changes From Disk… keeps both versions’ changes."));
        return {true, std::nullopt};
    }
    return {false, current};
}

void SaveFlow::save(Done done)
{
    window_.commitEditing();
    if (session_.isSaving()) {
        waiting_.push_back([this, done] { save(done); });
        return;
    }
    if (!session_.canSave())
        return finish(done, false);
    if (!session_.location())
        return saveAs(std::move(done));
    const auto location = *session_.location();
    const auto check = checkDisk(location, session_.stamp(), false);
    if (check.cancel)
        return finish(done, false);
    start(location, check.stamp, std::move(done));
}

void SaveFlow::saveAs(Done done, const QString& suggested)
{
    window_.commitEditing();
    if (session_.isSaving()) {
        waiting_.push_back([this, done, suggested] { saveAs(done, suggested); });
        return;
    }
    if (!session_.canSave())
        return finish(done, false);
    QString suggestion = suggested;
    if (suggestion.isEmpty())
        suggestion = session_.location() ? fromPath(*session_.location()) : vaultText::untitledFileName;
    const auto chosen = asker_.chooseSaveFile(window_.parent(), vaultText::saveAsTitle, suggestion, kdbxOnlyFilter);
    if (!chosen)
        return finish(done, false);
    const auto target = toPath(*chosen);
    if (openFiles_ && openFiles_->owner(target, session_.owner())) {
        asker_.warn(window_.parent(), nameOf(target) + vaultText::openElsewhereSuffix);
        return finish(done, false);
    }
    if (session_.location() && files::canonicalPath(*session_.location()) == files::canonicalPath(target)) {
        // Its own file: as a Save, asking if another program changed it.
        const auto check = checkDisk(target, session_.stamp(), false);
        if (check.cancel)
            return finish(done, false);
        return start(target, check.stamp, std::move(done));
    }
    // The save panel has already asked about replacing a file there.
    start(target, files::DiskStamp::ofFile(target), std::move(done));
}

void SaveFlow::start(const std::filesystem::path& location, const std::optional<files::DiskStamp>& expected, Done done)
{
    if (!session_.saveInBackground(location, expected))
        return finish(done, false);
    running_ = Running{location, expected, std::move(done)};
    window_.setStatus(vaultText::saving);
}

void SaveFlow::saved(files::PreSaveBackup::Outcome backup)
{
    window_.setStatus({});
    if (backup == files::PreSaveBackup::Outcome::failed)
        window_.showSubtitle(vaultText::couldNotBackUp);
    window_.saved();
    const auto running = std::exchange(running_, std::nullopt);
    if (running)
        finish(running->done, true);
    afterSave();
}

void SaveFlow::saveFailed(const QString& cause, bool changedOnDisk)
{
    window_.setStatus({});
    auto running = std::exchange(running_, std::nullopt);
    if (!running)
        return afterSave();
    if (changedOnDisk) {
        // Another program wrote the file while this save was under way: ask again about what is there now.
        const auto check = checkDisk(running->location, running->expected, true);
        if (check.cancel) {
            finish(running->done, false);
            return afterSave();
        }
        return start(running->location, check.stamp, std::move(running->done));
    }
    asker_.warn(window_.parent(), vaultText::couldNotSave + QLatin1Char(' ') + cause);
    finish(running->done, false);
    afterSave();
}

void SaveFlow::afterSave()
{
    auto waiting = std::exchange(waiting_, {});
    for (auto& run : waiting)
        run();
}

void SaveFlow::askToClose(Done done)
{
    window_.commitEditing();
    if (session_.isSaving()) {
        waiting_.push_back([this, done] { askToClose(done); });
        return;
    }
    if (!session_.isDirty())
        return finish(done, true);
    const QString note =
        session_.isLocked() && session_.hasLockedSnapshot() ? vaultText::lockedChanges : vaultText::changesLost;
    switch (asker_.askToSave(window_.parent(), vaultText::saveChanges.arg(session_.displayName()), note)) {
    case SaveAnswer::save:
        return save(std::move(done));
    case SaveAnswer::dontSave:
        return finish(done, true);
    case SaveAnswer::cancel:
        return finish(done, false);
    }
}

void SaveFlow::showBackups()
{
    const auto& location = session_.location();
    if (!location || !backups_)
        return;
    const auto folder = backups_->backupFolder(files::canonicalPath(*location));
    std::error_code error;
    if (std::filesystem::is_directory(folder, error)) {
        window_.openFolder(QUrl::fromLocalFile(fromPath(folder)));
        return;
    }
    asker_.warn(window_.parent(), vaultText::noBackups.arg(nameOf(*location)));
}

} // namespace quillon::ui
