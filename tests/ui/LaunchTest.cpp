// Launch and quit: handed-over files, the remembered session, the last database, one file in one window.
#include "state/DatabaseMemory.h"
#include "state/Session.h"
#include "tests/ui/UiTest.h"
#include "ui/AppDelegate.h"
#include "ui/MainWindow.h"
#include "ui/StartScreen.h"

#include <gtest/gtest.h>


using namespace quillon;

namespace {

QStringList pathsOf(const ui::Windows& windows)
{
    QStringList paths;
    for (auto* vault : windows.all())
        paths << vault->path().value_or(QStringLiteral("(empty)"));
    return paths;
}

TEST(Launch, handedOverFilesWinOverTheSessionAndOpenAsTabsOfTheFrontWindow)
{
    test::UiRig rig;
    const QString remembered = rig.database("remembered.kdbx");
    const QString early = rig.database("early.kdbx");
    const QString late = rig.database("late.kdbx");
    state::saveSession(rig.preferences, state::Session{{state::TabGroup{{remembered}, 0}}});

    ui::AppDelegate delegate(*rig.windows, rig.preferences, rig.clipboard);
    delegate.openFiles({early});
    EXPECT_TRUE(rig.windows->all().empty()); // kept until launch has finished
    delegate.finishLaunching();
    EXPECT_EQ(pathsOf(*rig.windows), QStringList{early});
    EXPECT_TRUE(delegate.pending().isEmpty());

    delegate.openFiles({late});
    ASSERT_EQ(rig.windows->windows().size(), 1u);
    EXPECT_EQ(pathsOf(*rig.windows), (QStringList{early, late}));
    EXPECT_EQ(rig.windows->frontVault()->path(), late);

    // A file that is open, whatever the route to it, brings its window forward and opens nothing new.
    const QString link = QString::fromStdString((rig.dir / "link.kdbx").string());
    std::filesystem::create_symlink(early.toStdString(), link.toStdString());
    EXPECT_EQ(rig.windows->open(link, rig.windows->frontWindow()), rig.windows->all().front());
    EXPECT_EQ(rig.windows->all().size(), 2u);
    EXPECT_EQ(rig.windows->frontVault()->path(), early);

    // Quit remembers the tabs and the one on show.
    delegate.willTerminate();
    EXPECT_EQ(state::loadSession(rig.preferences), (state::Session{{state::TabGroup{{early, late}, 0}}}));
}

TEST(Launch, sessionAndLastDatabaseFollowReopenLastDatabase)
{
    const auto launch = [](test::UiRig& rig) {
        ui::AppDelegate delegate(*rig.windows, rig.preferences, rig.clipboard);
        delegate.finishLaunching();
        return pathsOf(*rig.windows);
    };
    {
        // Off: the start screen, whatever the session and the last database say. (On, a session comes back
        // whole: Pages.windowsTabsFrontTabAndKeyFilesComeBackAtTheNextLaunch.)
        test::UiRig rig;
        const QString a = rig.database("a.kdbx");
        state::saveSession(rig.preferences, state::Session{{state::TabGroup{{a}, 0}}});
        rig.preferences.setLastDatabasePath(a);
        rig.preferences.setReopenLastDatabase(false);
        EXPECT_EQ(launch(rig), QStringList{"(empty)"});
        EXPECT_EQ(rig.windows->frontVault()->currentWidget(), rig.windows->frontVault()->startScreen());
    }
    {
        // On, no session: the last database, with the key file remembered for it.
        test::UiRig rig;
        const QString a = rig.database("a.kdbx");
        const QString key = QString::fromStdString((rig.dir / "a.key").string());
        test::writeFile(rig.dir / "a.key", std::string_view("key"));
        rig.preferences.setLastDatabasePath(a);
        state::DatabaseMemory(rig.preferences).setKeyFile(key, a);
        EXPECT_EQ(launch(rig), QStringList{a});
        EXPECT_EQ(rig.windows->windows().size(), 1u);
        EXPECT_EQ(rig.windows->frontVault()->session().unlockScreen().keyFile, std::filesystem::path(key.toStdString()));
    }
}

} // namespace
