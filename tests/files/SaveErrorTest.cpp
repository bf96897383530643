#include "files/SafeWrite.h"
#include "kdbx/Random.h"
#include "tests/files/Seam.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <string>

using namespace quillon;
using namespace quillon::files;
using quillon::test::Interception;
using quillon::test::TempDir;
using quillon::test::writeFile;

namespace {

// Whichever call of a save fails, the writer says so as a SaveError: the sentence quillon-cli prints, and a cause
// that reads after a window's own "Could not save:" without repeating it.
TEST(SaveError, everyFailedStepGivesTheSentenceAndTheCauseApart)
{
    TempDir dir;
    const auto target = dir / "db.kdbx";
    const auto original = kdbx::randomBytes(4096), next = kdbx::randomBytes(4096);
    const auto save = [&] { SafeWrite::write(next, target, DiskStamp::of(original), [](kdbx::ByteView) {}); };
    writeFile(target, original);
    std::size_t calls = 0;
    {
        Interception count;
        save();
        calls = count.calls().size();
    }
    int failed = 0;
    for (int n = 1; n <= static_cast<int>(calls); ++n) {
        writeFile(target, original);
        try {
            Interception fault([n](int index, posix::Call) { return index == n ? EIO : 0; });
            save();
        } catch (const SaveError& e) {
            ++failed;
            const std::string why = std::strerror(EIO);
            EXPECT_THAT(e.what(), testing::StartsWith("Could not ")) << "call " << n;
            EXPECT_THAT(e.what(), testing::EndsWith(e.name() + ": " + why)) << "call " << n;
            EXPECT_THAT(e.cause(), testing::Not(testing::HasSubstr("ould not save"))) << "call " << n;
            EXPECT_THAT(e.cause(), testing::HasSubstr(why)) << "call " << n;
            EXPECT_THAT(e.name(), testing::HasSubstr("db.kdbx")) << "call " << n;
        } catch (const std::exception& e) {
            ADD_FAILURE() << "call " << n << " failed with another error: " << e.what();
        }
    }
    EXPECT_GT(failed, 8);

    ASSERT_EQ(::chmod(target.c_str(), 0444), 0);
    try {
        save();
        ADD_FAILURE() << "a read-only file was replaced";
    } catch (const SaveError& e) {
        EXPECT_EQ(e.step(), SaveError::Step::readOnlyFile);
        EXPECT_STREQ(e.what(), "Could not save the read-only file db.kdbx: Permission denied");
        EXPECT_EQ(e.cause(), "db.kdbx is read-only (Permission denied)");
    }
}

} // namespace
