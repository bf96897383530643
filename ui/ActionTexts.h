// ui/ActionTexts.h: every word the vault window's toolbar, entry commands and drops show, in one place.
#pragma once

#include <QString>
#include <QStringList>

#include <cstddef>

namespace quillon::ui::actionText {

inline const QString newEntry = QStringLiteral("New Entry");
inline const QString newGroup = QStringLiteral("New Group");
inline const QString lock = QStringLiteral("Lock");
inline const QString lockTip = QStringLiteral("Lock the database");
inline const QString toolbar = QStringLiteral("Toolbar");
inline const QString passwordCopied = QStringLiteral("Password copied");
inline const QString usernameCopied = QStringLiteral("Username copied");

// "Permanently delete "Name"? This can't be undone.", with " and its " and the contents for a group that holds
// anything: "2 entries and 1 group".
inline QString permanentlyDelete(const QString& name, const QString& contents = {})
{
    QString text = QStringLiteral("Permanently delete \"") + name + QLatin1Char('"');
    if (!contents.isEmpty())
        text += QStringLiteral(" and its ") + contents;
    return text + QStringLiteral("? This can't be undone.");
}

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

} // namespace quillon::ui::actionText
