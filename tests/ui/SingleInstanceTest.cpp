// A second start hands its files to the running instance over a socket only this user can open.
#include "tests/ui/UiTest.h"
#include "ui/Application.h"
#include "ui/SingleInstance.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QLocalServer>
#include <QTest>

#include <sys/stat.h>

#include <future>

using namespace quillon;

namespace {

TEST(SingleInstance, filesHandedOverArriveAtTheRunningInstance)
{
    test::uiApplication();
    const QString name = QStringLiteral("quillon-test-%1").arg(QCoreApplication::applicationPid());
    ui::SingleInstance nobody(name);
    EXPECT_FALSE(nobody.handOver({QStringLiteral("/a.kdbx")}, 200));

    ui::SingleInstance running(name);
    ASSERT_TRUE(running.listen());
    QStringList arrived;
    QObject::connect(&running, &ui::SingleInstance::filesArrived, [&](const QStringList& paths) { arrived << paths; });

    // The later start blocks on its side; the running one answers from its event loop.
    auto later = std::async(std::launch::async, [name] {
        return ui::SingleInstance(name).handOver({QStringLiteral("/x/é one.kdbx"), QStringLiteral("/y/two.kdbx")});
    });
    QElapsedTimer waited;
    waited.start();
    while (later.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready && waited.elapsed() < 10000)
        QTest::qWait(10);
    ASSERT_TRUE(later.get());
    EXPECT_EQ(arrived, (QStringList{QStringLiteral("/x/é one.kdbx"), QStringLiteral("/y/two.kdbx")}));

    // Only the owner may connect.
    struct stat info {};
    const QByteArray socketPath = QDir(QDir::tempPath()).filePath(name).toLocal8Bit();
    ASSERT_EQ(::stat(socketPath.constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 077, 0u);
}

TEST(SingleInstance, argumentsBecomeAbsolutePathsAndOptionsAreRefused)
{
    const QString cwd = QDir::currentPath();
    EXPECT_EQ(ui::filesFromArguments({QStringLiteral("a.kdbx"), QStringLiteral("/b/c.kdbx")}),
              (QStringList{cwd + QStringLiteral("/a.kdbx"), QStringLiteral("/b/c.kdbx")}));
    EXPECT_EQ(ui::filesFromArguments({QStringLiteral("a.kdbx"), QStringLiteral("-x")}), std::nullopt);
}

} // namespace
