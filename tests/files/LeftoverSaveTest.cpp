#include "files/LeftoverSave.h"

#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

using namespace quillon;
namespace fs = std::filesystem;

namespace {

void writeAged(const fs::path& path, std::chrono::minutes age)
{
    test::writeFile(path, std::string_view("x"));
    fs::last_write_time(path, fs::file_time_type::clock::now() - age);
}

} // namespace

// Only the writer's own temporary names count, only when newer than the database, the newest first, and
// beside the file a link leads to.
TEST(LeftoverSave, onlyTheWritersNewerTemporaryFilesCount)
{
    test::TempDir dir;
    const auto database = dir / "vault.kdbx";
    writeAged(database, std::chrono::minutes(60));
    EXPECT_FALSE(files::findLeftoverSave(database));

    writeAged(dir / ".vault.kdbx.tmp", std::chrono::minutes(1));
    writeAged(dir / ".vault.kdbx.1b4e28ba-2fa1-41d2-883f-0016d3cca427.tmp", std::chrono::minutes(1)); // lower case
    writeAged(dir / ".other.kdbx.1B4E28BA-2FA1-41D2-883F-0016D3CCA427.tmp", std::chrono::minutes(1));
    writeAged(dir / "vault.kdbx.1B4E28BA-2FA1-41D2-883F-0016D3CCA427.tmp", std::chrono::minutes(1)); // not hidden
    writeAged(dir / ".vault.kdbx.1B4E28BA-2FA1-41D2-883F-0016D3CCA427.tmp", std::chrono::minutes(120)); // older
    EXPECT_FALSE(files::findLeftoverSave(database));

    const auto newer = dir / ".vault.kdbx.2C5F39CB-3FB2-42E3-994F-1127E4DDB538.tmp";
    const auto newest = dir / ".vault.kdbx.3D6A4ADC-4AC3-43F4-A54A-2238F5EEC649.tmp";
    writeAged(newer, std::chrono::minutes(30));
    writeAged(newest, std::chrono::minutes(10));
    const auto found = files::findLeftoverSave(database);
    ASSERT_TRUE(found);
    EXPECT_EQ(found->path, fs::canonical(newest));
    EXPECT_GT(found->modified, std::chrono::system_clock::now() - std::chrono::minutes(11));

    fs::create_directory(dir / "elsewhere");
    fs::create_symlink(database, dir / "elsewhere" / "link.kdbx");
    const auto throughLink = files::findLeftoverSave(dir / "elsewhere" / "link.kdbx");
    ASSERT_TRUE(throughLink);
    EXPECT_EQ(throughLink->path, fs::canonical(newest));
    EXPECT_TRUE(fs::exists(newer)); // nothing is removed
}
