#include "files/SafeWrite.h"
#include "kdbx/Encoding.h"
#include "kdbx/KdbxFile.h"
#include "kdbx/Random.h"
#include "tests/files/Seam.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gtest/gtest.h>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>

using namespace quillon;
using namespace quillon::files;
using quillon::test::readFile;
using quillon::test::TempDir;
using quillon::test::writeFile;
namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<std::uint8_t>;

const char* const titlePath = "/KeePassFile/Root/Group/Entry/String[Key='Title']/Value";

// A whole database of some 40 KiB (random notes do not compress), its one entry titled as given.
Bytes database(const char* title, const kdbx::Credentials& credentials)
{
    auto file = test::tinyDatabase();
    file->document.select_node(titlePath).node().text().set(title);
    pugi::xml_node entry = file->document.select_node("//Entry").node();
    pugi::xml_node notes = entry.append_child("String");
    notes.append_child("Key").text().set("Notes");
    notes.append_child("Value").text().set(kdbx::hexEncode(kdbx::randomBytes(20 * 1024)).c_str());
    return file->save(credentials);
}

int trialCount()
{
    const char* wanted = std::getenv("QUILLON_CRASH_TRIALS");
    return wanted ? std::atoi(wanted) : 1000;
}

// A process that does nothing but save, alternating two contents, until it is killed.
[[noreturn]] void saveForever(const fs::path& target, const Bytes& a, const Bytes& b, bool onDiskIsA)
{
    std::optional<DiskStamp> expected = DiskStamp::of(onDiskIsA ? a : b);
    bool nextIsA = !onDiskIsA;
    for (;;) {
        try {
            expected = SafeWrite::write(nextIsA ? a : b, target, expected);
        } catch (...) {
            ::_exit(2);
        }
        nextIsA = !nextIsA;
    }
}

// SIGKILL at random moments of a saving process: the file always opens, and is the old or the new version whole.
TEST(SafeWriteCrash, aKilledSaveLeavesTheOldOrTheNewFileWhole)
{
    TempDir dir;
    const auto target = dir / "db.kdbx";
    const auto credentials = test::passwordOnly("crash");
    const Bytes a = database("A", credentials), b = database("B", credentials);
    const auto stampA = DiskStamp::of(a), stampB = DiskStamp::of(b);
    writeFile(target, a);

    // Kill anywhere within about two and a half saves, so that the kills land in every step of one.
    const auto started = std::chrono::steady_clock::now();
    for (int i = 0; i < 10; ++i)
        SafeWrite::write(i % 2 ? a : b, target, DiskStamp::of(i % 2 ? b : a));
    const auto oneSave = (std::chrono::steady_clock::now() - started) / 10;
    const auto longest = std::chrono::duration_cast<std::chrono::microseconds>(oneSave * 5 / 2).count();
    std::mt19937 random(std::random_device{}());
    std::uniform_int_distribution<long> delayMicros(0, longest);
    const int trials = trialCount();
    int torn = 0, childErrors = 0, flips = 0, leftTemporaries = 0;
    bool onDiskIsA = true;
    for (int trial = 0; trial < trials; ++trial) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0)
            saveForever(target, a, b, onDiskIsA);
        ::usleep(static_cast<useconds_t>(delayMicros(random)));
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        if (!WIFSIGNALED(status))
            ++childErrors;

        const Bytes now = readFile(target);
        const auto stamp = DiskStamp::ofFile(target);
        if ((now != a && now != b) || (stamp != stampA && stamp != stampB)) {
            ++torn;
            ADD_FAILURE() << "trial " << trial << ": the file is neither version (" << now.size() << " bytes)";
            writeFile(target, a);
        }
        // The file opens, and holds the version its bytes say.
        const auto opened = kdbx::KdbxFile::open(readFile(target), credentials);
        const bool isA = readFile(target) == a;
        EXPECT_STREQ(opened->document.select_node(titlePath).node().text().get(), isA ? "A" : "B");
        flips += isA != onDiskIsA;
        onDiskIsA = isA;
        for (const auto& name : test::leftovers(dir.path())) {
            ++leftTemporaries;
            fs::remove(dir / name);
        }
    }
    EXPECT_EQ(torn, 0);
    EXPECT_EQ(childErrors, 0) << "a save failed in the child";
    // How many kills fall after a completed save depends on the machine's speed; this only catches kills
    // that never let a save finish.
    EXPECT_GT(flips, trials / 50) << "the kills should land across many saves";
    std::cout << trials << " kills within " << longest << " µs of a start: " << torn << " torn files, " << flips << " changes of version, "
              << leftTemporaries << " temporary files left by killed saves\n";
    RecordProperty("trials", trials);
    RecordProperty("torn", torn);
}

// Random kills land mostly in the slow steps (writing, fsync). This kills the saving process right before each
// file call of a save in turn, so that no step between two calls goes untried.
TEST(SafeWriteCrash, aKillBeforeAnyCallOfASaveLeavesTheOldOrTheNewFileWhole)
{
    TempDir dir;
    const auto target = dir / "db.kdbx";
    const auto credentials = test::passwordOnly("crash");
    const Bytes a = database("A", credentials), b = database("B", credentials);
    const auto save = [&] { SafeWrite::write(b, target, DiskStamp::of(a)); };
    writeFile(target, a);
    std::size_t callsOfASave = 0;
    {
        test::Interception count;
        save();
        callsOfASave = count.calls().size();
    }
    int old = 0, replaced = 0;
    for (int n = 1; n <= static_cast<int>(callsOfASave); ++n) {
        writeFile(target, a);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const test::Interception killer([n](int index, posix::Call) {
                if (index == n)
                    ::kill(::getpid(), SIGKILL);
                return 0;
            });
            save();
            ::_exit(0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << "call " << n;
        const Bytes now = readFile(target);
        ASSERT_TRUE(now == a || now == b) << "killed before call " << n << ": neither version";
        const auto opened = kdbx::KdbxFile::open(now, credentials);
        EXPECT_STREQ(opened->document.select_node(titlePath).node().text().get(), now == a ? "A" : "B");
        (now == a ? old : replaced) += 1;
        for (const auto& name : test::leftovers(dir.path()))
            fs::remove(dir / name);
    }
    EXPECT_GT(old, 0);
    EXPECT_GT(replaced, 0) << "the last calls come after the replacement";
}

} // namespace
