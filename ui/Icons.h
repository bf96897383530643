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
// "eye": the secret is hidden and the button shows it; "eye.slash": it shows and the button hides it.
QIcon eye();
QIcon eyeSlash();
QIcon copy();
QIcon openUrl();
QIcon history();
QIcon add();
QIcon remove();

} // namespace quillon::ui::icons
