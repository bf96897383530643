#include "files/DatabaseFile.h"
#include "files/SafeWrite.h"
#include "kdbx/KdbxError.h"
#include "tests/files/Seam.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <future>
#include <optional>
#include <string>

using namespace quillon;
using namespace quillon::files;
using quillon::test::leftovers;
using quillon::test::passwordOnly;
using quillon::test::readFile;
using quillon::test::TempDir;
using quillon::test::writeFile;
namespace fs = std::filesystem;

namespace {

using quillon::test::modeOf;

const char* const title = "/KeePassFile/Root/Group/Entry/String[Key='Title']/Value";
const char* const password = "/KeePassFile/Root/Group/Entry/String[Key='Password']/Value";

std::string text(const DatabaseFile& db, const char* path)
{
    return db.file().document.select_node(path).node().text().get();
}

// A document that no reader would open stops the save before anything is written.
TEST(DatabaseFile, aWrittenFileThatDoesNotOpenReplacesNothing)
{
    TempDir dir;
    const auto path = dir / "db.kdbx";
    const auto credentials = passwordOnly("pw");
    const auto original = test::tinyFile(credentials);
    writeFile(path, original);
    auto db = DatabaseFile::open(path, credentials);
    const auto stamp = db.stamp();

    db.file().document.reset(); // serialises to no document element, which no reader accepts
    test::Interception spy;
    EXPECT_THROW(db.save(credentials, {}), kdbx::KdbxError);
    EXPECT_THAT(spy.calls(), testing::IsEmpty()) << "refused when encoded, before any file call";
    EXPECT_EQ(readFile(path), original);
    EXPECT_EQ(db.stamp(), stamp);
    EXPECT_THAT(leftovers(dir.path()), testing::IsEmpty());
}

TEST(DatabaseFile, anotherProgramsChangeIsKeptUntilTheUserChoosesToOverwrite)
{
    TempDir dir;
    const auto path = dir / "db.kdbx";
    const auto credentials = passwordOnly("pw");
    writeFile(path, test::tinyFile(credentials));
    auto db = DatabaseFile::open(path, credentials);
    const auto stamp = db.stamp();
    db.file().document.select_node(title).node().text().set("Mine");

    const auto theirs = test::tinyFile(credentials);
    writeFile(path, theirs);
    EXPECT_THROW(db.save(credentials, {}), ChangedOnDisk);
    EXPECT_EQ(readFile(path), theirs);
    EXPECT_EQ(db.stamp(), stamp);
    EXPECT_EQ(text(db, title), "Mine");

    // The user agreed to overwrite the version there now.
    db.saveTo(path, DiskStamp::ofFile(path), credentials, {});
    EXPECT_EQ(text(DatabaseFile::open(path, credentials), title), "Mine");

    // Save As to a place where nothing is: the object moves there; the old file stays as it was.
    const auto before = readFile(path);
    db.saveTo(dir / "copy.kdbx", std::nullopt, credentials, {});
    EXPECT_EQ(db.location(), dir / "copy.kdbx");
    EXPECT_EQ(db.stamp(), DiskStamp::ofFile(dir / "copy.kdbx"));
    EXPECT_EQ(readFile(path), before);
    EXPECT_EQ(modeOf(dir / "copy.kdbx"), 0600);

    // A new database never saved does not write over a file that is there.
    DatabaseFile fresh(path, test::tinyDatabase(), std::nullopt);
    EXPECT_THROW(fresh.save(credentials, {}), ChangedOnDisk);
    EXPECT_EQ(readFile(path), before);
}

TEST(DatabaseFile, readingFailuresNameTheFile)
{
    TempDir dir;
    try {
        DatabaseFile::open(dir / "missing.kdbx", passwordOnly("pw"));
        ADD_FAILURE() << "opened a missing file";
    } catch (const std::system_error& e) {
        EXPECT_EQ(e.code().value(), ENOENT);
        EXPECT_THAT(e.what(), testing::StartsWith("Could not read missing.kdbx: "));
    }
    ASSERT_EQ(::mkfifo((dir / "pipe.kdbx").c_str(), 0600), 0);
    EXPECT_THROW(readDiskBytes(dir / "pipe.kdbx"), std::system_error) << "refused, without waiting for a writer";
    EXPECT_THROW(readDiskBytes(dir.path()), std::system_error);
    std::error_code error;
    EXPECT_EQ(DiskStamp::ofFile(dir / "pipe.kdbx", error), std::nullopt) << "the save's check does not wait either";
    EXPECT_EQ(error, std::errc::invalid_argument);

    const auto path = dir / "db.kdbx";
    writeFile(path, test::tinyFile(passwordOnly("pw")));
    bool failed = false;
    test::Interception fault([&](int, posix::Call call) {
        return call == posix::Call::read && !std::exchange(failed, true) ? EIO : 0;
    });
    try {
        readDiskBytes(path);
        ADD_FAILURE() << "a failed read went unnoticed";
    } catch (const std::system_error& e) {
        EXPECT_THAT(e.what(), testing::StartsWith("Could not read db.kdbx: Input/output error"));
    }
    EXPECT_THROW(DatabaseFile::open(path, passwordOnly("wrong")), kdbx::KdbxError);
}

} // namespace

namespace {

// A window encodes on its own thread and commits on a worker while the user goes on editing: the file gets the
// snapshot, the check refuses a file that does not hold it, and the object takes the new stamp only when told.
TEST(DatabaseFile, aCommitOnAWorkerWritesTheSnapshotAndIsCheckedAgainstIt)
{
    TempDir dir;
    const auto path = dir / "db.kdbx";
    const auto credentials = passwordOnly("pw");
    const auto original = test::tinyFile(credentials);
    writeFile(path, original);
    const Backups backups(dir / "Backups");
    auto db = DatabaseFile::open(path, credentials);

    db.file().document.select_node(title).node().text().set("Snapshot");
    // Each way the written file could fail to hold the snapshot stops the save, with the file left as it was.
    const auto refused = [&](const std::function<void(EncodedDatabase&)>& tamper) {
        EncodedDatabase tampered = db.encode(path, credentials);
        tamper(tampered);
        EXPECT_THROW(commit(tampered, db.stamp(), {&backups, true}, db.preSaveBackup()), kdbx::KdbxError);
        EXPECT_EQ(readFile(path), original);
        EXPECT_THAT(leftovers(dir.path()), testing::IsEmpty());
    };
    refused([](EncodedDatabase& e) { e.digests.xml[0] ^= 1; });
    refused([](EncodedDatabase& e) { e.digests.innerHeader[31] ^= 1; });
    refused([](EncodedDatabase& e) { e.credentials = passwordOnly("other"); });
    {
        const EncodedDatabase dropped = db.encode(path, credentials);
        EXPECT_EQ(leftovers(dir.path()).size(), 1u) << "the file is written while it is encoded";
    }
    EXPECT_THAT(leftovers(dir.path()), testing::IsEmpty()) << "an encoding never committed leaves nothing";

    EncodedDatabase encoded = db.encode(path, credentials);
    EXPECT_EQ(text(db, password), "s3cret") << "plain values are back as soon as encode returns";
    auto worker = std::async(std::launch::async, [&, expected = db.stamp()] {
        return commit(encoded, expected, {&backups, true}, db.preSaveBackup(), true);
    });
    db.file().document.select_node(title).node().text().set("Typed meanwhile");
    const Committed done = worker.get();
    EXPECT_EQ(done.backup, PreSaveBackup::Outcome::made);
    EXPECT_EQ(done.stamp, DiskStamp::ofFile(path));
    EXPECT_EQ(done.bytes, readFile(path));
    EXPECT_EQ(db.stamp(), DiskStamp::of(original)) << "adopted only on the caller's thread";
    db.adopt(path, done.stamp);
    EXPECT_EQ(db.stamp(), DiskStamp::ofFile(path));
    EXPECT_EQ(text(DatabaseFile::open(path, credentials), title), "Snapshot");
    EXPECT_EQ(text(db, title), "Typed meanwhile");
}

} // namespace
