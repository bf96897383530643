// New Database, Change Password and Database Settings through their real widgets, and what the windows
// remember between unlocks and launches.
#include "files/Backups.h"
#include "files/CanonicalPath.h"
#include "state/CredentialsForm.h"
#include "state/DatabaseMemory.h"
#include "state/Session.h"
#include "tests/support/TestDb.h"
#include "tests/ui/UiTest.h"
#include "ui/AppDelegate.h"
#include "ui/CredentialsDialog.h"
#include "ui/ExpandedGroups.h"
#include "ui/GroupTreeModel.h"
#include "ui/MainWindow.h"
#include "ui/MenuBar.h"
#include "ui/SettingsDialog.h"
#include "ui/UnlockView.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QTabWidget>
#include <QTest>
#include <QTreeView>

using namespace quillon;

namespace {

ui::VaultWindow* unlock(test::UiRig& rig, ui::VaultWindow* vault, const char* password = "right")
{
    vault->session().attemptUnlock(kdbx::SecureBytes::fromText(password));
    rig.finishJobs();
    return vault;
}

// Runs what is queued, and deletes what closed.
void settle()
{
    QApplication::processEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

void fill(ui::CredentialsDialog* page, const char* first, const char* second)
{
    QTest::keyClicks(page->firstField(), QString::fromUtf8(first));
    QTest::keyClicks(page->secondField(), QString::fromUtf8(second));
}

template <class Dialog> Dialog* page(ui::MainWindow* window, const char* name)
{
    return window->findChild<Dialog*>(QString::fromLatin1(name));
}

bool opensWith(const std::filesystem::path& file, const char* password)
{
    try {
        return kdbx::KdbxFile::open(test::readFile(file), test::passwordOnly(password)) != nullptr;
    } catch (const std::exception&) {
        return false;
    }
}

TEST(Pages, newDatabaseRefusesAMismatchOpensUntitledAndUnsavedAndSavesAFileThatOpens)
{
    test::UiRig rig;
    auto* window = rig.windows->newWindow();
    auto* first = window->currentVault();
    window->menu()->action(ui::Command::newDatabase)->trigger();
    QPointer<ui::CredentialsDialog> dialog = page<ui::CredentialsDialog>(window, "newDatabasePage");
    ASSERT_TRUE(dialog);
    EXPECT_EQ(dialog->firstField()->echoMode(), QLineEdit::Password);
    EXPECT_FALSE(dialog->acceptButton()->isEnabled()); // a password, a key file, or both

    fill(dialog, "one", "two");
    QTest::mouseClick(dialog->acceptButton(), Qt::LeftButton);
    EXPECT_EQ(dialog->messageLabel()->text(), state::credentialsText::mismatch);
    EXPECT_TRUE(dialog->firstField()->text().isEmpty());
    EXPECT_TRUE(first->isEmpty());

    fill(dialog, "pw", "pw");
    QTest::keyClick(dialog->secondField(), Qt::Key_Return);
    settle();
    EXPECT_FALSE(dialog); // closed and gone
    auto& session = first->session();
    ASSERT_TRUE(session.isOpen());
    EXPECT_FALSE(session.isLocked());
    EXPECT_EQ(first->currentWidget(), first->unlockedPage());
    EXPECT_TRUE(session.isDirty());
    EXPECT_EQ(window->windowTitle(), QStringLiteral("Untitled[*]"));
    EXPECT_TRUE(window->isWindowModified());

    // The window is taken now: the next one opens beside it, here with a key file and no password.
    test::writeFile(rig.dir / "new.key", std::string_view("a key file of any bytes"));
    window->menu()->action(ui::Command::newDatabase)->trigger();
    dialog = page<ui::CredentialsDialog>(window, "newDatabasePage");
    ASSERT_TRUE(dialog);
    rig.asker.answers << QString::fromStdString((rig.dir / "new.key").string());
    QTest::mouseClick(dialog->keyFileButton(), Qt::LeftButton);
    EXPECT_EQ(dialog->keyFileLabel()->text(), QStringLiteral("new.key"));
    QTest::mouseClick(dialog->acceptButton(), Qt::LeftButton);
    settle();
    ASSERT_EQ(window->tabs()->count(), 2);
    auto& second = window->currentVault()->session();
    ASSERT_TRUE(second.isOpen());
    EXPECT_FALSE(second.credentials()->password);
    EXPECT_TRUE(second.credentials()->keyFile);
    EXPECT_EQ(second.unlockScreen().keyFile, rig.dir / "new.key");

    // The first save writes a file that opens with the password; small costs keep the test quick.
    session.changeSettings(QStringLiteral("Cheaper"), [](kdbx::OuterHeader& header, model::Document& document) {
        model::DatabaseSettings cheap;
        cheap.memoryMiB = 8;
        cheap.iterations = 1;
        cheap.applyTo(header, document);
    });
    const auto saved = rig.dir / "new.kdbx";
    session.saveTo(saved, std::nullopt);
    EXPECT_FALSE(session.isDirty());
    EXPECT_TRUE(opensWith(saved, "pw"));
}

TEST(Pages, changePasswordKeepsEditsRefusesAMismatchAndOffersToDeleteEarlierBackups)
{
    test::UiRig rig;
    const files::Backups backups(rig.dir / "Backups");
    rig.relaunch(&backups);
    const QString path = rig.database("vault.kdbx");
    auto* window = rig.windows->newWindow();
    auto* vault = rig.openUnlocked(path, window);
    auto& session = vault->session();
    ASSERT_TRUE(session.isOpen());
    ASSERT_TRUE(session.newGroup(session.document().topGroup().value(), "Unsaved"));
    const auto folder = backups.backupFolder(files::canonicalPath(path.toStdString()));
    std::filesystem::create_directories(folder);
    test::writeFile(folder / "vault 2024-05-01 13.07.42.123.kdbx", std::string_view("old"));

    window->menu()->action(ui::Command::changePassword)->trigger();
    QPointer<ui::CredentialsDialog> dialog = page<ui::CredentialsDialog>(window, "changePasswordPage");
    ASSERT_TRUE(dialog);
    fill(dialog, "new", "newt");
    QTest::mouseClick(dialog->acceptButton(), Qt::LeftButton);
    EXPECT_EQ(dialog->messageLabel()->text(), QStringLiteral("The two didn't match. Nothing was changed."));
    EXPECT_TRUE(rig.asker.questions.isEmpty());
    fill(dialog, "new", "new");
    QTest::mouseClick(dialog->acceptButton(), Qt::LeftButton);
    settle();
    EXPECT_FALSE(dialog);
    // No is the default: the backup stays.
    EXPECT_EQ(rig.asker.questions,
              QStringList{"Delete the 1 earlier backup? They still open with the old password."});
    EXPECT_EQ(backups.listBackups(files::canonicalPath(path.toStdString())).size(), 1u);
    EXPECT_TRUE(session.isDirty());
    EXPECT_EQ(session.document().topGroup()->groups().back().name(), "Unsaved");

    // Only the new password opens the file once saved (and the save backs the old file up first).
    session.save();
    const auto file = std::filesystem::path(path.toStdString());
    EXPECT_TRUE(opensWith(file, "new"));
    EXPECT_FALSE(opensWith(file, "right"));

    rig.asker.questions.clear();
    rig.asker.confirmations << true;
    window->menu()->action(ui::Command::changePassword)->trigger();
    dialog = page<ui::CredentialsDialog>(window, "changePasswordPage");
    ASSERT_TRUE(dialog);
    fill(dialog, "newer", "newer");
    QTest::mouseClick(dialog->acceptButton(), Qt::LeftButton);
    settle();
    EXPECT_EQ(rig.asker.questions,
              QStringList{"Delete the 2 earlier backups? They still open with the old password."});
    EXPECT_FALSE(std::filesystem::exists(folder));
}

TEST(Pages, settingsWarnAsTypedAndApplyClampedAsOneUndoableCommand)
{
    test::UiRig rig;
    auto* window = rig.windows->newWindow();
    auto* vault = rig.openUnlocked(rig.database("vault.kdbx"), window);
    auto& session = vault->session();
    const kdbx::OuterHeader before = session.kdbx().header;
    const auto history = session.document().historyMaxItems();

    window->menu()->action(ui::Command::databaseSettings)->trigger();
    auto* dialog = page<ui::SettingsDialog>(window, "databaseSettings");
    ASSERT_TRUE(dialog);
    // The test file derives its key with 64 KiB: under a megabyte reads as 0.
    EXPECT_EQ(dialog->memoryField()->text(), QStringLiteral("0"));
    EXPECT_TRUE(dialog->warningShown());
    test::retype(dialog->memoryField(), QStringLiteral("40"));
    EXPECT_EQ(dialog->warningLabel()->text(), QStringLiteral("Below the recommended 64 MB."));
    QTest::mouseClick(dialog->useRecommendedButton(), Qt::LeftButton);
    EXPECT_EQ(dialog->threadsField()->text(), QStringLiteral("2"));
    EXPECT_FALSE(dialog->warningShown());

    test::retype(dialog->memoryField(), QStringLiteral("99999"));
    test::retype(dialog->iterationsField(), QStringLiteral("0"));
    test::retype(dialog->threadsField(), QStringLiteral("200"));
    if (dialog->unlimitedBox()->isChecked())
        QTest::mouseClick(dialog->unlimitedBox(), Qt::LeftButton);
    EXPECT_TRUE(dialog->historyField()->isEnabled());
    test::retype(dialog->historyField(), QStringLiteral("abc"));
    test::retype(dialog->autoLockField(), QStringLiteral("-5"));
    dialog->cipherBox()->setCurrentIndex(1);
    dialog->kdfBox()->setCurrentIndex(1);
    QTest::mouseClick(dialog->reopenBox(), Qt::LeftButton);

    // The duress row: a mismatch changes nothing; a match is held until Apply.
    EXPECT_EQ(dialog->duressStatusLabel()->text(), QStringLiteral("Not set"));
    QTest::mouseClick(dialog->chooseDuressButton(), Qt::LeftButton);
    auto* duress = dialog->findChild<ui::CredentialsDialog*>(QStringLiteral("duressPage"));
    ASSERT_TRUE(duress);
    EXPECT_TRUE(duress->keyFileButton()->isHidden());
    fill(duress, "decoy", "decoi");
    QTest::mouseClick(duress->acceptButton(), Qt::LeftButton);
    EXPECT_EQ(dialog->duressStatusLabel()->text(), QStringLiteral("Not set"));
    fill(duress, "decoy", "decoy");
    QTest::mouseClick(duress->acceptButton(), Qt::LeftButton);
    EXPECT_EQ(dialog->duressStatusLabel()->text(), QStringLiteral("Set on Apply"));
    EXPECT_FALSE(rig.preferences.hasDuressPassword());

    QTest::mouseClick(dialog->applyButton(), Qt::LeftButton);
    const auto& kdf = session.kdbx().header.kdf;
    EXPECT_TRUE(kdbx::isIdentifier(session.kdbx().header.cipher, kdbx::cipherChaCha20));
    EXPECT_TRUE(kdbx::isIdentifier(*kdf.get<std::vector<std::uint8_t>>("$UUID"), kdbx::kdfArgon2d));
    EXPECT_EQ(*kdf.get<std::uint64_t>("M"), std::uint64_t{8192} << 20);
    EXPECT_EQ(*kdf.get<std::uint64_t>("I"), 1u);
    EXPECT_EQ(*kdf.get<std::uint32_t>("P"), 64u);
    EXPECT_EQ(session.document().historyMaxItems(), history);
    EXPECT_EQ(rig.preferences.idleLockMinutes(), 0);
    EXPECT_FALSE(rig.preferences.reopenLastDatabase());
    EXPECT_TRUE(rig.preferences.hasDuressPassword());
    EXPECT_TRUE(session.isDirty());

    // One command takes the database part back whole; the preferences stay as written.
    ASSERT_TRUE(session.undo());
    EXPECT_TRUE(session.kdbx().header == before);
    EXPECT_EQ(session.nextUndo(), nullptr);
    EXPECT_FALSE(session.isDirty());
    EXPECT_EQ(rig.preferences.idleLockMinutes(), 0);
}

TEST(Pages, expandedGroupsSurviveLockUnlockAndRelaunch)
{
    test::UiRig rig;
    const QString path = rig.database("vault.kdbx");
    auto* window = rig.windows->newWindow();
    auto* vault = rig.openUnlocked(path, window);
    auto& session = vault->session();
    const auto root = session.document().topGroup().value();
    const auto a = session.newGroup(root, "A").value();
    const auto a1 = session.newGroup(a, "A1").value();
    session.newGroup(a1, "A2");
    const auto b = session.newGroup(root, "B").value();
    session.newGroup(b, "B1");
    session.save();
    const auto id = [](const model::Group& group) {
        return QString::fromUtf8(group.uuid().data(), static_cast<qsizetype>(group.uuid().size()));
    };
    const QString aId = id(a), a1Id = id(a1), bId = id(b);

    // Found again by identity after each unlock, which decodes the file anew.
    const auto tree = [&] { return vault->findChild<QTreeView*>(); };
    const auto indexOf = [&](const QString& group) {
        const auto found = vault->session().document().findGroup(group.toStdString());
        return static_cast<ui::GroupTreeModel*>(tree()->model())->indexOf(found->element());
    };
    const auto expanded = [&](const QString& group) { return tree()->isExpanded(indexOf(group)); };
    state::DatabaseMemory memory(rig.preferences);

    tree()->expand(indexOf(aId));
    tree()->expand(indexOf(a1Id));
    auto* remembering = tree()->findChild<ui::ExpandedGroups*>();
    ASSERT_TRUE(remembering);
    EXPECT_TRUE(remembering->isWritePending());
    EXPECT_TRUE(memory.expandedGroups(path).isEmpty()); // held while the user is still clicking
    QTest::qWait(ui::ExpandedGroups::pause + 200);
    EXPECT_EQ(memory.expandedGroups(path), (QSet<QString>{aId, a1Id}));

    vault->perform(ui::Command::lockDatabase);
    unlock(rig, vault);
    ASSERT_NE(tree(), nullptr);
    EXPECT_TRUE(expanded(aId));
    EXPECT_TRUE(expanded(a1Id));
    EXPECT_FALSE(expanded(bId));

    // A collapse just before the lock is written as the tree goes.
    tree()->collapse(indexOf(a1Id));
    tree()->expand(indexOf(bId));
    vault->perform(ui::Command::lockDatabase);
    EXPECT_EQ(memory.expandedGroups(path), (QSet<QString>{aId, bId}));

    rig.relaunch();
    window = rig.windows->newWindow();
    vault = rig.openUnlocked(path, window);
    EXPECT_TRUE(expanded(aId));
    EXPECT_FALSE(expanded(a1Id));
    EXPECT_TRUE(expanded(bId));
}

TEST(Pages, windowsTabsFrontTabAndKeyFilesComeBackAtTheNextLaunch)
{
    test::UiRig rig;
    const QString a = rig.database("a.kdbx"), b = rig.database("b.kdbx");
    const auto keyPath = rig.dir / "c.key";
    test::writeFile(keyPath, std::string_view("key bytes"));
    auto withKey = test::passwordOnly("right");
    withKey.keyFile = kdbx::SecureBytes::fromText("key bytes");
    test::writeFile(rig.dir / "c.kdbx", test::tinyFile(withKey));
    const QString c = QString::fromStdString((rig.dir / "c.kdbx").string());

    auto* first = rig.windows->newWindow();
    rig.windows->open(a, first, first->currentVault());
    rig.windows->open(b, first);
    first->tabs()->setCurrentIndex(1);
    auto* second = rig.windows->newWindow();
    auto* vault = rig.windows->open(c, second, second->currentVault());
    vault->session().setPendingKeyFile(keyPath);
    unlock(rig, vault);
    ASSERT_TRUE(vault->session().isOpen());
    ui::AppDelegate(*rig.windows, rig.preferences, rig.clipboard).willTerminate();

    rig.relaunch();
    ui::AppDelegate delegate(*rig.windows, rig.preferences, rig.clipboard);
    delegate.finishLaunching();
    const auto windows = rig.windows->windows();
    ASSERT_EQ(windows.size(), 2u);
    // The window in front at quit is in front again, showing the database with its key file offered.
    EXPECT_EQ(rig.windows->frontVault()->path(), c);
    EXPECT_EQ(rig.windows->frontVault()->session().unlockScreen().keyFile, files::canonicalPath(keyPath));
    auto* back = windows[1];
    ASSERT_EQ(back->tabs()->count(), 2);
    EXPECT_EQ(back->vaults()[0]->path(), a);
    EXPECT_EQ(back->vaults()[1]->path(), b);
    EXPECT_EQ(back->tabs()->currentIndex(), 1);
}

} // namespace
