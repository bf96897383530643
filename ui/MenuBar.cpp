#include "ui/MenuBar.h"

#include <QAction>
#include <QApplication>
#include <QFileInfo>
#include <QMenu>
#include <QMenuBar>

namespace quillon::ui {
namespace {

QList<QKeySequence> keysOf(const MenuItem& item)
{
    QList<QKeySequence> keys;
    if (*item.key)
        keys << QKeySequence::fromString(QString::fromUtf8(item.key), QKeySequence::PortableText);
    if (item.standardKey != QKeySequence::UnknownKey)
        for (const auto& key : QKeySequence::keyBindings(item.standardKey))
            if (!keys.contains(key))
                keys << key;
    return keys;
}

QAction::MenuRole roleOf(Command command)
{
    return command == Command::terminate ? QAction::QuitRole : QAction::NoRole;
}

} // namespace

MenuBar::MenuBar(QMenuBar* bar, MenuHandlers handlers) : QObject(bar), handlers_(std::move(handlers))
{
    QString name = QApplication::applicationName();
    if (name.isEmpty())
        name = QStringLiteral("Quillon");
    QHash<QString, QMenu*> menus;
    for (const MenuItem& item : menuTable()) {
        const QString menuTitle = *item.menu ? QString::fromUtf8(item.menu) : name;
        QMenu*& menu = menus[menuTitle];
        if (!menu) {
            menu = bar->addMenu(menuTitle);
            connect(menu, &QMenu::aboutToShow, this, [this, menu] {
                for (QAction* action : menu->actions()) {
                    const auto found = items_.constFind(action);
                    if (found == items_.constEnd())
                        continue;
                    const MenuItem& shown = *found.value();
                    if (action->isCheckable() && handlers_.isChecked)
                        action->setChecked(handlers_.isChecked(shown.command));
                    if (shown.available && handlers_.isEnabled)
                        action->setEnabled(handlers_.isEnabled(shown.command));
                    const QString now = handlers_.titleOf ? handlers_.titleOf(shown.command) : QString();
                    action->setText(now.isEmpty() ? action->property("tableTitle").toString() : now);
                }
            });
            connect(menu, &QMenu::aboutToHide, this, [this, menu] {
                for (QAction* action : menu->actions())
                    if (const auto found = items_.constFind(action); found != items_.constEnd())
                        action->setEnabled(found.value()->available);
            });
        }
        const QString title = QString::fromUtf8(item.title).replace(QStringLiteral("%1"), name);
        if (item.command == Command::openRecent) {
            recent_ = menu->addMenu(title);
            actions_.insert(item.command, recent_->menuAction());
            connect(recent_, &QMenu::aboutToShow, this, &MenuBar::rebuildRecent);
            rebuildRecent();
        } else {
            QAction* action = menu->addAction(title);
            action->setShortcuts(keysOf(item));
            action->setCheckable(item.checkable);
            action->setEnabled(item.available);
            action->setMenuRole(roleOf(item.command));
            action->setObjectName(QString::fromLatin1(commandName(item.command)));
            action->setProperty("tableTitle", title);
            items_.insert(action, &item);
            const Command command = item.command;
            connect(action, &QAction::triggered, this, [this, command] {
                if (handlers_.perform)
                    handlers_.perform(command);
            });
            actions_.insert(item.command, action);
        }
        if (item.separatorAfter)
            menu->addSeparator();
    }
    if (QMenu* window = menus.value(QStringLiteral("Window")))
        connect(window, &QMenu::aboutToShow, this, [this, window] { rebuildWindowList(window); });
}

void MenuBar::rebuildWindowList(QMenu* menu)
{
    for (QAction* action : std::as_const(windowItems_)) {
        menu->removeAction(action);
        action->deleteLater();
    }
    windowItems_.clear();
    const std::vector<WindowItem> items = handlers_.windowList ? handlers_.windowList() : std::vector<WindowItem>();
    if (items.empty())
        return;
    windowItems_ << menu->addSeparator();
    for (std::size_t i = 0; i < items.size(); ++i) {
        QAction* action = menu->addAction(items[i].title);
        action->setCheckable(true);
        action->setChecked(items[i].front);
        connect(action, &QAction::triggered, this, [this, i] {
            if (handlers_.showWindow)
                handlers_.showWindow(i);
        });
        windowItems_ << action;
    }
}

void MenuBar::rebuildRecent()
{
    recent_->clear();
    const QStringList paths = handlers_.recentPaths ? handlers_.recentPaths() : QStringList();
    if (paths.isEmpty()) {
        recent_->addAction(noRecent)->setEnabled(false);
        return;
    }
    for (const QString& path : paths) {
        QAction* action = recent_->addAction(QFileInfo(path).fileName());
        action->setToolTip(path);
        action->setData(path);
        connect(action, &QAction::triggered, this, [this, path] {
            if (handlers_.openRecent)
                handlers_.openRecent(path);
        });
    }
    recent_->setToolTipsVisible(true);
    recent_->addSeparator();
    connect(recent_->addAction(clearMenu), &QAction::triggered, this, [this] {
        if (handlers_.clearRecents)
            handlers_.clearRecents();
    });
}

} // namespace quillon::ui
