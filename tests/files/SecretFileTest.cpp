#include "files/SecretFile.h"
#include "tests/files/Seam.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>

using namespace quillon;
using namespace quillon::files;
using quillon::test::TempDir;
using quillon::test::writeFile;

namespace {

int errorOf(const std::filesystem::path& path)
{
    try {
        (void)readSecretFile(path);
    } catch (const std::system_error& e) {
        EXPECT_THAT(e.what(), testing::StartsWith("Could not read " + path.filename().string() + ": "));
        return e.code().value();
    }
    return 0;
}

// The whole file, read at the length it had when opened: a special file is refused without waiting for a
// writer, and a file that grows while it is read is refused rather than read into a buffer that must move.
TEST(SecretFile, readsRegularFilesAtTheirLengthOnly)
{
    TempDir dir;
    const auto key = dir / "key.bin";
    writeFile(key, std::string_view("\x00secret\xff key", 12));
    EXPECT_EQ(readSecretFile(key).view(), std::string_view("\x00secret\xff key", 12));
    writeFile(dir / "empty", "");
    EXPECT_TRUE(readSecretFile(dir / "empty").empty());

    ASSERT_EQ(::mkfifo((dir / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(errorOf(dir / "pipe"), EINVAL);
    EXPECT_EQ(errorOf(dir.path()), EISDIR);
    EXPECT_EQ(errorOf(dir / "missing"), ENOENT);

    // Another program changes the file between the length check and the read.
    const auto changeBeforeFirstRead = [&](auto change) {
        return test::Interception([change, done = false](int, posix::Call call) mutable {
            if (call == posix::Call::read && !std::exchange(done, true))
                change();
            return 0;
        });
    };
    {
        const auto grow = changeBeforeFirstRead([&] { std::ofstream(key, std::ios::app) << "more"; });
        EXPECT_EQ(errorOf(key), EAGAIN);
    }
    {
        const auto shrink = changeBeforeFirstRead([&] { ASSERT_EQ(::truncate(key.c_str(), 3), 0); });
        EXPECT_EQ(readSecretFile(key).view(), std::string_view("\x00se", 3));
    }
}

} // namespace
