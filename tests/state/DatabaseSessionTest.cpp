#include "state/DatabaseSession.h"

#include "files/CanonicalPath.h"
#include "files/OpenFiles.h"
#include "model/Attachments.h"
#include "state/UnlockTexts.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gmock/gmock.h>

#include <QCoreApplication>

#include <deque>

using namespace quillon;
using namespace quillon::state;
using ::testing::ElementsAre;

namespace {

QCoreApplication &application()
{
    static int argc = 1;
    static char name[] = "test_state";
    static char *argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    return app;
}

kdbx::SecureBytes text(std::string_view t)
{
    return kdbx::SecureBytes::fromText(t);
}

class DatabaseSessionTest : public ::testing::Test
{
protected:
    DatabaseSessionTest()
    {
        application();
        test::writeFile(path, test::tinyFile(test::passwordOnly("right")));
        services.openFiles = &registry;
        services.isDuress = [](kdbx::ByteView t) {
            return std::string_view(reinterpret_cast<const char *>(t.data()), t.size()) == "duress";
        };
        services.clock = [this] { return now; };
        services.runInBackground = [this](std::function<void()> job) { jobs.push_back(std::move(job)); };
    }

    std::unique_ptr<DatabaseSession> open()
    {
        auto session = std::make_unique<DatabaseSession>(services);
        QObject::connect(session.get(), &DatabaseSession::shake, [this] { ++shakes; });
        QObject::connect(session.get(), &DatabaseSession::alert, [this](const QString &m) { alerts << m; });
        EXPECT_FALSE(session->openLocation(path));
        return session;
    }

    // Runs the decoding that was handed to the background and delivers its result.
    void finishJobs()
    {
        while (!jobs.empty()) {
            auto job = std::move(jobs.front());
            jobs.pop_front();
            job();
        }
        QCoreApplication::processEvents();
    }

    void unlock(DatabaseSession &session, std::string_view typed)
    {
        session.attemptUnlock(text(typed));
        finishJobs();
    }

    test::TempDir dir;
    std::filesystem::path path = dir / "vault.kdbx";
    files::OpenFiles registry;
    SessionServices services;
    std::deque<std::function<void()>> jobs;
    kdbx::SystemTime now{std::chrono::seconds(1'700'000'000)};
    int shakes = 0;
    QStringList alerts;
};

// Unlock, edit, lock with the changes sealed, unlock them again, save, lock to the file.
TEST_F(DatabaseSessionTest, lockKeepsUnsavedChangesSealedAndAnUnchangedDatabaseLocksToItsFile)
{
    auto session = open();
    EXPECT_TRUE(session->isLocked());
    EXPECT_EQ(session->unlockScreen().title, QStringLiteral("vault.kdbx is locked"));
    EXPECT_EQ(session->unlockScreen().hint, unlockText::hintFile);

    unlock(*session, "wrong");
    EXPECT_EQ(shakes, 1);
    EXPECT_TRUE(session->isLocked());
    EXPECT_EQ(session->unlockScreen().hint, unlockText::hintFile);

    unlock(*session, "right");
    ASSERT_TRUE(session->isOpen());
    EXPECT_FALSE(session->isDirty());
    auto entry = session->document().topGroup()->allEntries().front();
    ASSERT_TRUE(session->editField(entry, "Title", "Changed"));
    EXPECT_TRUE(session->isDirty());

    session->lock();
    EXPECT_TRUE(session->hasLockedSnapshot());
    EXPECT_FALSE(session->isOpen());
    EXPECT_FALSE(session->credentials());
    EXPECT_TRUE(session->isDirty());
    EXPECT_EQ(session->nextUndo(), nullptr); // nothing typed outlives the lock
    EXPECT_EQ(session->unlockScreen().hint, unlockText::hintSnapshot);

    unlock(*session, "right");
    ASSERT_TRUE(session->isOpen());
    EXPECT_TRUE(session->isDirty());
    EXPECT_EQ(session->document().topGroup()->allEntries().front().title(), "Changed");

    // The save replaces the file; the registry follows it, so a new file that gets the freed inode is free.
    session->save();
    EXPECT_FALSE(session->isDirty());
    test::writeFile(dir / "other.kdbx", std::string_view("x"));
    EXPECT_FALSE(registry.owner(dir / "other.kdbx"));
    EXPECT_EQ(registry.owner(path), session->owner());

    session->lock();
    EXPECT_FALSE(session->hasLockedSnapshot());
    EXPECT_EQ(session->unlockScreen().hint, unlockText::hintFile);
    unlock(*session, "right");
    EXPECT_EQ(session->document().topGroup()->allEntries().front().title(), "Changed");
    EXPECT_TRUE(alerts.isEmpty());
}

// Setting a PIN, what a wrong one costs, the password at the PIN screen, and three tries.
TEST_F(DatabaseSessionTest, pinTriesAndFallBacks)
{
    auto session = open();
    session->beginSettingPIN(text(""));
    EXPECT_EQ(session->unlockScreen().hint, unlockText::hintTypePasswordFirst);
    session->beginSettingPIN(text("right"));
    EXPECT_EQ(session->unlockScreen().placeholder, unlockText::placeholderNewPIN);
    session->attemptUnlock(text("123"));
    EXPECT_EQ(session->unlockScreen().hint, QStringLiteral("A PIN needs at least 4 characters."));
    session->attemptUnlock(text("duress"));
    EXPECT_EQ(session->unlockScreen().hint, QStringLiteral("That's the duress password. Choose another PIN."));
    unlock(*session, "2468");
    ASSERT_TRUE(session->isOpen());

    session->lock();
    EXPECT_TRUE(session->unlockScreen().pinMode);
    EXPECT_EQ(session->unlockScreen().placeholder, unlockText::placeholderPIN);
    unlock(*session, "right"); // the password itself, at the PIN screen: no try spent
    ASSERT_TRUE(session->isOpen());
    EXPECT_EQ(session->pinGate().pinLock()->triesLeft, 3);

    session->lock();
    unlock(*session, "nope1");
    EXPECT_EQ(session->unlockScreen().hint, QStringLiteral("Wrong. 2 more tries."));
    unlock(*session, "nope2");
    EXPECT_EQ(session->unlockScreen().hint, QStringLiteral("Wrong. One more try."));
    EXPECT_EQ(shakes, 2);
    unlock(*session, "2468"); // a right PIN restores the tries
    ASSERT_TRUE(session->isOpen());

    session->lock();
    for (const auto *wrong : {"a1234", "b1234", "c1234"})
        unlock(*session, wrong);
    EXPECT_FALSE(session->unlockScreen().pinMode);
    EXPECT_EQ(session->unlockScreen().hint, QStringLiteral("Too many wrong tries. Enter the password."));
    EXPECT_FALSE(session->pinGate().holdsCredentials());
    unlock(*session, "2468");
    EXPECT_FALSE(session->isOpen()); // now only a password
}

// The duress password at the PIN screen opens the decoy and keeps the real unsaved changes behind it.
TEST_F(DatabaseSessionTest, duressAtThePinScreenShowsTheDecoyAndHoldsTheRealChanges)
{
    auto session = open();
    session->beginSettingPIN(text("right"));
    unlock(*session, "1357");
    auto entry = session->document().topGroup()->allEntries().front();
    session->editField(entry, "UserName", "real-change");
    session->lock();
    ASSERT_TRUE(session->unlockScreen().pinMode);

    unlock(*session, "duress");
    ASSERT_TRUE(session->isOpen());
    EXPECT_TRUE(session->isDecoy());
    EXPECT_TRUE(session->document().topGroup()->allEntries().empty());
    EXPECT_TRUE(session->hasHeldSnapshot());
    EXPECT_FALSE(session->pinGate().pinLock());

    // Opened at the PIN screen the decoy has no credentials; reopening it the same way gives the real one.
    session->lock();
    EXPECT_TRUE(session->isDecoy()); // nothing to lock with
    session.reset();
    session = open();
    unlock(*session, "duress");
    ASSERT_TRUE(session->isDecoy()); // the password screen checks the duress password after a failure
    session->lock();
    EXPECT_FALSE(session->hasLockedSnapshot()); // a decoy is never sealed
    unlock(*session, "right");
    EXPECT_FALSE(session->isDecoy());
}

// Rebuilding the screen while decoding orphans the attempt: its result never lands.
TEST_F(DatabaseSessionTest, aLateResultIsDropped)
{
    auto session = open();
    session->attemptUnlock(text("right"));
    EXPECT_TRUE(session->unlockScreen().unlocking);
    EXPECT_EQ(session->unlockScreen().hint, unlockText::hintUnlocking);
    session->openLocation(path); // the screen is rebuilt
    finishJobs();
    EXPECT_FALSE(session->isOpen());
    EXPECT_FALSE(session->unlockScreen().unlocking);
}

// Each change is one command with precise notifications; undo gives the same XML back, and the saved
// point decides what is unsaved.
TEST_F(DatabaseSessionTest, commandsNotifyAndUndoToTheSavedPoint)
{
    auto session = open();
    unlock(*session, "right");
    auto &document = session->document();
    const auto top = *document.topGroup();
    const auto original = test::xmlText(document.xml());
    const auto pool = session->kdbx().inner.binaries.size();

    QStringList events;
    QObject::connect(session.get(), &DatabaseSession::itemAboutToBeInserted,
                     [&](pugi::xml_node, ItemKind kind, int row) {
                         events << QStringLiteral("insert %1 at %2").arg(int(kind)).arg(row);
                     });
    QObject::connect(session.get(), &DatabaseSession::itemAboutToBeRemoved,
                     [&](pugi::xml_node, ItemKind, int row) { events << QStringLiteral("remove at %1").arg(row); });
    QObject::connect(session.get(), &DatabaseSession::itemAboutToBeMoved,
                     [&](pugi::xml_node, ItemKind, int from, pugi::xml_node, int to) {
                         events << QStringLiteral("move %1 to %2").arg(from).arg(to);
                     });
    QObject::connect(session.get(), &DatabaseSession::itemChanged, [&](pugi::xml_node e, ItemKind) {
        events << QStringLiteral("changed ") + QString::fromUtf8(e.name());
    });
    QList<bool> dirty;
    QObject::connect(session.get(), &DatabaseSession::dirtyChanged, [&](bool d) { dirty << d; });

    const auto added = session->newEntry(top, "Second");
    ASSERT_TRUE(added);
    ASSERT_TRUE(session->addAttachment(*added, "a.txt", text("attached")));
    EXPECT_EQ(session->kdbx().inner.binaries.size(), pool + 1);
    const auto work = session->newGroup(top, "Work");
    const std::string workUuid(work->uuid()); // views of items that undo takes away do not come back
    EXPECT_EQ(session->moveEntry(*added, *work), model::MoveResult::moved);
    EXPECT_EQ(session->moveEntry(*added, *work), model::MoveResult::refused);
    EXPECT_FALSE(session->editField(*added, "Title", "Second\x01")); // the same once stored
    EXPECT_THAT(events, ElementsAre(QStringLiteral("insert 0 at 1"), QStringLiteral("changed Entry"),
                                    QStringLiteral("insert 1 at 0"), QStringLiteral("move 1 to 0"),
                                    QStringLiteral("changed Entry")));
    EXPECT_THAT(dirty, ElementsAre(true));

    session->save();
    EXPECT_THAT(dirty, ElementsAre(true, false));
    events.clear();
    while (session->undo()) {
    }
    EXPECT_EQ(test::xmlText(document.xml()), original);
    EXPECT_EQ(session->kdbx().inner.binaries.size(), pool);
    EXPECT_TRUE(session->isDirty()); // undo crosses the save
    EXPECT_EQ(events.last(), QStringLiteral("remove at 1"));
    for (int i = 0; i < 4; ++i)
        session->redo();
    EXPECT_FALSE(session->isDirty()); // back at the saved point
    EXPECT_THAT(dirty, ElementsAre(true, false, true, false));

    // A new command drops what could have been redone, and the saved point with it when it lay ahead.
    session->undo();
    session->renameGroup(*document.findGroup(workUuid), "Renamed");
    EXPECT_EQ(session->nextRedo(), nullptr);
    session->undo();
    EXPECT_TRUE(session->isDirty());
}

} // namespace

namespace {

// When the changes cannot be sealed the database stays open and says why; once the settings change that
// broke encoding is undone, the database is unchanged again and locks to its file.
TEST_F(DatabaseSessionTest, aLockThatCannotSealTheChangesLeavesTheDatabaseOpen)
{
    auto session = open();
    unlock(*session, "right");
    ASSERT_TRUE(
        session->changeSettings(QStringLiteral("Database Settings"), [](kdbx::OuterHeader &header, model::Document &) {
            header.cipher = {1, 2, 3};
        }));
    session->lock();
    EXPECT_TRUE(session->isOpen());
    ASSERT_EQ(alerts.size(), 1);
    EXPECT_TRUE(alerts[0].startsWith(
        QStringLiteral("Quillon could not lock the database because it could not encrypt your unsaved changes (")));
    EXPECT_TRUE(alerts[0].endsWith(QStringLiteral("). Save them, then lock again.")));

    ASSERT_TRUE(session->undo());
    EXPECT_FALSE(session->isDirty());
    session->lock();
    EXPECT_TRUE(session->isLocked());
    EXPECT_FALSE(session->hasLockedSnapshot());
}

} // namespace

namespace {

// The run backs a file up once however often it is locked and unlocked; a save on a worker writes the state it
// began with, so an edit made meanwhile stays unsaved.
TEST_F(DatabaseSessionTest, savesBackUpOncePerRunAndABackgroundSaveKeepsLaterEditsUnsaved)
{
    const files::Backups backups(dir / "backups");
    services.backups = &backups;
    auto session = open();
    unlock(*session, "right");
    auto entry = [&] { return session->document().topGroup()->allEntries().front(); };
    session->editField(entry(), "Title", "One");
    EXPECT_EQ(session->save(), files::PreSaveBackup::Outcome::made);
    session->lock();
    unlock(*session, "right");
    session->editField(entry(), "Title", "Two");

    QList<files::PreSaveBackup::Outcome> saved;
    QObject::connect(session.get(), &DatabaseSession::saved, [&](auto outcome) { saved << outcome; });
    ASSERT_TRUE(session->saveInBackground(path, session->stamp()));
    EXPECT_TRUE(session->isSaving());
    session->editField(entry(), "Title", "Three");
    session->lock(); // waits for the save
    EXPECT_TRUE(session->isOpen());
    finishJobs();
    EXPECT_THAT(saved, ElementsAre(files::PreSaveBackup::Outcome::skipped));
    EXPECT_EQ(backups.listBackups(files::canonicalPath(path)).size(), 1u);
    // The lock that waited has sealed "Three"; the file holds "Two".
    EXPECT_TRUE(session->hasLockedSnapshot());
    auto reopened = kdbx::KdbxFile::open(test::readFile(path), test::passwordOnly("right"));
    model::Document onDisk(reopened->document);
    EXPECT_EQ(onDisk.topGroup()->allEntries().front().title(), "Two");
    unlock(*session, "right");
    EXPECT_TRUE(session->isDirty());
}

} // namespace
