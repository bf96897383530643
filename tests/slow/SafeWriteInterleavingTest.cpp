#include "files/SafeWrite.h"
#include "kdbx/Random.h"
#include "tests/files/Seam.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

using namespace quillon;
using namespace quillon::files;
using quillon::test::Interception;
using quillon::test::readFile;
using quillon::test::TempDir;
using quillon::test::writeFile;
namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Tally {
    int caughtNow = 0;     // ChangedOnDisk, the other version on disk
    int caughtLater = 0;   // the other write landed after the replace: on disk, and the next save refuses
    int lost = 0;          // the other write was overwritten
    int broken = 0;        // anything else: an error, a torn file
    int rounds = 0;
};

// The other writer: rewrites in place, renames its own file over the target, or changes one byte and sets the
// modification time back.
void interfere(int how, const fs::path& target, Bytes& theirs)
{
    theirs = kdbx::randomBytes(44 * 1024);
    if (how == 0) {
        writeFile(target, theirs);
    } else if (how == 1) {
        writeFile(target.string() + ".theirs", theirs);
        fs::rename(target.string() + ".theirs", target);
    } else {
        struct ::stat info {};
        ::stat(target.c_str(), &info);
        theirs = readFile(target);
        theirs[theirs.size() / 3] ^= 0x80;
        writeFile(target, theirs);
        const timespec times[2] = {info.st_atim, info.st_mtim};
        ::utimensat(AT_FDCWD, target.c_str(), times, 0);
    }
}

// Another writer lands before each file call of a save in turn, in each of the three ways.
Tally interleave(bool refuseExchange)
{
    TempDir dir;
    const auto target = dir / "db.kdbx";
    const Bytes original = kdbx::randomBytes(40 * 1024), mine = kdbx::randomBytes(40 * 1024);
    const auto save = [&] {
        return SafeWrite::write(mine, target, DiskStamp::of(original), [](kdbx::ByteView) {}, [] {});
    };
    // The fallback is forced by refusing the first rename of a save, the one with renameat2's flags.
    bool flagsRefused = false;
    const auto refusal = [&](posix::Call call) {
        return refuseExchange && call == posix::Call::rename && !std::exchange(flagsRefused, true) ? EINVAL : 0;
    };
    writeFile(target, original);
    std::size_t callsOfASave = 0;
    {
        Interception count([&](int, posix::Call call) { return refusal(call); });
        save();
        callsOfASave = count.calls().size();
    }

    Tally tally;
    for (int n = 1; n <= static_cast<int>(callsOfASave); ++n) {
        for (int kind = 0; kind < 3; ++kind) {
            writeFile(target, original);
            Bytes theirs;
            std::optional<DiskStamp> made;
            bool changed = false;
            flagsRefused = false;
            try {
                Interception other([&](int index, posix::Call call) {
                    if (index == n)
                        interfere(kind, target, theirs);
                    return refusal(call);
                });
                made = save();
            } catch (const ChangedOnDisk&) {
                changed = true;
            } catch (const std::exception&) {
            }
            const Bytes now = readFile(target);
            if (changed && now == theirs)
                ++tally.caughtNow;
            else if (made && now == mine)
                ++tally.lost;
            else if (made && now == theirs && [&] {
                         try {
                             SafeWrite::write(mine, target, made);
                         } catch (const ChangedOnDisk&) {
                             return readFile(target) == theirs;
                         }
                         return false;
                     }())
                ++tally.caughtLater;
            else
                ++tally.broken;
            ++tally.rounds;
            for (const auto& name : test::leftovers(dir.path()))
                fs::remove(dir / name);
        }
    }
    return tally;
}

TEST(SafeWriteInterleavings, anotherWriteAtAnyPointIsNeverLost)
{
    const Tally tally = interleave(false);
    EXPECT_GT(tally.rounds, 30);
    EXPECT_EQ(tally.lost, 0);
    EXPECT_EQ(tally.broken, 0);
    EXPECT_EQ(tally.caughtNow + tally.caughtLater, tally.rounds);

    // A plain rename after the comparison (the fallback) may lose a write that lands in between, but never
    // tears the file.
    EXPECT_EQ(interleave(true).broken, 0);
}

} // namespace
