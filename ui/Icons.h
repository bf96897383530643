// ui/Icons.h: icons from the desktop's theme, with the bundled drawings where the theme has none.
#pragma once

#include <QIcon>

namespace quillon::ui::icons {

QIcon lock();
QIcon removeKeyFile();
QIcon keyFile();
QIcon application();
// "eye" and "eye.slash": a hidden secret that can be shown, a shown one that can be hidden.
QIcon eye();
QIcon eyeSlash();
QIcon copy();

} // namespace quillon::ui::icons
