// ui/OpenUrl.h: which address "Open URL" hands to the system, if any.
#pragma once

#include <QString>
#include <QUrl>

#include <optional>

namespace quillon::ui {

// The entry's URL field, trimmed; "https://" put in front when it names no scheme. Only http and https are
// opened: anything else (file:, javascript:, ftp:, an address that does not parse) gives none.
std::optional<QUrl> urlToOpen(const QString& field);

} // namespace quillon::ui
