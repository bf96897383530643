// The tiers build on the ones below them only, and the core builds without Qt; a stray include would
// break either quietly.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>

namespace {

namespace fs = std::filesystem;

// Tier 1 folders share nothing but tier 0; the lock's lifecycle (LockController) sits in tier 2.
const std::map<std::string, int> tiers = {{"kdbx", 0}, {"model", 1}, {"files", 1}, {"lock", 1}, {"tools", 1},
                                          {"state", 2}, {"app", 3},   {"ui", 3}};

int tierOf(const std::string& folder, const fs::path& file)
{
    if (folder == "lock" && file.filename().string().starts_with("LockController"))
        return 2;
    // The programs' entry points stand above everything, the windows included.
    if (folder == "app" && file.filename().string().ends_with("main.cpp"))
        return 4;
    return tiers.at(folder);
}

TEST(Layering, eachTierIncludesOnlyItselfAndTheTiersBelow)
{
    const fs::path root = QUILLON_SOURCE_DIR;
    const std::regex projectInclude(R"(^\s*#\s*include\s*"([a-z]+)/)");
    const std::regex qtInclude(R"(^\s*#\s*include\s*[<"]Q[A-Za-z]*[>/"])");
    const std::regex guiInclude(R"(^\s*#\s*include\s*[<"]Qt(Gui|Widgets|OpenGL|Svg)[/>"])");
    int scanned = 0;
    for (const auto& [folder, ignored] : tiers) {
        if (!fs::exists(root / folder))
            continue;
        for (const auto& item : fs::recursive_directory_iterator(root / folder)) {
            const auto ext = item.path().extension();
            if (ext != ".h" && ext != ".cpp")
                continue;
            ++scanned;
            const int tier = tierOf(folder, item.path());
            std::ifstream in(item.path());
            std::string line;
            for (int number = 1; std::getline(in, line); ++number) {
                const auto where = item.path().string() + ":" + std::to_string(number) + ": " + line;
                std::smatch include;
                if (std::regex_search(line, include, projectInclude) && tiers.contains(include[1])) {
                    const std::string used = include[1];
                    const fs::path usedFile = line.substr(line.find('"') + 1);
                    const int usedTier = tierOf(used, usedFile);
                    EXPECT_TRUE(used == folder ? usedTier <= tier : usedTier < tier)
                        << where << " (tier " << tier << " includes tier " << usedTier << ")";
                }
                // Tiers 0 and 1 speak bytes and UTF-8; tier 2 uses Qt Core but draws nothing.
                if (tier < 2) {
                    EXPECT_FALSE(std::regex_search(line, qtInclude)) << where;
                } else if (tier == 2) {
                    EXPECT_FALSE(std::regex_search(line, guiInclude)) << where;
                }
            }
        }
    }
    EXPECT_GT(scanned, 100);
}

} // namespace
