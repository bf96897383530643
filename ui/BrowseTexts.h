// ui/BrowseTexts.h: every word the browsing view shows, in one place.
#pragma once

#include <QString>

namespace quillon::ui::browseText {

inline const QString titleColumn = QStringLiteral("Title");
inline const QString usernameColumn = QStringLiteral("Username");
inline const QString passwordColumn = QStringLiteral("Password");
inline const QString modifiedColumn = QStringLiteral("Modified");
inline const QString groupsName = QStringLiteral("Groups");
inline const QString entriesName = QStringLiteral("Entries");
inline const QString searchName = QStringLiteral("Search");
inline const QString findAction = QStringLiteral("Find");

} // namespace quillon::ui::browseText
