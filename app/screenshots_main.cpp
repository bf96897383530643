// app/screenshots_main.cpp: renders each screen of the windowed program into PNG files, for review.
//   quillon-screenshots DIR [demo.kdbx]   (on the offscreen platform; the demo's password is "demo")
#include "state/DatabaseSession.h"
#include "state/CredentialsForm.h"
#include "state/Preferences.h"
#include "state/UnlockTexts.h"
#include "ui/Asker.h"
#include "ui/BrowseView.h"
#include "ui/Clipboard.h"
#include "ui/CredentialsDialog.h"
#include "ui/DatabasePages.h"
#include "ui/DeleteFlow.h"
#include "ui/EntryInspector.h"
#include "ui/GeneratorBox.h"
#include "ui/HistoryMenu.h"
#include "ui/ChangesDialog.h"
#include "ui/MergeController.h"
#include "files/DatabaseFile.h"
#include "ui/MainWindow.h"
#include "ui/OneTimePanel.h"
#include "ui/SaveFlow.h"
#include "ui/SecretField.h"
#include "ui/SettingsDialog.h"
#include "ui/VaultTexts.h"
#include "ui/VaultWindow.h"
#include "ui/Windows.h"

#include <QApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFormLayout>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QMessageBox>
#include <QPainter>
#include <QPushButton>
#include <QTabWidget>
#include <QToolButton>
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
    std::optional<QString> chooseFile(QWidget*, const QString&, const QString&) override
    {
        return files.isEmpty() ? std::nullopt : std::optional(files.takeFirst());
    }
    std::optional<QString> chooseSaveFile(QWidget*, const QString&, const QString&, const QString&) override
    {
        return std::nullopt;
    }
    // What the next file choosers answer.
    QStringList files;
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

    // Saving: the questions before writing and closing, the status line while the write runs, the recovery offer.
    const auto showDialog = [&](QMessageBox* box, const char* name) {
        box->setWindowModality(Qt::NonModal);
        box->show();
        ok &= save(box, out, name);
        box->close();
    };
    showDialog(ui::DialogAsker::makeSaveQuestion(window, ui::vaultText::saveChanges.arg(QStringLiteral("demo.kdbx")),
                                                 ui::vaultText::changesLost),
               "10-save-question");
    showDialog(ui::DialogAsker::makeSaveQuestion(window, ui::vaultText::saveChanges.arg(QStringLiteral("demo.kdbx")),
                                                 ui::vaultText::lockedChanges),
               "11-save-question-locked");
    showDialog(ui::DialogAsker::makeQuestion(window, QStringLiteral("demo.kdbx") + ui::vaultText::changedSuffix),
               "12-overwrite-question");
    const QDateTime when = QDateTime::currentDateTime().addSecs(-3600);
    showDialog(ui::DialogAsker::makeQuestion(window,
                                             ui::vaultText::recoverQuestion.arg(ui::SaveFlow::dateAndTime(when))),
               "13-recovery-question");
    showDialog(ui::DialogAsker::makeQuestion(window, ui::vaultText::emptyBin.arg(ui::DeleteFlow::contents(3, 1))),
               "14-empty-bin-question");

    window->bringForward(vault);
    session.attemptUnlock(kdbx::SecureBytes::fromText("2468"));
    finishJobs();
    const auto top = *session.document().topGroup();
    session.editField(top.allEntries().front(), "Title", "Changed");
    vault->perform(ui::Command::saveDatabase);
    ok &= save(window, out, "15-saving");
    finishJobs();
    ok &= save(window, out, "16-saved");

    // The inspector: an entry with earlier versions, its password revealed, the history pop-up and a version.
    const QString third = scratch.filePath(QStringLiteral("inspect.kdbx"));
    QFile::copy(demo, third);
    ui::MainWindow* browsing = windows.newWindow();
    browsing->resize(1180, 660);
    browsing->show();
    ui::VaultWindow* inspected = windows.open(third, browsing, browsing->currentVault());
    inspected->session().attemptUnlock(kdbx::SecureBytes::fromText("demo"));
    finishJobs();
    auto* browse = qobject_cast<ui::BrowseView*>(inspected->unlockedPage());
    auto* inspector = inspected->unlockedPage() ? inspected->unlockedPage()->findChild<ui::EntryInspector*>() : nullptr;
    if (!browse || !inspector) {
        std::fputs("the demo did not unlock\n", stderr);
        return 1;
    }
    const auto groups = inspected->session().document().topGroup()->groups();
    browse->selectGroup(groups[0]);
    browse->selectEntry(groups[0].entries().front());
    ok &= save(browsing, out, "20-inspector");
    inspector->passwordField()->revealButton()->click();
    ok &= save(browsing, out, "21-password-revealed");
    QMenu* versions = inspector->historyMenu()->versionsMenu();
    versions->popup(inspector->historyMenu()->mapToGlobal(QPoint(0, inspector->historyMenu()->height())));
    QApplication::processEvents();
    QPixmap withMenu = browsing->grab();
    {
        QPainter painter(&withMenu);
        painter.drawPixmap(browsing->mapFromGlobal(versions->pos()), versions->grab());
    }
    const QString menuPath = out + QStringLiteral("/22-history-menu.png");
    ok &= withMenu.save(menuPath);
    std::fprintf(stdout, "wrote %s\n", menuPath.toLocal8Bit().constData());
    versions->hide();
    inspector->openVersion(1);
    ok &= save(browsing, out, "23-earlier-version");
    inspector->closeVersion();
    browse->selectGroup(groups[1]);
    browse->selectEntry(groups[1].entries().front());
    const auto mail = groups[1].entries().front();
    inspected->session().setExpiry(mail, model::Time(std::chrono::seconds(1'900'000'000)));
    ok &= save(browsing, out, "24-custom-fields-attachment-expiry");

    // The one-time-code panel and the generator box in a small host, as the inspector holds them, over a
    // session whose clock stands still so that the countdown is the one wanted.
    kdbx::SystemTime shotTime{std::chrono::seconds(1'700'000'010)}; // the start of a 30-second step
    state::SessionServices still = services;
    still.clock = [&shotTime] { return shotTime; };
    state::DatabaseSession otpSession(still);
    otpSession.openLocation(first.toStdString());
    otpSession.attemptUnlock(kdbx::SecureBytes::fromText("demo"));
    finishJobs();
    std::optional<model::Entry> withCode;
    for (const auto& entry : otpSession.document().topGroup()->allEntries())
        if (entry.field("otp") && !withCode)
            withCode = entry;
    if (!withCode) {
        std::fputs("the demo database holds no one-time password\n", stderr);
        return 1;
    }
    QWidget host;
    host.setWindowTitle(QStringLiteral("Entry"));
    auto* form = new QFormLayout(&host);
    auto* otp = new ui::OneTimePanel(otpSession, clipboard, &host);
    auto* generator = new ui::GeneratorBox(otpSession, &host);
    form->addRow(QStringLiteral("One-time password"), otp);
    form->addRow(QStringLiteral("Generator"), generator);
    otp->setEntry(withCode);
    generator->setEntry(withCode);
    host.resize(560, 300);
    host.show();
    ok &= save(&host, out, "30-otp-secret-mode");
    otp->revealButton()->click();
    ok &= save(&host, out, "31-otp-secret-revealed");
    otp->modeButton()->click();
    ok &= save(&host, out, "32-otp-code-hidden");
    otp->revealButton()->click();
    shotTime += std::chrono::seconds(8);
    otp->tick();
    ok &= save(&host, out, "33-otp-code-revealed");
    shotTime += std::chrono::seconds(19);
    otp->tick();
    ok &= save(&host, out, "34-otp-code-last-seconds");
    generator->wordsButton()->click();
    ok &= save(&host, out, "35-generator-words");

    // The toolbar of an unlocked tab: its items, then a search under way in its field.
    window->tabs()->setCurrentWidget(vault);
    if (session.isLocked()) {
        session.attemptUnlock(kdbx::SecureBytes::fromText("2468"));
        finishJobs();
    }
    ok &= save(window, out, "40-toolbar");
    if (auto* search = vault->searchField()) {
        search->setText(QStringLiteral("example"));
        ok &= save(window, out, "41-toolbar-search");
    }

    // The pages that set what opens a database, and the settings form.
    windows.bringForward(vault);
    ui::CredentialsDialog* page = ui::showNewDatabase(windows);
    ok &= save(page, out, "50-new-database");
    page->firstField()->setText(QStringLiteral("one"));
    page->secondField()->setText(QStringLiteral("two"));
    page->acceptButton()->click();
    ok &= save(page, out, "51-new-database-mismatch");
    page->reject();

    page = ui::showChangePassword(*vault);
    ok &= save(page, out, "52-change-password");
    page->reject();
    auto* question = ui::DialogAsker::makeQuestion(window, state::credentialsText::deleteEarlierBackups(2));
    question->setWindowModality(Qt::NonModal);
    question->show();
    ok &= save(question, out, "53-delete-earlier-backups");
    question->close();

    ui::SettingsDialog* settings = ui::showDatabaseSettings(*vault);
    ok &= save(settings, out, "54-settings");
    settings->memoryField()->selectAll();
    settings->memoryField()->insert(QStringLiteral("12"));
    ok &= save(settings, out, "55-settings-low-memory");
    settings->memoryField()->selectAll();
    settings->memoryField()->insert(QStringLiteral("40"));
    settings->chooseDuressButton()->click();
    ok &= save(settings, out, "56-settings-below-recommended");
    if (auto* duress = settings->findChild<ui::CredentialsDialog*>(QStringLiteral("duressPage"))) {
        ok &= save(duress, out, "57-duress-password");
        duress->reject();
    }
    settings->reject();

    // Reviewing and merging: an edit in the window, another program's edit of the file, another copy merged in.
    auto& merging = inspected->session();
    auto* merger = inspected->findChild<ui::MergeController*>();
    const auto editElsewhere = [](const QString& path, std::string_view title) {
        kdbx::Credentials credentials;
        credentials.password = kdbx::SecureBytes::fromText("demo");
        auto file = kdbx::KdbxFile::open(files::readDiskBytes(path.toStdString()).bytes, credentials);
        model::Document document(file->document);
        document.newEntry(*document.topGroup(), title).setField("UserName", "sam@example.com", false);
        const auto bytes = file->save(credentials);
        QFile written(path);
        return written.open(QIODevice::WriteOnly | QIODevice::Truncate) &&
               written.write(reinterpret_cast<const char*>(bytes.data()), static_cast<qint64>(bytes.size())) ==
                   static_cast<qint64>(bytes.size());
    };
    if (!merger || !editElsewhere(third, "Added on the laptop") || !editElsewhere(second, "Added at work")) {
        std::fputs("the merge screens could not be set up\n", stderr);
        return 1;
    }
    const auto firstEntry = merging.document().topGroup()->allEntries().front();
    merging.editFields(firstEntry, {{"UserName", "pat@example.com"}, {"Password", "typed-in-the-window", true}});
    merger->reviewChanges();
    finishJobs();
    if (merger->dialog())
        ok &= save(merger->dialog(), out, "60-review-changes");
    merger->mergeFromDisk();
    finishJobs();
    finishJobs();
    if (merger->dialog())
        ok &= save(merger->dialog(), out, "61-merge-from-disk");
    asker.files << second;
    merger->setPasswordAsker([](QWidget*, const QString&) { return std::optional(kdbx::SecureBytes::fromText("demo")); });
    merger->mergeFromDatabase();
    finishJobs();
    if (merger->dialog())
        ok &= save(merger->dialog(), out, "62-merge-from-database");
    return ok ? 0 : 1;
}
