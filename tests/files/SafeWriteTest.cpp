#include "files/SafeWrite.h"
#include "kdbx/Random.h"
#include "tests/files/Seam.h"
#include "tests/support/Peers.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <grp.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using namespace quillon;
using namespace quillon::files;
using quillon::test::Interception;
using quillon::test::leftovers;
using quillon::test::readFile;
using quillon::test::TempDir;
using quillon::test::writeFile;
namespace fs = std::filesystem;

namespace {

using quillon::test::modeOf;

using Bytes = std::vector<std::uint8_t>;

// About the size of a small KDBX file.
Bytes content(std::size_t size = 40 * 1024) { return kdbx::randomBytes(size); }

ino_t inodeOf(const fs::path& path)
{
    struct ::stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info.st_ino;
}

TEST(SafeWrite, replacesAnUnchangedFileKeepingItsPermissions)
{
    TempDir dir;
    const auto target = dir / "db.kdbx";
    const Bytes first = content(), second = content(50 * 1024);
    mode_t temporaryMode = 0;
    DiskStamp made;
    {
        Interception spy([&](int, posix::Call call) {
            if (call == posix::Call::write && temporaryMode == 0)
                temporaryMode = modeOf(dir / leftovers(dir.path()).at(0));
            return 0;
        });
        made = SafeWrite::write(first, target, std::nullopt);
        // A power cut after the save must not bring back the old name: the folder is synced after the rename.
        const auto& calls = spy.calls();
        const auto rename = std::find(calls.rbegin(), calls.rend(), posix::Call::rename);
        EXPECT_NE(std::find(calls.rbegin(), rename, posix::Call::fsync), rename) << "no fsync after the rename";
    }
    EXPECT_EQ(made, DiskStamp::of(first));
    EXPECT_EQ(temporaryMode, 0600);
    EXPECT_EQ(modeOf(target), 0600) << "a new file is private";

    ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
    const ino_t before = inodeOf(target);
    EXPECT_EQ(SafeWrite::write(second, target, made), DiskStamp::of(second));
    EXPECT_EQ(readFile(target), second);
    EXPECT_EQ(DiskStamp::ofFile(target), DiskStamp::of(second));
    EXPECT_EQ(modeOf(target), 0640);
    EXPECT_NE(inodeOf(target), before) << "replaced whole, not rewritten in place";
    EXPECT_THAT(leftovers(dir.path()), testing::IsEmpty());

    // A file system that refuses renameat2's flags still gets its save, by a plain rename.
    const Bytes third = content();
    bool refuseOnce = true;
    Interception noFlags([&](int, posix::Call call) {
        return call == posix::Call::rename && std::exchange(refuseOnce, false) ? EINVAL : 0;
    });
    EXPECT_EQ(SafeWrite::write(third, target, DiskStamp::of(second)), DiskStamp::of(third));
    EXPECT_EQ(readFile(target), third);
    EXPECT_THAT(leftovers(dir.path()), testing::IsEmpty());
}

// What another app does to the file between the window's read and its save.
struct Interference {
    const char* name;
    bool fileAtFirst;                           // whether the caller saw a file
    std::function<void(const fs::path&)> act;   // the other app
};

void rewriteSameSizeWithOldTime(const fs::path& path)
{
    struct ::stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    auto bytes = readFile(path);
    bytes[bytes.size() / 2] ^= 0x01;
    writeFile(path, bytes);
    const timespec times[2] = {info.st_atim, info.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

void replaceByRename(const fs::path& path)
{
    writeFile(path.string() + ".other", content(41 * 1024));
    fs::rename(path.string() + ".other", path);
}

const Interference interferences[] = {
    {"rewritten in place", true, [](const fs::path& p) { writeFile(p, content(30 * 1024)); }},
    {"same size, time set back", true, rewriteSameSizeWithOldTime},
    {"replaced by rename", true, replaceByRename},
    {"deleted", true, [](const fs::path& p) { fs::remove(p); }},
    {"appeared where there was none", false, [](const fs::path& p) { writeFile(p, content()); }},
};

// The other app acts before the save starts (also on a file system without renameat2's flags, where only the
// comparison before the plain rename can see it) or right before the rename(2) that would replace the file.
TEST(SafeWrite, anotherAppsChangeIsNeverWrittenOver)
{
    enum When { beforeTheSave, beforeTheSaveWithoutRenameFlags, atTheLastInstant };
    for (const When when : {beforeTheSave, beforeTheSaveWithoutRenameFlags, atTheLastInstant}) {
        for (const auto& interference : interferences) {
            SCOPED_TRACE(std::string(interference.name) + ", case " + std::to_string(when));
            TempDir dir;
            const auto target = dir / "db.kdbx";
            std::optional<DiskStamp> expected;
            if (interference.fileAtFirst) {
                writeFile(target, content());
                expected = DiskStamp::ofFile(target);
            }
            std::optional<Bytes> theirs;
            auto interfere = [&] {
                interference.act(target);
                if (test::exists(target))
                    theirs = readFile(target);
            };
            if (when != atTheLastInstant)
                interfere();
            bool done = false;
            Interception hook([&](int, posix::Call call) {
                if (call != posix::Call::rename || std::exchange(done, true))
                    return 0;
                if (when == atTheLastInstant)
                    interfere();
                return when == beforeTheSaveWithoutRenameFlags ? EINVAL : 0;
            });
            try {
                SafeWrite::write(content(), target, expected);
                ADD_FAILURE() << "the save went through";
            } catch (const ChangedOnDisk& e) {
                EXPECT_EQ(e.name(), "db.kdbx");
                EXPECT_STREQ(e.what(), "db.kdbx was changed by another app while it was being saved, so nothing "
                                       "was written. Save again to choose what happens.");
            }
            if (theirs)
                EXPECT_EQ(readFile(target), *theirs);
            else
                EXPECT_FALSE(test::exists(target)) << "a deleted file is not recreated";
            EXPECT_THAT(leftovers(dir.path()), testing::IsEmpty());
        }
    }
}

// The check sees every written byte and can stop the save before the backup; the backup sees the old file,
// and its own failure does not stop the save.
TEST(SafeWrite, theCheckCanStopTheSaveAndTheBackupCannot)
{
    TempDir dir;
    const auto target = dir / "db.kdbx";
    const Bytes original = content(), next = content();
    writeFile(target, original);
    Bytes written;
    bool backedUp = false;
    auto check = [&](kdbx::ByteView piece) {
        written.insert(written.end(), piece.begin(), piece.end());
        if (piece.empty())
            throw std::runtime_error("does not open");
    };
    EXPECT_THROW(SafeWrite::write(next, target, DiskStamp::ofFile(target), check, [&] { backedUp = true; }),
                 std::runtime_error);
    EXPECT_EQ(written, next);
    EXPECT_FALSE(backedUp) << "no backup of a save that will not happen";
    EXPECT_EQ(readFile(target), original);
    EXPECT_THAT(leftovers(dir.path()), testing::IsEmpty());

    std::optional<Bytes> seenByBackup;
    const auto backup = [&] {
        seenByBackup = readFile(target);
        throw std::runtime_error("backup folder is gone");
    };
    EXPECT_EQ(SafeWrite::write(next, target, DiskStamp::ofFile(target), [](kdbx::ByteView) {}, backup),
              DiskStamp::of(next));
    EXPECT_EQ(seenByBackup, original);
    EXPECT_EQ(readFile(target), next);
    // A backup that changes the file it copies would be a conflict like any other.
    EXPECT_THROW(SafeWrite::write(content(), target, DiskStamp::of(next), {}, [&] { writeFile(target, "x"); }),
                 ChangedOnDisk);
}

TEST(SafeWrite, savesThroughASymbolicLinkAndTheLinkStaysALink)
{
    TempDir dir;
    fs::create_directory(dir / "real");
    fs::create_directory(dir / "links");
    const auto real = dir / "real" / "db.kdbx";
    const Bytes original = content(), next = content();
    writeFile(real, original);
    ASSERT_EQ(::chmod(real.c_str(), 0604), 0);
    const auto link = dir / "links" / "shortcut.kdbx";
    fs::create_symlink("../real/db.kdbx", link);

    EXPECT_EQ(SafeWrite::write(next, link, DiskStamp::ofFile(link)), DiskStamp::of(next));
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(fs::read_symlink(link), "../real/db.kdbx");
    EXPECT_EQ(readFile(real), next);
    EXPECT_EQ(modeOf(real), 0604);
    EXPECT_THAT(leftovers(dir / "real"), testing::IsEmpty());
    EXPECT_THAT(leftovers(dir / "links"), testing::IsEmpty());

    // A link to nothing is refused rather than replaced by a file.
    fs::create_symlink("../real/missing.kdbx", dir / "links" / "dangling.kdbx");
    EXPECT_THROW(SafeWrite::write(next, dir / "links" / "dangling.kdbx", std::nullopt), std::system_error);
    EXPECT_TRUE(fs::is_symlink(dir / "links" / "dangling.kdbx"));
    EXPECT_FALSE(test::exists(dir / "real" / "missing.kdbx"));
}

// Runs body in a child process as the user nobody; its exit status, or -1 when it did not exit.
int asNobody(const std::function<int()>& body)
{
    const pid_t child = ::fork();
    if (child == 0) {
        if (::setgroups(0, nullptr) != 0 || ::setgid(65534) != 0 || ::setuid(65534) != 0)
            ::_exit(100);
        ::_exit(body());
    }
    int status = 0;
    if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

// 0 when the save was refused with error and a message containing words; 1 for another error, 2 when it saved.
int refusal(const fs::path& target, int error, const std::string& words)
{
    try {
        SafeWrite::write(content(), target, DiskStamp::ofFile(target));
        return 2;
    } catch (const std::system_error& e) {
        return e.code().value() == error && std::string(e.what()).find(words) != std::string::npos ? 0 : 1;
    }
}

// What the kernel refuses this user: another user's file or folder, and a read-only file system.
TEST(SafeWrite, filesThisUserMayNotWriteAreRefusedWithNothingWritten)
{
    QUILLON_REQUIRE_ROOT("acting as another user and remounting");
    TempDir dir;
    ASSERT_EQ(::chmod(dir.path().c_str(), 0755), 0);
    const auto open = dir / "open", closed = dir / "closed";
    fs::create_directory(open);
    fs::create_directory(closed);
    ASSERT_EQ(::chmod(open.c_str(), 0777), 0); // nobody could rename over root's file here
    const Bytes roots = content();
    writeFile(open / "root.kdbx", roots);
    ASSERT_EQ(::chmod((open / "root.kdbx").c_str(), 0644), 0);
    writeFile(open / "mine.kdbx", content());
    ASSERT_EQ(::chown((open / "mine.kdbx").c_str(), 65534, 65534), 0);

    EXPECT_EQ(asNobody([&] { return refusal(open / "mine.kdbx", 0, ""); }), 2) << "nobody saves its own file";
    EXPECT_EQ(asNobody([&] { return refusal(open / "root.kdbx", EACCES, "read-only file root.kdbx"); }), 0);
    EXPECT_EQ(asNobody([&] { return refusal(closed / "new.kdbx", EACCES, "read-only folder of new.kdbx"); }), 0);
    EXPECT_EQ(readFile(open / "root.kdbx"), roots);
    EXPECT_FALSE(test::exists(closed / "new.kdbx"));
    EXPECT_THAT(leftovers(open), testing::IsEmpty());

    const auto disk = dir / "disk";
    fs::create_directory(disk);
    ASSERT_EQ(::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=1m"), 0) << std::strerror(errno);
    struct Unmount {
        fs::path at;
        ~Unmount() { ::umount2(at.c_str(), MNT_DETACH); }
    } unmount{disk};
    const Bytes original = content();
    writeFile(disk / "db.kdbx", original);
    ASSERT_EQ(::mount(nullptr, disk.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0) << std::strerror(errno);
    EXPECT_EQ(refusal(disk / "db.kdbx", EROFS, "read-only file db.kdbx: Read-only file system"), 0);
    EXPECT_EQ(refusal(disk / "new.kdbx", EROFS, "read-only folder of new.kdbx: Read-only file system"), 0);
    EXPECT_EQ(readFile(disk / "db.kdbx"), original);
}

// Every file call of a save, made to fail in turn: a save either fails, leaving the target as it was and no
// temporary file, or (for the calls after the file is in place) succeeds.
TEST(SafeWrite, anyFailingCallLeavesTheTargetWholeAndNoTemporaryFile)
{
    for (const bool fileExists : {true, false}) {
        TempDir dir;
        const auto target = dir / "db.kdbx";
        const Bytes original = content(), next = content();
        auto reset = [&] {
            if (fileExists)
                writeFile(target, original);
            else
                fs::remove(target);
        };
        // Written in two pieces, as an encoder streams a file.
        auto save = [&] {
            SafeWrite write = SafeWrite::begin(target);
            write.append(kdbx::ByteView(next).first(1000));
            write.append(kdbx::ByteView(next).subspan(1000));
            return write.finish(fileExists ? DiskStamp::of(original) : std::optional<DiskStamp>(),
                                [](kdbx::ByteView) {}, [] {});
        };
        reset();
        std::size_t callsOfASave = 0;
        {
            Interception count;
            save();
            callsOfASave = count.calls().size();
        }
        ASSERT_GT(callsOfASave, 10u);
        // A real full disk is the tmpfs test below; one error stands for the rest here.
        const int error = EIO;
        int failures = 0;
        for (int n = 1; n <= static_cast<int>(callsOfASave); ++n) {
            SCOPED_TRACE("call " + std::to_string(n) + ", " + std::strerror(error) +
                         (fileExists ? "" : ", new file"));
            reset();
            posix::Call failed{};
            bool saved = false;
            try {
                Interception fault([&](int index, posix::Call call) {
                    if (index != n)
                        return 0;
                    failed = call;
                    return error;
                });
                save();
                saved = true;
            } catch (const std::system_error& e) {
                ++failures;
                EXPECT_EQ(e.code().value(), error);
                EXPECT_THAT(e.what(), testing::StartsWith("Could not "));
                EXPECT_THAT(e.what(), testing::HasSubstr("db.kdbx"));
                EXPECT_THAT(e.what(), testing::HasSubstr(std::strerror(error)));
            }
            SCOPED_TRACE(std::string("failed call: ") + std::string(posix::callName(failed)));
            if (saved) {
                EXPECT_EQ(readFile(target), next);
                // Only the removal of the file that was replaced may fail without consequence.
                if (failed != posix::Call::unlink) {
                    EXPECT_THAT(leftovers(dir.path()), testing::IsEmpty());
                }
                for (const auto& name : leftovers(dir.path()))
                    fs::remove(dir / name);
            } else {
                if (fileExists)
                    EXPECT_EQ(readFile(target), original);
                else
                    EXPECT_FALSE(test::exists(target));
                EXPECT_THAT(leftovers(dir.path()), testing::IsEmpty());
            }
        }
        EXPECT_GT(failures, static_cast<int>(callsOfASave) / 2);
    }
}

// Two saves of one file at once: exactly one wins, and the file is that one's content, whole.
TEST(SafeWrite, twoRacingWritersLeaveExactlyOneWholeVersion)
{
    TempDir dir;
    const auto target = dir / "db.kdbx";
    for (int round = 0; round < 100; ++round) {
        writeFile(target, content());
        const auto expected = DiskStamp::ofFile(target);
        const Bytes a = content(), b = content();
        bool aWon = false, bWon = false;
        auto race = [&](const Bytes& mine, bool& won) {
            try {
                SafeWrite::write(mine, target, expected);
                won = true;
            } catch (const ChangedOnDisk&) {
            }
        };
        std::thread first(race, std::cref(a), std::ref(aWon));
        std::thread second(race, std::cref(b), std::ref(bWon));
        first.join();
        second.join();
        ASSERT_NE(aWon, bWon) << "round " << round;
        EXPECT_EQ(readFile(target), aWon ? a : b);
    }
    EXPECT_THAT(leftovers(dir.path()), testing::IsEmpty());
}

// A real full disk: a small tmpfs.
TEST(SafeWrite, aFullDiskLeavesTheTargetWhole)
{
    QUILLON_REQUIRE_ROOT("mounting a small tmpfs");
    TempDir dir;
    const auto mountPoint = dir / "disk";
    fs::create_directory(mountPoint);
    if (::mount("tmpfs", mountPoint.c_str(), "tmpfs", 0, "size=256k") != 0) {
        if (test::rootRequired())
            FAIL() << "mount refused: " << std::strerror(errno);
        GTEST_SKIP() << "mount refused: " << std::strerror(errno);
    }
    struct Unmount {
        fs::path at;
        ~Unmount() { ::umount2(at.c_str(), MNT_DETACH); }
    } unmount{mountPoint};

    const auto target = mountPoint / "db.kdbx";
    const Bytes original = content(64 * 1024);
    writeFile(target, original);
    {
        // Leave about 40 KiB free.
        const Bytes filler(150 * 1024, 0x5a);
        writeFile(mountPoint / "filler", filler);
    }
    try {
        SafeWrite::write(content(100 * 1024), target, DiskStamp::of(original), [](kdbx::ByteView) {});
        ADD_FAILURE() << "the save fitted on a full disk";
    } catch (const std::system_error& e) {
        EXPECT_EQ(e.code().value(), ENOSPC);
        EXPECT_THAT(e.what(), testing::StartsWith("Could not write the temporary file .db.kdbx."));
        EXPECT_THAT(e.what(), testing::EndsWith(".tmp: No space left on device"));
    }
    EXPECT_EQ(readFile(target), original);
    EXPECT_THAT(leftovers(mountPoint), testing::IsEmpty());
}

} // namespace
