// ui/VaultTexts.h: every word the vault window says when saving, closing, deleting and recovering.
#pragma once

#include "files/Backups.h"
#include "model/RecycleBin.h"

#include <QString>
#include <QStringList>

#include <cstddef>

namespace quillon::ui::vaultText {

inline QString fromView(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// Saving.
inline const QString saveAsTitle = QStringLiteral("Save As");
inline const QString untitledFileName = QStringLiteral("Quillon.kdbx");
inline const QString movedSuffix = QStringLiteral(" was moved or deleted since you opened it. Save it there again?");
inline const QString changedSuffix =
    QStringLiteral(" was changed by another app since you opened it. Overwrite it with your version?");
inline const QString openElsewhereSuffix = QStringLiteral(" is open in another window. Close it there first.");
inline const QString couldNotSave = QStringLiteral("Could not save:");
inline const QString saving = QStringLiteral("Saving…");
inline const QString couldNotBackUp = fromView(files::couldNotBackUpMessage);
inline const QString noBackups = QStringLiteral("There are no backups of %1 yet. One is made before the first save of "
                                                "each session.");

// Closing.
inline const QString saveChanges = QStringLiteral("Do you want to save the changes to %1?");
inline const QString changesLost = QStringLiteral("Your changes will be lost if you don't save them.");
inline const QString lockedChanges = QStringLiteral("The database is locked, but your changes can still be saved.");

// Deleting.
inline const QString permanentlyDelete = QStringLiteral("Permanently delete \"%1\"");
inline const QString cannotBeUndone = QStringLiteral("? This can't be undone.");
inline const QString andIts = QStringLiteral(" and its ");
inline const QString moveGroup = QStringLiteral("Move \"%1\"");
// What a group holds, in words: "3 entries and 1 group"; empty for an empty group.
inline QString contents(std::size_t entries, std::size_t groups)
{
    const auto count = [](std::size_t n, const char* one, const char* many) {
        return QString::number(n) + QLatin1Char(' ') + QString::fromLatin1(n == 1 ? one : many);
    };
    QStringList parts;
    if (entries > 0)
        parts << count(entries, "entry", "entries");
    if (groups > 0)
        parts << count(groups, "group", "groups");
    return parts.join(QStringLiteral(" and "));
}
// "Permanently delete "Name"? This can't be undone.", naming what a group holds when it holds anything.
inline QString permanentlyDeleteQuestion(const QString& name, const QString& holds = {})
{
    return permanentlyDelete.arg(name) + (holds.isEmpty() ? QString() : andIts + holds) + cannotBeUndone;
}
inline const QString toBin = QStringLiteral(" to the Recycle Bin?");
inline const QString emptyBin = QStringLiteral("Empty the Recycle Bin? Its %1 will be deleted permanently.");
inline const QString emptyBinItem = QStringLiteral("Empty Recycle Bin…");
inline const QString topGroupRefusal = fromView(model::topGroupRefusal);
inline const QString holdsBinRefusal = fromView(model::holdsBinRefusal);
inline const QString alreadyEmpty = fromView(model::alreadyEmptyRefusal);
inline const QString movedToBin = fromView(model::movedToBinStatus);
inline const QString restored = fromView(model::restoredStatus);

// What a killed save left behind.
inline const QString recoverQuestion =
    QStringLiteral("Quillon found changes that were not saved when it last stopped, from %1. Recover them?");
inline const QString leftoverUnreadable =
    QStringLiteral("Quillon found changes that were not saved when it last stopped, but could not open them.");
inline const QString leftoverKept = QStringLiteral("They are in %1, beside the database, which was left as it is.");

} // namespace quillon::ui::vaultText
