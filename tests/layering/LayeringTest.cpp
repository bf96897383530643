// The core layers must build without Qt; a Qt header included there would break that quietly.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

namespace {

TEST(Layering, coreFoldersIncludeNoQtHeader)
{
    const std::filesystem::path root = QUILLON_SOURCE_DIR;
    const std::regex qtInclude(R"(^\s*#\s*include\s*[<"]Q[A-Za-z]*[>/"])");
    int scanned = 0;
    for (const char* folder : {"kdbx", "model", "files", "tools", "lock"}) {
        if (!std::filesystem::exists(root / folder))
            continue;
        for (const auto& item : std::filesystem::recursive_directory_iterator(root / folder)) {
            const auto ext = item.path().extension();
            if (ext != ".h" && ext != ".cpp")
                continue;
            // LockController is the lock lifecycle, which lives in tier 2 with Qt Core.
            if (item.path().filename().string().starts_with("LockController"))
                continue;
            ++scanned;
            std::ifstream in(item.path());
            std::string line;
            int number = 0;
            while (std::getline(in, line)) {
                ++number;
                EXPECT_FALSE(std::regex_search(line, qtInclude)) << item.path() << ":" << number << ": " << line;
            }
        }
    }
    EXPECT_GT(scanned, 0);
}

// Qt Core's include path reaches the other modules' folders too, so only a look at the includes keeps
// the application state from drawing.
TEST(Layering, stateIncludesNothingFromQtGuiOrWidgets)
{
    const std::filesystem::path root = QUILLON_SOURCE_DIR;
    const std::regex guiInclude(R"(^\s*#\s*include\s*[<"]Qt(Gui|Widgets|OpenGL|Svg)[/>"])");
    int scanned = 0;
    for (const auto& item : std::filesystem::recursive_directory_iterator(root / "state")) {
        const auto ext = item.path().extension();
        if (ext != ".h" && ext != ".cpp")
            continue;
        ++scanned;
        std::ifstream in(item.path());
        std::string line;
        int number = 0;
        while (std::getline(in, line)) {
            ++number;
            EXPECT_FALSE(std::regex_search(line, guiInclude)) << item.path() << ":" << number << ": " << line;
        }
    }
    EXPECT_GT(scanned, 0);
}

} // namespace
