// The main menu as the user sees it, and "Open Recent" as it is rebuilt before it opens.
#include "tests/ui/UiTest.h"
#include "ui/MainWindow.h"
#include "ui/MenuBar.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QMenu>
#include <QMenuBar>

using namespace quillon;

namespace {

// One line per item: "Menu|Title|key", "Menu|---" for a separator, "Menu|Title >" for a submenu. Whether an
// item is enabled follows the window's state and is not part of the layout.
QStringList describe(QMenuBar* bar)
{
    QStringList lines;
    for (QAction* top : bar->actions()) {
        const QString menu = top->text();
        for (QAction* item : top->menu()->actions()) {
            if (item->isSeparator())
                lines << menu + QStringLiteral("|---");
            else if (item->menu())
                lines << menu + QStringLiteral("|") + item->text() + QStringLiteral(" >");
            else
                lines << menu + QStringLiteral("|") + item->text() + QStringLiteral("|") +
                             item->shortcut().toString(QKeySequence::PortableText) +
                             (item->isCheckable() ? QStringLiteral("|check") : QString());
        }
    }
    return lines;
}

TEST(MenuBar, everyItemKeyAndSeparatorOfTheMainMenu)
{
    test::UiRig rig;
    QApplication::setApplicationName(QStringLiteral("Quillon"));
    auto* window = rig.windows->newWindow();
    const QStringList expected = {
        "Quillon|Hide Quillon|Ctrl+H",
        "Quillon|---",
        "Quillon|Quit Quillon|Ctrl+Q",
        "File|New Window|Ctrl+N",
        "File|New Tab|Ctrl+T",
        "File|New Database|Ctrl+Shift+N",
        "File|---",
        "File|Open Database…|Ctrl+O",
        "File|Open Recent >",
        "File|---",
        "File|Close Window|Ctrl+W",
        "File|Save|Ctrl+S",
        "File|Save As…|Ctrl+Shift+S",
        "File|---",
        "File|Review Changes…|",
        "File|Merge Changes From Disk…|",
        "File|Merge From Database…|",
        "File|---",
        "File|Database Settings…|Ctrl+,",
        "File|Change Password…|",
        "File|Lock Database|Ctrl+L",
        "File|Back Up Before Saving||check",
        "File|Show Backups in File Manager|",
        "Edit|Undo|Ctrl+Z",
        "Edit|Redo|Ctrl+Shift+Z",
        "Edit|---",
        "Edit|Cut|Ctrl+X",
        "Edit|Copy|Ctrl+C",
        "Edit|Paste|Ctrl+V",
        "Edit|Select All|Ctrl+A",
        "Edit|---",
        "Edit|Find|Ctrl+F",
        "Entries|New Entry|Ctrl+E",
        "Entries|New Group|Ctrl+G",
        "Entries|---",
        "Entries|Copy Password|Ctrl+Shift+C",
        "Entries|Copy Username|Ctrl+Shift+B",
        "Entries|Open URL|Ctrl+U",
        "Entries|Delete Entry|Ctrl+Backspace",
        "Entries|Delete Group|",
        "Entries|Restore from Recycle Bin|",
        "View|Wrap Notes||check",
        "Window|Minimize|Ctrl+M",
        "Window|Zoom|",
    };
    const QStringList shown = describe(window->menuBar());
    EXPECT_EQ(shown, expected) << shown.join(u'\n').toStdString();

    // The check marks are the preferences, read as the menu opens.
    rig.preferences.setBackUpBeforeSaving(false);
    QMenu* file = window->menuBar()->actions().at(1)->menu();
    Q_EMIT file->aboutToShow();
    EXPECT_FALSE(window->menu()->action(ui::Command::toggleBackups)->isChecked());
    window->menu()->action(ui::Command::toggleBackups)->trigger();
    EXPECT_TRUE(rig.preferences.backUpBeforeSaving());
}

TEST(MenuBar, openRecentIsRebuiltNewestFirstAndClears)
{
    test::UiRig rig;
    auto* window = rig.windows->newWindow();
    QMenu* recent = window->menu()->recentMenu();
    const auto titles = [recent] {
        Q_EMIT recent->aboutToShow();
        QStringList list;
        for (QAction* a : recent->actions())
            list << (a->isSeparator() ? QStringLiteral("---") : a->text() + (a->isEnabled() ? "" : " (off)"));
        return list;
    };
    EXPECT_EQ(titles(), QStringList{"No Recent Databases (off)"});

    const QString a = rig.database("a.kdbx");
    const QString b = rig.database("b.kdbx");
    for (int i = 0; i < 12; ++i)
        rig.windows->recents().add(rig.database(("old" + std::to_string(i) + ".kdbx").c_str()));
    rig.windows->recents().add(a);
    rig.windows->recents().add(b);
    rig.windows->recents().add(a);
    const QStringList shown = titles();
    ASSERT_EQ(shown.size(), 12); // ten files, the separator, Clear Menu
    EXPECT_EQ(shown.mid(0, 3), (QStringList{"a.kdbx", "b.kdbx", "old11.kdbx"}));
    EXPECT_EQ(shown.mid(10), (QStringList{"---", "Clear Menu"}));
    EXPECT_EQ(recent->actions().at(0)->toolTip(), a);

    // Choosing one opens it in the empty window rather than in a new one.
    recent->actions().at(1)->trigger();
    ASSERT_EQ(rig.windows->all().size(), 1u);
    EXPECT_EQ(rig.windows->all().front()->path(), b);

    recent->actions().last()->trigger();
    EXPECT_EQ(titles(), QStringList{"No Recent Databases (off)"});
}

TEST(MenuBar, theWindowMenuListsEveryVaultWindowAndBringsOneForward)
{
    test::UiRig rig;
    auto* window = rig.windows->newWindow();
    rig.windows->open(rig.database("a.kdbx"), window, window->currentVault());
    auto* second = rig.windows->newWindow();
    rig.windows->open(rig.database("b.kdbx"), second, second->currentVault());
    rig.windows->newTab();

    QMenu* menu = window->menuBar()->actions().last()->menu();
    const auto listed = [menu] {
        Q_EMIT menu->aboutToShow();
        QStringList titles;
        for (QAction* action : menu->actions())
            if (action->isCheckable())
                titles << action->text() + (action->isChecked() ? "*" : "");
        return titles;
    };
    EXPECT_EQ(listed(), (QStringList{"a.kdbx is locked", "b.kdbx is locked", "Quillon*"}));
    menu->actions().at(menu->actions().size() - 3)->trigger();
    EXPECT_EQ(rig.windows->frontVault(), rig.windows->all().front());
    EXPECT_EQ(listed(), (QStringList{"a.kdbx is locked*", "b.kdbx is locked", "Quillon"})) << "rebuilt, not added to";
}

} // namespace
