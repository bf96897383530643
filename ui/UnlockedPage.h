// ui/UnlockedPage.h: what a vault window shows while its database is unlocked.
#pragma once

class QWidget;

namespace quillon::ui {

class VaultWindow;

// The browsing view with the parts that take on the window's menu commands for it; made at each unlock and
// dropped at each lock, so nothing of the database outlives the lock in a widget.
QWidget* makeUnlockedPage(VaultWindow& vault);

} // namespace quillon::ui
