// app/screenshots_main.cpp: renders each screen of the windowed program into PNG files, for review.
//   quillon-screenshots DIR [demo.kdbx]   (on the offscreen platform; the demo's password is "demo")
#include "state/DatabaseSession.h"
#include "state/CredentialsForm.h"
#include "state/Preferences.h"
#include "state/UnlockTexts.h"
#include "ui/Asker.h"
#include "ui/Clipboard.h"
#include "ui/CredentialsDialog.h"
#include "ui/DatabasePages.h"
#include "ui/MainWindow.h"
#include "ui/SettingsDialog.h"
#include "ui/Windows.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QLineEdit>
#include <QPushButton>
#include <QMessageBox>
#include <QTemporaryDir>

#include <cstdio>
#include <deque>

using namespace quillon;

namespace {

// The screens ask nothing while they are drawn.
class SilentAsker final : public ui::Asker {
public:
    void warn(QWidget*, const QString&, const QString&) override {}
    bool confirm(QWidget*, const QString&, const QString&) override { return false; }
    ui::SaveAnswer askToSave(QWidget*, const QString&, const QString&) override { return ui::SaveAnswer::cancel; }
    std::optional<QString> chooseFile(QWidget*, const QString&, const QString&) override { return std::nullopt; }
    std::optional<QString> chooseSaveFile(QWidget*, const QString&, const QString&, const QString&) override
    {
        return std::nullopt;
    }
};

bool save(QWidget* widget, const QString& dir, const char* name)
{
    QApplication::processEvents();
    const QString path = dir + QLatin1Char('/') + QString::fromLatin1(name) + QStringLiteral(".png");
    const bool ok = widget->grab().save(path);
    std::fprintf(stdout, "%s %s\n", ok ? "wrote" : "could not write", path.toLocal8Bit().constData());
    return ok;
}

} // namespace

int main(int argc, char** argv)
{
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quillon"));
    const QStringList args = QApplication::arguments();
    if (args.size() < 2) {
        std::fputs("usage: quillon-screenshots DIR [demo.kdbx]\n", stderr);
        return 2;
    }
    const QString out = args[1];
    QDir().mkpath(out);
    const QString demo = args.size() > 2 ? args[2] : QStringLiteral(QUILLON_DEMO_DATABASE);
    QTemporaryDir scratch;
    const QString first = scratch.filePath(QStringLiteral("demo.kdbx"));
    const QString second = scratch.filePath(QStringLiteral("work.kdbx"));
    if (!QFile::copy(demo, first) || !QFile::copy(demo, second)) {
        std::fprintf(stderr, "cannot read %s\n", demo.toLocal8Bit().constData());
        return 1;
    }
    QFile(scratch.filePath(QStringLiteral("demo.key"))).open(QIODevice::WriteOnly);

    state::Preferences preferences(scratch.filePath(QStringLiteral("settings.ini")));
    ui::Clipboard clipboard(QApplication::clipboard());
    SilentAsker asker;
    std::deque<std::function<void()>> jobs;
    state::SessionServices services;
    services.runInBackground = [&jobs](std::function<void()> job) { jobs.push_back(std::move(job)); };
    const auto finishJobs = [&jobs] {
        while (!jobs.empty()) {
            auto job = std::move(jobs.front());
            jobs.pop_front();
            job();
        }
        QApplication::processEvents();
    };
    ui::Windows windows(asker, clipboard, preferences, services);

    bool ok = true;
    ui::MainWindow* window = windows.newWindow();
    window->resize(760, 520);
    window->show();
    ok &= save(window, out, "01-start-screen");

    ui::VaultWindow* vault = windows.open(first, window, window->currentVault());
    auto& session = vault->session();
    ok &= save(window, out, "02-unlock");

    session.setPendingKeyFile(std::filesystem::path(scratch.filePath(QStringLiteral("demo.key")).toStdString()));
    ok &= save(window, out, "03-unlock-key-file");
    session.setPendingKeyFile(std::nullopt);

    session.beginSettingPIN(kdbx::SecureBytes::fromText("demo"));
    ok &= save(window, out, "04-unlock-set-pin");
    session.attemptUnlock(kdbx::SecureBytes::fromText("2468"));
    ok &= save(window, out, "05-unlocking");
    finishJobs();
    ok &= save(window, out, "06-unlocked");

    session.lock();
    ok &= save(window, out, "07-pin-mode");

    auto* alert = ui::DialogAsker::makeWarning(window, state::unlockText::lockFailed.arg(QStringLiteral("No space left on device")));
    alert->setWindowModality(Qt::NonModal);
    alert->show();
    ok &= save(alert, out, "08-lock-failure-alert");
    alert->close();

    windows.open(second, window);
    ok &= save(window, out, "09-two-tabs");

    // The pages that set what opens a database, and the settings form.
    session.attemptUnlock(kdbx::SecureBytes::fromText("2468"));
    finishJobs();
    windows.bringForward(vault);
    ui::CredentialsDialog* page = ui::showNewDatabase(windows);
    ok &= save(page, out, "10-new-database");
    page->firstField()->setText(QStringLiteral("one"));
    page->secondField()->setText(QStringLiteral("two"));
    page->acceptButton()->click();
    ok &= save(page, out, "11-new-database-mismatch");
    page->reject();

    page = ui::showChangePassword(*vault);
    ok &= save(page, out, "12-change-password");
    page->reject();
    auto* question = ui::DialogAsker::makeQuestion(window, state::credentialsText::deleteEarlierBackups(2));
    question->setWindowModality(Qt::NonModal);
    question->show();
    ok &= save(question, out, "13-delete-earlier-backups");
    question->close();

    ui::SettingsDialog* settings = ui::showDatabaseSettings(*vault);
    ok &= save(settings, out, "14-settings");
    settings->memoryField()->selectAll();
    settings->memoryField()->insert(QStringLiteral("12"));
    ok &= save(settings, out, "15-settings-low-memory");
    settings->memoryField()->selectAll();
    settings->memoryField()->insert(QStringLiteral("40"));
    settings->chooseDuressButton()->click();
    ok &= save(settings, out, "16-settings-below-recommended");
    if (auto* duress = settings->findChild<ui::CredentialsDialog*>(QStringLiteral("duressPage"))) {
        ok &= save(duress, out, "17-duress-password");
        duress->reject();
    }
    settings->reject();
    return ok ? 0 : 1;
}
