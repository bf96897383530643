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

// Kills the saving process right before each file call of a save in turn, so that no step between two calls
// goes untried: the file always opens, and is the old or the new version whole.
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
