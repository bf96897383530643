// The main menu as the user sees it, and "Open Recent" as it is rebuilt before it opens.
#include "tests/ui/UiTest.h"
#include "ui/MainWindow.h"
#include "ui/MenuBar.h"
#include "ui/MenuTable.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QMenu>
#include <QMenuBar>

using namespace quillon;

namespace {

// The bar is built from the menu table: every item under its menu with its key, the application's name in its own
// menu's titles, a separator where the table puts one; the check marks are the preferences, read as the menu opens.
TEST(MenuBar, theBarIsTheMenuTable)
{
    test::UiRig rig;
    QApplication::setApplicationName(QStringLiteral("Quillon"));
    auto* window = rig.windows->newWindow();
    QStringList expected, shown;
    QString previous;
    for (const ui::MenuItem& item : ui::menuTable()) {
        const QString menu = *item.menu ? QString::fromUtf8(item.menu) : QStringLiteral("Quillon");
        if (menu != previous && !expected.isEmpty() && expected.last().endsWith(QStringLiteral("|---")))
            expected.removeLast(); // no separator closes a menu
        previous = menu;
        expected << menu + u'|' + QString::fromUtf8(item.title).replace(QStringLiteral("%1"), QStringLiteral("Quillon")) + u'|' +
                        QString::fromUtf8(item.key);
        if (item.separatorAfter)
            expected << menu + QStringLiteral("|---");
    }
    for (QAction* top : window->menuBar()->actions())
        for (QAction* action : top->menu()->actions())
            shown << top->text() + u'|' +
                         (action->isSeparator() ? QStringLiteral("---")
                                                : action->text() + u'|' + (action->menu() ? QString() :
                                                       action->shortcut().toString(QKeySequence::PortableText)));
    EXPECT_EQ(shown, expected) << shown.join(u'\n').toStdString();

    rig.preferences.setBackUpBeforeSaving(false);
    Q_EMIT window->menuBar()->actions().at(1)->menu()->aboutToShow();
    QAction* backups = window->menu()->action(ui::Command::toggleBackups);
    EXPECT_TRUE(backups->isCheckable());
    EXPECT_FALSE(backups->isChecked());
    backups->trigger();
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
