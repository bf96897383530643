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
inline const QString databaseTabs = QStringLiteral("Open databases");
inline const QString passwordCopied = QStringLiteral("Password copied");
inline const QString usernameCopied = QStringLiteral("Username copied");

} // namespace quillon::ui::actionText
