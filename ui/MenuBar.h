// ui/MenuBar.h: the main menu of one window, built from the menu table.
#pragma once

#include "ui/MenuTable.h"

#include <QHash>
#include <QObject>
#include <QStringList>

#include <functional>
#include <vector>

class QAction;
class QMenu;
class QMenuBar;

namespace quillon::ui {

// A vault window as the Window menu lists it.
struct WindowItem {
    QString title;
    bool front = false;
};

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
    // Every vault window, listed at the foot of the Window menu as it opens; choosing one brings it forward.
    std::function<std::vector<WindowItem>()> windowList;
    std::function<void(std::size_t)> showWindow;
};

class MenuBar : public QObject {
    Q_OBJECT

public:
    MenuBar(QMenuBar* bar, MenuHandlers handlers);

    QAction* action(Command command) const { return actions_.value(command); }
    QMenu* recentMenu() const noexcept { return recent_; }
    // Empties "Open Recent" and fills it from the list, as before it opens.
    void rebuildRecent();
    void rebuildWindowList(QMenu* menu);

    static inline const QString noRecent = QStringLiteral("No Recent Databases");
    static inline const QString clearMenu = QStringLiteral("Clear Menu");

private:
    MenuHandlers handlers_;
    QHash<Command, QAction*> actions_;
    QHash<QAction*, const MenuItem*> items_;
    QMenu* recent_ = nullptr;
    QList<QAction*> windowItems_;
};

} // namespace quillon::ui
