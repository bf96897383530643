// ui/MenuBar.h: the main menu of one window, built from the menu table.
#pragma once

#include "ui/MenuTable.h"

#include <QHash>
#include <QObject>
#include <QStringList>

#include <functional>

class QAction;
class QMenu;
class QMenuBar;

namespace quillon::ui {

struct MenuHandlers {
    std::function<void(Command)> perform;
    // For the check marks, read each time a menu opens.
    std::function<bool(Command)> isChecked;
    // Read as a menu opens, as the items are validated: whether an item can act now, and the title it shows now
    // (empty: the table's). The keys stay live while the menu is closed; the work behind them checks for itself.
    std::function<bool(Command)> isEnabled;
    std::function<QString(Command)> titleOf;
    std::function<QStringList()> recentPaths;
    std::function<void(const QString&)> openRecent;
    std::function<void()> clearRecents;
};

class MenuBar : public QObject {
    Q_OBJECT

public:
    MenuBar(QMenuBar* bar, MenuHandlers handlers);

    QAction* action(Command command) const { return actions_.value(command); }
    QMenu* recentMenu() const noexcept { return recent_; }
    // Empties "Open Recent" and fills it from the list, as before it opens.
    void rebuildRecent();

    static inline const QString noRecent = QStringLiteral("No Recent Databases");
    static inline const QString clearMenu = QStringLiteral("Clear Menu");

private:
    MenuHandlers handlers_;
    QHash<Command, QAction*> actions_;
    QHash<QAction*, const MenuItem*> items_;
    QMenu* recent_ = nullptr;
};

} // namespace quillon::ui
