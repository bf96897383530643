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

// One line per item: "Menu|Title|key|enabled", "Menu|---" for a separator, "Menu|Title >" for a submenu.
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
                             item->shortcut().toString(QKeySequence::PortableText) + QStringLiteral("|") +
                             (item->isEnabled() ? QStringLiteral("on") : QStringLiteral("off")) +
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
        "Quillon|Hide Quillon|Ctrl+H|on",
        "Quillon|---",
        "Quillon|Quit Quillon|Ctrl+Q|on",
        "File|New Window|Ctrl+N|on",
        "File|New Tab|Ctrl+T|on",
        "File|New Database|Ctrl+Shift+N|off",
        "File|---",
        "File|Open Database…|Ctrl+O|on",
        "File|Open Recent >",
        "File|---",
        "File|Close Window|Ctrl+W|on",
        "File|Save|Ctrl+S|off",
        "File|Save As…|Ctrl+Shift+S|off",
        "File|---",
        "File|Database Settings…|Ctrl+,|off",
        "File|Change Password…||off",
        "File|Lock Database|Ctrl+L|on",
        "File|Back Up Before Saving||on|check",
        "File|Show Backups in File Manager||off",
        "Edit|Undo|Ctrl+Z|on",
        "Edit|---",
        "Edit|Cut|Ctrl+X|on",
        "Edit|Copy|Ctrl+C|on",
        "Edit|Paste|Ctrl+V|on",
        "Edit|Select All|Ctrl+A|on",
        "Edit|---",
        "Edit|Find|Ctrl+F|off",
        "Entries|New Entry|Ctrl+E|off",
        "Entries|New Group|Ctrl+G|off",
        "Entries|---",
        "Entries|Copy Password|Ctrl+Shift+C|off",
        "Entries|Copy Username|Ctrl+Shift+B|off",
        "Entries|Open URL|Ctrl+U|off",
        "Entries|Delete Entry|Ctrl+Backspace|off",
        "Entries|Delete Group||off",
        "Entries|Restore from Recycle Bin||off",
        "View|Wrap Notes||on|check",
        "Window|Minimize|Ctrl+M|on",
        "Window|Zoom||on",
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

} // namespace
