#include "files/CanonicalPath.h"
#include "files/OpenFiles.h"
#include "files/SafeWrite.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <unistd.h>

using namespace quillon::files;
using quillon::test::TempDir;
using quillon::test::writeFile;
namespace fs = std::filesystem;

namespace {

struct Window {
    Owner token = std::make_shared<int>(0);
};

TEST(OpenFiles, oneFileWhateverRouteReachesIt)
{
    TempDir dir;
    fs::create_directories(dir / "a" / "b");
    const auto file = dir / "a" / "db.kdbx";
    writeFile(file, "one");
    fs::create_symlink(file, dir / "link.kdbx");
    fs::create_directory_symlink(dir / "a", dir / "folder-link");
    fs::create_hard_link(file, dir / "hard.kdbx");

    OpenFiles files;
    Window window, other;
    files.claim(file, window.token);

    const fs::path routes[] = {
        file,
        dir / "link.kdbx",
        dir / "folder-link" / "db.kdbx",
        dir / "hard.kdbx",
        dir / "a" / "b" / ".." / "." / "db.kdbx",
        dir / "folder-link" / "b" / ".." / "db.kdbx",
        fs::relative(file, fs::current_path()),
    };
    for (const auto& route : routes) {
        EXPECT_EQ(files.owner(route), window.token) << route;
        EXPECT_EQ(files.owner(route, window.token), nullptr) << "a window looking up its own file: " << route;
    }
    EXPECT_EQ(OpenFiles::identity(dir / "link.kdbx").path, fs::canonical(file));

    writeFile(dir / "second.kdbx", "two");
    files.claim(dir / "second.kdbx", other.token);
    EXPECT_EQ(files.owner(dir / "second.kdbx"), other.token);
    EXPECT_EQ(files.owner(file), window.token);
    EXPECT_EQ(files.claims().size(), 2u);
}

TEST(OpenFiles, aDestroyedOwnerFreesItsFile)
{
    TempDir dir;
    const auto file = dir / "db.kdbx";
    writeFile(file, "x");
    OpenFiles files;
    auto window = std::make_unique<Window>();
    files.claim(file, window->token);
    window.reset();
    EXPECT_EQ(files.owner(file), nullptr);
    EXPECT_TRUE(files.claims().empty());

    Window next;
    files.claim(file, next.token);
    EXPECT_EQ(files.owner(file), next.token);
    files.release(next.token);
    EXPECT_EQ(files.owner(file), nullptr);
}

TEST(OpenFiles, aFileStaysFoundAfterSaveAsRenameAndReplace)
{
    TempDir dir;
    const auto file = dir / "db.kdbx";
    writeFile(file, "first");
    OpenFiles files;
    Window window;
    files.claim(file, window.token);

    // Replaced by a save: new inode, found by its path.
    const auto before = OpenFiles::identity(file).identity;
    SafeWrite::write(quillon::kdbx::ByteView(reinterpret_cast<const std::uint8_t*>("second"), 6), file,
                     DiskStamp::ofFile(file));
    ASSERT_NE(OpenFiles::identity(file).identity, before);
    EXPECT_EQ(files.owner(file), window.token);

    // Renamed while open: the same inode under another name.
    files.claim(file, window.token);
    fs::rename(file, dir / "renamed.kdbx");
    EXPECT_EQ(files.owner(dir / "renamed.kdbx"), window.token);

    // Save As: the window holds the new file only, even one that does not exist yet.
    files.claim(dir / "new.kdbx", window.token);
    EXPECT_EQ(files.owner(dir / "new.kdbx"), window.token);
    EXPECT_EQ(files.owner(dir / "renamed.kdbx"), nullptr);
    EXPECT_EQ(files.claims().size(), 1u);
}

TEST(CanonicalPath, resolvesLinksThenTidiesEvenForFilesNotYetThere)
{
    TempDir dir;
    const auto real = fs::canonical(dir.path());
    fs::create_directories(dir / "a" / "b");
    fs::create_directory_symlink("a/b", dir / "to-b");

    EXPECT_EQ(canonicalPath(dir / "to-b" / "new.kdbx"), real / "a" / "b" / "new.kdbx");
    // ".." after a link leaves the link's target, as the kernel does.
    EXPECT_EQ(canonicalPath(dir / "to-b" / ".." / "x.kdbx"), real / "a" / "x.kdbx");
    EXPECT_EQ(canonicalPath(dir / "missing" / ".." / "a" / "." / "y.kdbx"), real / "a" / "y.kdbx");
    EXPECT_EQ(canonicalPath(dir / "to-b" / "c" / "d" / ".."), real / "a" / "b" / "c");
    EXPECT_EQ(canonicalPath(dir / "a" / "b" / ""), real / "a" / "b");
    EXPECT_FALSE(OpenFiles::identity(dir / "to-b" / "new.kdbx").identity);
}

} // namespace

namespace {

// A save frees the claimed file's inode, and ext4 gives it to the next new file: that file is not the one open.
TEST(OpenFiles, aSaveNeverLeavesTheClaimOnAnUnrelatedFile)
{
    TempDir dir;
    const auto file = dir / "db.kdbx";
    writeFile(file, "first");
    OpenFiles files;
    Window window;
    files.claim(file, window.token);
    const auto claimed = OpenFiles::identity(file).identity;
    ASSERT_TRUE(claimed);

    const auto save = [&](const char* text) {
        SafeWrite::write(quillon::kdbx::ByteView(reinterpret_cast<const std::uint8_t*>(text), 5), file,
                         DiskStamp::ofFile(file));
    };
    save("saved");
    // Before the holder refreshes its claim, and after: neither the stale nor the fresh identity matches.
    for (const bool refreshed : {false, true}) {
        if (refreshed)
            files.refresh(window.token);
        bool reused = false;
        for (int i = 0; i < 32; ++i) {
            const auto other = dir / ("other-" + std::to_string(refreshed) + "-" + std::to_string(i));
            writeFile(other, "x");
            const auto id = OpenFiles::identity(other).identity;
            reused = reused || (id && id->device == claimed->device && id->inode == claimed->inode);
            EXPECT_EQ(files.owner(other), nullptr) << other << (refreshed ? " after refresh" : " before refresh");
        }
        if (!refreshed && !reused)
            GTEST_LOG_(INFO) << "this file system did not reuse the freed inode";
    }

    // Refreshed after the save, the claim follows the new file under another name.
    save("again");
    files.refresh(window.token);
    fs::rename(file, dir / "renamed.kdbx");
    EXPECT_EQ(files.owner(dir / "renamed.kdbx"), window.token);
}

} // namespace
