// What locks the windows: idleness measured from the last input, and the screen saver over D-Bus.
#include "tests/support/Peers.h"
#include "tests/support/Process.h"
#include "tests/ui/UiTest.h"
#include "ui/LockTriggers.h"
#include "ui/MainWindow.h"

#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

using namespace quillon;
using namespace std::chrono_literals;

namespace {

ui::LockTriggers::Targets targetsOf(ui::Windows& windows)
{
    return {[&windows] { windows.noteActivity(); }, [&windows] { windows.checkIdle(); },
            [&windows] { windows.lockAll(); }};
}

ui::VaultWindow* unlocked(test::UiRig& rig, const char* name)
{
    return rig.openUnlocked(rig.database(name), rig.windows->frontWindow());
}

TEST(LockTriggers, idleLockCountsFromTheLastInputAnywhereInTheApplication)
{
    test::UiRig rig;
    rig.windows->newWindow();
    auto* vault = unlocked(rig, "vault.kdbx");
    ui::LockTriggers triggers(targetsOf(*rig.windows));
    triggers.watchApplication();
    const auto tick = [&] { triggers.tick(); };

    rig.preferences.setIdleLockMinutes(0); // never
    rig.now += 24h;
    tick();
    EXPECT_FALSE(vault->session().isLocked());

    rig.preferences.setIdleLockMinutes(1);
    vault->session().noteActivity();
    rig.now += 50s;
    QTest::mouseClick(vault->window(), Qt::LeftButton); // input counts wherever it lands
    rig.now += 30s;
    tick();
    EXPECT_FALSE(vault->session().isLocked());
    rig.now += 30s;
    tick();
    EXPECT_TRUE(vault->session().isLocked());
    QCoreApplication::instance()->removeEventFilter(&triggers);
}

TEST(LockTriggers, screenSaverOnAPrivateSessionBusLocksEveryWindow)
{
    const auto daemon = test::findInPath("dbus-daemon");
    const auto send = test::findInPath("dbus-send");
    QUILLON_REQUIRE_PEER(daemon && send ? daemon : std::nullopt, "dbus-daemon and dbus-send");

    QProcess bus;
    bus.start(QString::fromStdString(daemon->string()),
              {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address")});
    ASSERT_TRUE(bus.waitForStarted());
    ASSERT_TRUE(bus.waitForReadyRead(10000));
    const QString address = QString::fromUtf8(bus.readLine()).trimmed();
    ASSERT_FALSE(address.isEmpty());
    {
        test::UiRig rig;
        rig.windows->newWindow();
        auto* first = unlocked(rig, "one.kdbx");
        rig.windows->newWindow();
        auto* second = unlocked(rig, "two.kdbx");
        ASSERT_NE(first->window(), second->window());

        QDBusConnection connection = QDBusConnection::connectToBus(address, QStringLiteral("quillon-test"));
        ASSERT_TRUE(connection.isConnected());
        ui::LockTriggers triggers(targetsOf(*rig.windows));
        triggers.listenOn(connection, QDBusConnection(QStringLiteral("none")));

        // Inactive is no reason to lock.
        const auto signal = [&](const char* value) {
            const auto r = test::run({send->string(), "--bus=" + address.toStdString(), "--type=signal",
                                      "/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver.ActiveChanged",
                                      std::string("boolean:") + value});
            ASSERT_EQ(r.exitCode, 0) << r.err;
        };
        signal("false");
        QTest::qWait(300);
        EXPECT_FALSE(first->session().isLocked());
        signal("true");
        QElapsedTimer waited;
        waited.start();
        while (!(first->session().isLocked() && second->session().isLocked()) && waited.elapsed() < 10000)
            QTest::qWait(20);
        EXPECT_TRUE(first->session().isLocked());
        EXPECT_TRUE(second->session().isLocked());
        QDBusConnection::disconnectFromBus(QStringLiteral("quillon-test"));
    }
    bus.terminate();
    bus.waitForFinished();
}

} // namespace
