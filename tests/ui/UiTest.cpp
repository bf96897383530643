#include "tests/ui/UiTest.h"

#include "tests/support/TestDb.h"

#include <gtest/gtest.h>

#include <QClipboard>

namespace quillon::test {

QApplication& uiApplication()
{
    static int argc = 1;
    static char name[] = "test_ui";
    static char* argv[] = {name, nullptr};
    static QApplication* app = [] {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        return new QApplication(argc, argv);
    }();
    return *app;
}

UiRig::UiRig()
    : preferences((uiApplication(), QString::fromStdString((dir / "settings.ini").string()))),
      clipboard(QApplication::clipboard(),
                [this](std::chrono::milliseconds, std::function<void()> job) { clipboardJobs.push_back(std::move(job)); })
{
    state::SessionServices services;
    services.runInBackground = [this](std::function<void()> job) { jobs.push_back(std::move(job)); };
    services.clock = [this] { return now; };
    services.isDuress = [](kdbx::ByteView) { return false; };
    windows = std::make_unique<ui::Windows>(asker, clipboard, preferences, services);
}

UiRig::~UiRig()
{
    windows.reset();
    QApplication::processEvents();
}

void UiRig::finishJobs()
{
    while (!jobs.empty()) {
        auto job = std::move(jobs.front());
        jobs.pop_front();
        job();
    }
    // The result, then what the window does in the turns after it.
    for (int turn = 0; turn < 3; ++turn)
        QApplication::processEvents();
}

QString UiRig::database(const char* name)
{
    const auto path = dir / name;
    writeFile(path, tinyFile(passwordOnly("right")));
    return QString::fromStdString(path.string());
}

ui::VaultWindow* UiRig::openUnlocked(const QString& path, ui::MainWindow* window)
{
    auto* vault = windows->open(path, window, window ? window->currentVault() : nullptr);
    vault->session().attemptUnlock(kdbx::SecureBytes::fromText("right"));
    finishJobs();
    EXPECT_TRUE(vault->session().isOpen());
    return vault;
}

} // namespace quillon::test
