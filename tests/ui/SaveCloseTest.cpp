// Saving, closing and quitting with unsaved changes, and the changes a killed save left behind, on real files.
#include "tests/ui/UiTest.h"

#include "files/DatabaseFile.h"
#include "files/Posix.h"
#include "tests/support/Helpers.h"
#include "tests/support/TestDb.h"
#include "ui/MainWindow.h"
#include "ui/SaveFlow.h"
#include "ui/VaultWindow.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QSignalSpy>
#include <QUrl>

using namespace quillon;
using ui::SaveAnswer;

namespace {

std::vector<std::uint8_t> bytesOf(const QString& path)
{
    return files::readDiskBytes(test::pathOf(path)).bytes;
}

// The first entry's title in the file on disk, opened with the rig's password.
std::string titleOnDisk(const QString& path)
{
    const auto file = kdbx::KdbxFile::open(bytesOf(path), test::passwordOnly("right"));
    const auto entry = file->document.select_node("//Entry").node();
    return test::field(entry, "Title");
}

void retitle(ui::VaultWindow* vault, std::string_view title)
{
    auto& session = vault->session();
    ASSERT_TRUE(session.editField(session.document().topGroup()->allEntries().front(), "Title", title));
}

// Another program's version of the file: the same size, one byte of the payload changed, its date set back.
std::vector<std::uint8_t> rewriteInPlace(const QString& path)
{
    auto bytes = bytesOf(path);
    bytes[bytes.size() - 20] ^= 0x5a;
    const auto file = test::pathOf(path);
    test::writeFile(file, bytes);
    std::filesystem::last_write_time(file, std::filesystem::last_write_time(file) - std::chrono::hours(24));
    return bytes;
}

} // namespace

TEST(SaveClose, saveAsksBeforeWritingOverAFileThatChangedOrWentAway)
{
    test::UiRig rig;
    const QString path = rig.database("vault.kdbx");
    auto* vault = rig.openUnlocked(path);
    auto& session = vault->session();

    // Written while the window shows it is saving; Save waits for the end.
    retitle(vault, "First");
    vault->perform(ui::Command::saveDatabase);
    EXPECT_EQ(vault->subtitle(), QStringLiteral("Saving…"));
    EXPECT_FALSE(vault->canPerform(ui::Command::saveDatabase));
    retitle(vault, "Typed while saving");
    rig.finishJobs();
    EXPECT_EQ(titleOnDisk(path), "First");
    EXPECT_TRUE(session.isDirty());
    EXPECT_TRUE(vault->subtitle().isEmpty());
    EXPECT_TRUE(rig.asker.questions.isEmpty());

    // Same size and an older date: still asked. "No" writes nothing and keeps the changes.
    const auto theirs = rewriteInPlace(path);
    vault->perform(ui::Command::saveDatabase);
    EXPECT_EQ(rig.asker.questions.value(0), QStringLiteral("vault.kdbx was changed by another app since you opened it. "
                                                           "Overwrite it with your version?"));
    EXPECT_TRUE(rig.jobs.empty());
    EXPECT_EQ(bytesOf(path), theirs);
    EXPECT_TRUE(session.isDirty());

    // Another program writes again while the save is under way: asked again, and "No" keeps its file.
    rig.asker.confirmations = {true, false};
    vault->perform(ui::Command::saveDatabase);
    const auto again = rewriteInPlace(path);
    rig.finishJobs();
    ASSERT_EQ(rig.asker.questions.size(), 3);
    EXPECT_EQ(rig.asker.questions[2], rig.asker.questions[0]);
    EXPECT_EQ(bytesOf(path), again);
    EXPECT_TRUE(session.isDirty());
    EXPECT_TRUE(rig.asker.warnings.isEmpty());

    // "Yes" overwrites.
    rig.asker.confirmations = {true};
    vault->perform(ui::Command::saveDatabase);
    rig.finishJobs();
    EXPECT_EQ(titleOnDisk(path), "Typed while saving");
    EXPECT_FALSE(session.isDirty());

    // Moved away: the other question; "No" does not put it back.
    const auto moved = test::pathOf(path).parent_path() / "moved.kdbx";
    std::filesystem::rename(test::pathOf(path), moved);
    retitle(vault, "After the move");
    vault->perform(ui::Command::saveDatabase);
    EXPECT_EQ(rig.asker.questions.last(),
              QStringLiteral("vault.kdbx was moved or deleted since you opened it. Save it there again?"));
    EXPECT_FALSE(std::filesystem::exists(test::pathOf(path)));
    EXPECT_TRUE(session.isDirty());

    // A write that fails for a reason of its own: the alert, the changes kept.
    std::filesystem::rename(moved, test::pathOf(path));
    std::filesystem::permissions(test::pathOf(path).parent_path(), std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::remove);
    vault->perform(ui::Command::saveDatabase);
    rig.finishJobs();
    std::filesystem::permissions(test::pathOf(path).parent_path(), std::filesystem::perms::owner_write,
                                 std::filesystem::perm_options::add);
    ASSERT_EQ(rig.asker.warnings.size(), 1);
    EXPECT_TRUE(rig.asker.warnings[0].startsWith(QStringLiteral("Could not save: ")));
    EXPECT_TRUE(session.isDirty());
}

TEST(SaveClose, saveAsRefusesAFileOpenElsewhereAndTakesTheClaimAlong)
{
    test::UiRig rig;
    const QString a = rig.database("a.kdbx");
    const QString b = rig.database("b.kdbx");
    auto* vault = rig.openUnlocked(a);
    rig.windows->open(b, nullptr);
    retitle(vault, "Moved on");

    rig.asker.answers = {b};
    vault->perform(ui::Command::saveDatabaseAs);
    EXPECT_EQ(rig.asker.suggestions.value(0), a);
    EXPECT_EQ(rig.asker.warnings, QStringList{"b.kdbx is open in another window. Close it there first."});
    EXPECT_TRUE(rig.jobs.empty());

    const QString c = QString::fromStdString((rig.dir / "c.kdbx").string());
    rig.asker.answers = {c};
    vault->perform(ui::Command::saveDatabaseAs);
    rig.finishJobs();
    EXPECT_EQ(titleOnDisk(c), "Moved on");
    EXPECT_EQ(vault->path(), c);
    EXPECT_EQ(vault->title(), QStringLiteral("c.kdbx"));
    EXPECT_FALSE(vault->session().isDirty());
    auto& registry = rig.windows->openFiles();
    EXPECT_EQ(registry.owner(test::pathOf(c)), vault->session().owner());
    EXPECT_FALSE(registry.owner(test::pathOf(a)));

    // A database that was never saved goes to Save As, which suggests a name.
    auto* fresh = rig.windows->newTab();
    fresh->session().createNew(test::passwordOnly("right"));
    rig.asker.answers = {QString()};
    fresh->perform(ui::Command::saveDatabase);
    EXPECT_EQ(rig.asker.suggestions.last(), QStringLiteral("Quillon.kdbx"));
    EXPECT_TRUE(fresh->session().isDirty());
}

TEST(SaveClose, closingAsksAboutChangesAndQuitStopsAtCancel)
{
    test::UiRig rig;
    const QString a = rig.database("a.kdbx");
    const QString b = rig.database("b.kdbx");
    auto* first = rig.openUnlocked(a);
    retitle(first, "Kept");

    rig.windows->closeVault(first);
    EXPECT_EQ(rig.asker.questions.value(0), QStringLiteral("Do you want to save the changes to a.kdbx?"));
    EXPECT_EQ(rig.asker.notes.value(0), QStringLiteral("Your changes will be lost if you don't save them."));
    ASSERT_EQ(rig.windows->all().size(), 1u); // Cancel keeps it

    // Save closes once the file is written.
    rig.asker.saveAnswers = {SaveAnswer::save};
    rig.windows->closeVault(first);
    EXPECT_EQ(rig.windows->all().size(), 1u);
    rig.finishJobs();
    EXPECT_TRUE(rig.windows->all().empty());
    EXPECT_EQ(titleOnDisk(a), "Kept");

    // Locked with changes: the other note, and Save writes the sealed changes without unlocking.
    auto* second = rig.openUnlocked(b);
    retitle(second, "Sealed");
    second->perform(ui::Command::lockDatabase);
    ASSERT_TRUE(second->session().hasLockedSnapshot());
    rig.asker.saveAnswers = {SaveAnswer::save};
    rig.windows->closeVault(second);
    rig.finishJobs();
    EXPECT_EQ(rig.asker.notes.last(), QStringLiteral("The database is locked, but your changes can still be saved."));
    EXPECT_TRUE(rig.windows->all().empty());
    EXPECT_EQ(titleOnDisk(b), "Sealed");

    // Quitting asks each window with changes in turn and stops at Cancel; Don't Save discards.
    QSignalSpy quit(rig.windows.get(), &ui::Windows::quitRequested);
    auto* one = rig.openUnlocked(a);
    auto* two = rig.openUnlocked(b);
    retitle(one, "Dropped");
    retitle(two, "Dropped too");
    const auto asked = rig.asker.questions.size();
    rig.asker.saveAnswers = {SaveAnswer::dontSave, SaveAnswer::cancel};
    rig.windows->perform(ui::Command::terminate);
    EXPECT_EQ(rig.asker.questions.size(), asked + 2);
    EXPECT_EQ(quit.count(), 0);
    rig.asker.saveAnswers = {SaveAnswer::dontSave, SaveAnswer::dontSave};
    rig.windows->perform(ui::Command::terminate);
    EXPECT_EQ(quit.count(), 1);
    EXPECT_EQ(titleOnDisk(a), "Kept");

    // The window's close button asks too, and Cancel keeps it open.
    auto* window = qobject_cast<ui::MainWindow*>(one->window());
    window->show();
    rig.asker.saveAnswers = {SaveAnswer::cancel};
    EXPECT_FALSE(window->close());
    rig.finishJobs();
    EXPECT_TRUE(window->isVisible());
    EXPECT_EQ(rig.asker.questions.last(), QStringLiteral("Do you want to save the changes to a.kdbx?"));
}

// A save killed between writing its temporary file and putting it in place (here the rename and the clean-up
// fail) leaves the newest version beside the database; the next unlock offers it back.
TEST(SaveClose, theChangesOfAKilledSaveAreOfferedBack)
{
    test::UiRig rig;
    const QString path = rig.database("vault.kdbx");
    const auto file = test::pathOf(path);
    std::filesystem::last_write_time(file, std::filesystem::last_write_time(file) - std::chrono::hours(1));
    auto* vault = rig.openUnlocked(path);
    retitle(vault, "Only in the temporary file");
    vault->perform(ui::Command::saveDatabase);
    {
        auto previous = files::posix::setInterceptor([](files::posix::Call call) {
            return call == files::posix::Call::rename || call == files::posix::Call::unlink ? EIO : 0;
        });
        rig.finishJobs();
        files::posix::setInterceptor(previous);
    }
    ASSERT_EQ(rig.asker.warnings.size(), 1);
    rig.asker.saveAnswers = {SaveAnswer::dontSave};
    rig.windows->closeVault(vault);
    const auto onDisk = bytesOf(path);
    std::vector<std::filesystem::path> temporary;
    for (const auto& item : std::filesystem::directory_iterator(rig.dir.path()))
        if (item.path().filename().string().starts_with(".vault.kdbx."))
            temporary.push_back(item.path());
    ASSERT_EQ(temporary.size(), 1u);

    // "Yes": the changes come in unsaved; the database file is untouched and nothing is removed.
    rig.asker.confirmations = {true};
    vault = rig.openUnlocked(path);
    rig.finishJobs();
    const auto written = QFileInfo(QString::fromStdString(temporary[0].string())).lastModified();
    EXPECT_EQ(rig.asker.questions.last(),
              QStringLiteral("Quillon found changes that were not saved when it last stopped, from %1. Recover them?")
                  .arg(ui::SaveFlow::dateAndTime(written)));
    auto& session = vault->session();
    EXPECT_EQ(session.document().topGroup()->allEntries().front().title(), "Only in the temporary file");
    EXPECT_TRUE(session.isDirty());
    EXPECT_EQ(bytesOf(path), onDisk);
    EXPECT_TRUE(std::filesystem::exists(temporary[0]));

    // One that does not open is named and left alone.
    test::writeFile(temporary[0], std::vector<std::uint8_t>(300, 7));
    rig.asker.saveAnswers = {SaveAnswer::dontSave};
    rig.windows->closeVault(vault);
    const auto asked = rig.asker.questions.size();
    vault = rig.openUnlocked(path);
    rig.finishJobs();
    EXPECT_EQ(rig.asker.questions.size(), asked);
    EXPECT_EQ(rig.asker.warnings.last(),
              QStringLiteral("Quillon found changes that were not saved when it last stopped, but could not open them."));
    EXPECT_TRUE(rig.asker.notes.last().contains(QString::fromStdString(temporary[0].filename().string())));
    EXPECT_TRUE(std::filesystem::exists(temporary[0]));
    EXPECT_FALSE(vault->session().isDirty());
}

// Driven with no window: a backup that cannot be made only shows its status line while the save goes on; the
// backups folder opens once there is one, and until then the user is told there is none.
TEST(SaveClose, backupsBeforeSavingAndShowingThem)
{
    test::UiRig rig;
    const QString path = rig.database("vault.kdbx");
    test::writeFile(rig.dir / "blocked", std::string_view("a file where the folder would go"));
    for (const bool blocked : {true, false}) {
        const files::Backups backups(rig.dir / (blocked ? "blocked" : "Backups"));
        state::DatabaseSession session(rig.services(&backups));
        auto read = files::readDiskBytes(test::pathOf(path));
        session.adopt(test::pathOf(path), kdbx::KdbxFile::open(read.bytes, test::passwordOnly("right")),
                      test::passwordOnly("right"), read.stamp);
        QStringList subtitles;
        QList<QUrl> opened;
        ui::SaveFlow::Window window;
        window.showSubtitle = [&](const QString& text) { subtitles << text; };
        window.openFolder = [&](const QUrl& url) { opened << url; };
        ui::SaveFlow flow(session, rig.asker, nullptr, &backups, window);

        rig.asker.warnings.clear();
        flow.showBackups();
        EXPECT_EQ(rig.asker.warnings, QStringList{"There are no backups of vault.kdbx yet. One is made before the "
                                                  "first save of each session."});
        const std::string title = blocked ? "Saved once" : "Saved twice";
        ASSERT_TRUE(session.editField(session.document().topGroup()->allEntries().front(), "Title", title));
        bool saved = false;
        flow.save([&](bool ok) { saved = ok; });
        rig.finishJobs();
        EXPECT_TRUE(saved);
        EXPECT_EQ(titleOnDisk(path), title);
        EXPECT_EQ(subtitles, blocked ? QStringList{"Could not back up the file first"} : QStringList());
        flow.showBackups();
        EXPECT_EQ(opened.size(), blocked ? 0 : 1);
    }
}
