// ui/Icons.h: icons from the desktop's theme, with the bundled drawings where the theme has none.
#pragma once

#include <QIcon>

namespace quillon::ui::icons {

QIcon lock();
QIcon newEntry();
QIcon newGroup();
QIcon removeKeyFile();
QIcon keyFile();
QIcon application();

} // namespace quillon::ui::icons
