#include "files/Backups.h"
#include "files/PreSaveBackup.h"
#include "files/SafeWrite.h"
#include "kdbx/Random.h"
#include "tests/files/Seam.h"
#include "tests/support/Helpers.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <cstdlib>
#include <ctime>
#include <optional>

using namespace quillon;
using namespace quillon::files;
using quillon::test::readFile;
using quillon::test::TempDir;
using quillon::test::writeFile;
namespace fs = std::filesystem;

namespace {

using quillon::test::modeOf;

using Bytes = std::vector<std::uint8_t>;
using Time = std::chrono::system_clock::time_point;

// 2024-05-01 13:07:42.123 UTC.
const Time someMoment = Time(std::chrono::milliseconds(1714568862123));

// A clock that moves one second each time it is read, so that backup names never collide.
struct TickingClock {
    std::shared_ptr<Time> now = std::make_shared<Time>(someMoment);
    Backups::Clock clock() const
    {
        return [now = now] { return std::exchange(*now, *now + std::chrono::seconds(1)); };
    }
};

struct UtcZone {
    std::optional<test::ScopedEnv> zone{std::in_place, "TZ", "UTC"};
    UtcZone() { ::tzset(); }
    ~UtcZone()
    {
        zone.reset();
        ::tzset();
    }
};

// One save of a window: SafeWrite with the window's backup hook.
DiskStamp save(PreSaveBackup& window, const Backups& backups, const fs::path& database, const Bytes& bytes,
               bool enabled = true, PreSaveBackup::Outcome* outcome = nullptr)
{
    return SafeWrite::write(bytes, database, DiskStamp::ofFile(database), {}, [&] {
        const auto result = window.beforeSave(backups, database, enabled);
        if (outcome)
            *outcome = result;
    });
}

TEST(Backups, namesFollowTheDatabaseThePathTextAndTheLocalTime)
{
    const UtcZone utc;
    TempDir dir;
    const Backups backups(dir / "Backups", [] { return someMoment; });
    // SHA-256("abc") begins ba7816bf (FIPS 180-2, appendix B.1).
    EXPECT_EQ(backups.backupFolder("abc"), dir / "Backups" / "abc-ba7816bf");
    EXPECT_NE(backups.backupFolder("/home/ann/Work.kdbx"), backups.backupFolder("/home/bob/Work.kdbx"));
    EXPECT_EQ(backups.backupFolder("/home/ann/Work.kdbx").filename().string().substr(0, 5), "Work-");

    const auto database = dir / "Work.kdbx";
    writeFile(database, "content");
    ASSERT_TRUE(backups.makeBackup(database));
    const auto made = backups.listBackups(database);
    ASSERT_EQ(made.size(), 1u);
    EXPECT_EQ(made[0].filename(), "Work 2024-05-01 13.07.42.123.kdbx");
    EXPECT_EQ(readFile(made[0]), readFile(database));
}

TEST(Backups, sevenSavesInOneRunMakeOneBackupOfTheFileAsItWas)
{
    TempDir dir;
    const Backups backups(dir / "Backups", TickingClock().clock());
    const auto database = dir / "db.kdbx";
    PreSaveBackup window;

    PreSaveBackup::Outcome outcome{};
    save(window, backups, database, kdbx::randomBytes(1000), true, &outcome);
    EXPECT_EQ(outcome, PreSaveBackup::Outcome::skipped) << "no backup of a first save";
    EXPECT_TRUE(backups.listBackups(database).empty());

    const Bytes firstOnDisk = readFile(database);
    for (int i = 0; i < 7; ++i)
        save(window, backups, database, kdbx::randomBytes(1000));
    const auto made = backups.listBackups(database);
    ASSERT_EQ(made.size(), 1u);
    EXPECT_EQ(readFile(made[0]), firstOnDisk);
}

TEST(Backups, sevenRunsKeepTheFiveNewestInPrivateFolders)
{
    TempDir dir;
    const auto root = dir / "data" / "Quillon" / "Backups";
    const TickingClock ticking;
    const Backups backups(root, ticking.clock());
    const auto database = dir / "db.kdbx";
    writeFile(database, kdbx::randomBytes(2000));
    ASSERT_EQ(::chmod(database.c_str(), 0644), 0);

    std::vector<Bytes> versionsBeforeEachRun;
    for (int run = 0; run < 7; ++run) {
        PreSaveBackup window; // a new run of the application
        versionsBeforeEachRun.push_back(readFile(database));
        save(window, backups, database, kdbx::randomBytes(2000));
        save(window, backups, database, kdbx::randomBytes(2000));
    }
    const auto kept = backups.listBackups(database);
    ASSERT_EQ(kept.size(), 5u);
    for (std::size_t i = 0; i < kept.size(); ++i) {
        EXPECT_EQ(readFile(kept[i]), versionsBeforeEachRun[i + 2]) << "the two oldest went first";
        EXPECT_EQ(modeOf(kept[i]), 0600);
    }
    for (const auto& folder : {dir / "data", dir / "data" / "Quillon", root, backups.backupFolder(database)})
        EXPECT_EQ(modeOf(folder), 0700) << folder;

    // A folder left open to others (restored by hand, say) is closed again by the next backup.
    ASSERT_EQ(::chmod(backups.backupFolder(database).c_str(), 0755), 0);
    ASSERT_TRUE(backups.makeBackup(database));
    EXPECT_EQ(modeOf(backups.backupFolder(database)), 0700);
}

TEST(Backups, aFailedOrDisabledBackupNeverStopsTheSaveAndIsNotRetried)
{
    TempDir dir;
    writeFile(dir / "not-a-folder", "x");
    const Backups nowhere(dir / "not-a-folder" / "Backups");
    const auto database = dir / "db.kdbx";
    writeFile(database, "old");

    PreSaveBackup window;
    PreSaveBackup::Outcome outcome{};
    const Bytes next = kdbx::randomBytes(100);
    save(window, nowhere, database, next, true, &outcome);
    EXPECT_EQ(outcome, PreSaveBackup::Outcome::failed);
    EXPECT_EQ(readFile(database), next);
    save(window, nowhere, database, kdbx::randomBytes(100), true, &outcome);
    EXPECT_EQ(outcome, PreSaveBackup::Outcome::skipped) << "one attempt per file per run";

    const Backups backups(dir / "Backups", TickingClock().clock());
    PreSaveBackup disabled;
    save(disabled, backups, database, kdbx::randomBytes(100), false, &outcome);
    EXPECT_EQ(outcome, PreSaveBackup::Outcome::skipped);
    EXPECT_TRUE(backups.listBackups(database).empty());

    // A copy cut short by a full disk leaves no partial backup behind.
    const test::Interception fullDisk([](int, posix::Call call) { return call == posix::Call::write ? ENOSPC : 0; });
    EXPECT_FALSE(backups.makeBackup(database));
    EXPECT_TRUE(backups.listBackups(database).empty());
}

TEST(Backups, clearingRemovesOneDatabasesBackupsOnly)
{
    TempDir dir;
    const Backups backups(dir / "Backups", TickingClock().clock());
    fs::create_directories(dir / "a");
    fs::create_directories(dir / "b");
    const auto mine = dir / "a" / "db.kdbx", theirs = dir / "b" / "db.kdbx";
    writeFile(mine, "mine");
    writeFile(theirs, "theirs");
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(backups.makeBackup(mine));
        ASSERT_TRUE(backups.makeBackup(theirs));
    }
    ASSERT_NE(backups.backupFolder(mine), backups.backupFolder(theirs));
    writeFile(backups.backupFolder(mine) / "notes.txt", "not a backup");
    writeFile(backups.backupFolder(mine) / "upper.KDBX", "not a backup either");
    EXPECT_EQ(backups.listBackups(mine).size(), 2u);

    backups.clearBackups(mine);
    EXPECT_FALSE(fs::exists(backups.backupFolder(mine)));
    EXPECT_TRUE(backups.listBackups(mine).empty());
    EXPECT_EQ(backups.listBackups(theirs).size(), 2u);
    EXPECT_EQ(readFile(mine), Bytes({'m', 'i', 'n', 'e'}));
}

} // namespace
