// Character passwords, passphrases, the word list and the generator panel's rules.
#include "tools/GeneratorPanel.h"
#include "tools/Passphrase.h"
#include "tools/PasswordGenerator.h"
#include "tools/Resources.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <vector>

namespace quillon::tools {
namespace {

constexpr std::string_view alphabet87 =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!@#$%^&*()-_=+[]{};:,.<>?";

// Pearson's statistic of `draws` values below n against the uniform distribution.
template <class Draw>
double chiSquare(std::size_t n, std::size_t draws, Draw draw)
{
    std::vector<std::size_t> counts(n);
    for (std::size_t i = 0; i < draws; ++i) {
        const std::size_t v = draw();
        EXPECT_LT(v, n);
        if (v < n)
            ++counts[v];
    }
    const double expected = static_cast<double>(draws) / static_cast<double>(n);
    double sum = 0;
    for (const auto c : counts)
        sum += (static_cast<double>(c) - expected) * (static_cast<double>(c) - expected) / expected;
    return sum;
}

// Thresholds are the chi-square quantiles at p = 1e-6 (86 and 7775 degrees of freedom), so a correct
// generator fails about once in a million runs. Without rejection, indices below 256 mod 87 = 82 (and
// 65536 mod 7776 = 3328) are favoured, which adds about 1250 (and 3450) to the expected statistic.
TEST(Generator, drawsAreUniformWithoutModuloBias)
{
    EXPECT_LT(chiSquare(87, 200'000, [] { return drawBelow(87); }), 163.3);
    EXPECT_LT(chiSquare(7776, 1'000'000, [] { return drawWordIndex(7776); }), 8382.2);
}

TEST(Generator, characterSetsJoinInFixedOrder)
{
    EXPECT_EQ(characterAlphabet({}), alphabet87);
    EXPECT_EQ(characterAlphabet({false, false, true, true}), "0123456789!@#$%^&*()-_=+[]{};:,.<>?");
    EXPECT_EQ(characterAlphabet({true, false, false, false}), "abcdefghijklmnopqrstuvwxyz");
    EXPECT_TRUE(characterPassword(16, {false, false, false, false}).empty());
    const auto digitsOnly = characterPassword(200, {false, false, true, false});
    EXPECT_EQ(digitsOnly.size(), 200u);
    EXPECT_TRUE(std::ranges::all_of(digitsOnly.view(), [](char c) { return c >= '0' && c <= '9'; }));
}

TEST(Generator, wordListParsing)
{
    EXPECT_EQ(parseWordList("11111\tabacus\n\n11112\tabdomen\r\nplain\n\t\n"),
              (std::vector<std::string>{"abacus", "abdomen", "plain", ""}));
    EXPECT_TRUE(parseWordList("").empty());
    EXPECT_TRUE(loadWordList("/nonexistent/eff_large_wordlist.txt").empty());

    // The copy the build puts beside the programs is the whole EFF list.
    const auto shipped = loadWordList(std::filesystem::path(QUILLON_BINARY_DIR) / "share/quillon/eff_large_wordlist.txt");
    ASSERT_EQ(shipped.size(), 7776u);
    EXPECT_EQ(shipped.front(), "abacus");
    EXPECT_EQ(shipped.back(), "zoom");
    EXPECT_EQ(std::set<std::string>(shipped.begin(), shipped.end()).size(), 7776u);
}

std::vector<std::string> split(std::string_view text)
{
    std::vector<std::string> parts;
    std::size_t start = 0;
    while (true) {
        const auto space = text.find(' ', start);
        parts.emplace_back(text.substr(start, space - start));
        if (space == std::string_view::npos)
            return parts;
        start = space + 1;
    }
}

struct CountRow {
    GeneratorPanel::Mode mode;
    const char* typed;
    int expected;
    const char* strength;
};

TEST(GeneratorPanel, countIsReadClampedAndShown)
{
    const auto words = loadWordList(std::filesystem::path(QUILLON_BINARY_DIR) / "share/quillon/eff_large_wordlist.txt");
    ASSERT_EQ(words.size(), 7776u);
    using M = GeneratorPanel::Mode;
    const CountRow rows[] = {
        {M::random, "20", 20, "20 characters \u00b7 129 bits"},
        {M::random, "3", 4, "4 characters \u00b7 26 bits"},
        {M::random, "5000", 1024, "1024 characters \u00b7 6598 bits"},
        {M::random, "-7", 4, "4 characters \u00b7 26 bits"},
        {M::random, "99999999999999999999", 20, "20 characters \u00b7 129 bits"},
        {M::words, "5", 5, "5 words \u00b7 65 bits"},
        {M::words, "1", 3, "3 words \u00b7 39 bits"},
        {M::words, "100", 64, "64 words \u00b7 827 bits"},
    };
    GeneratorPanel panel(words);
    for (const auto& row : rows) {
        panel.modeChanged(row.mode);
        panel.setCountText(row.typed);
        panel.regenerate();
        EXPECT_EQ(panel.countText(), row.typed);
        EXPECT_EQ(panel.strength(), row.strength) << row.typed;
        const auto out = panel.output().view();
        if (row.mode == M::random) {
            EXPECT_EQ(out.size(), static_cast<std::size_t>(row.expected)) << row.typed;
            EXPECT_TRUE(std::ranges::all_of(out, [](char c) { return alphabet87.find(c) != std::string_view::npos; }));
        } else {
            const auto parts = split(out);
            EXPECT_EQ(parts.size(), static_cast<std::size_t>(row.expected)) << row.typed;
            EXPECT_EQ(std::ranges::count(out, ' '), row.expected - 1);
            for (const auto& word : parts)
                EXPECT_TRUE(std::ranges::binary_search(words, word)) << word;
        }
    }
}

TEST(GeneratorPanel, missingWordListDisablesWordsOnly)
{
    GeneratorPanel panel(std::span<const std::string>{});
    int usedCount = 0;
    panel.onUse = [&](std::string_view) { ++usedCount; };
    panel.modeChanged(GeneratorPanel::Mode::random);
    ASSERT_FALSE(panel.output().empty());
    panel.modeChanged(GeneratorPanel::Mode::words);
    EXPECT_TRUE(panel.output().empty());
    EXPECT_EQ(panel.strength(), GeneratorPanel::missingWordListNotice);
    panel.useIt();
    EXPECT_EQ(usedCount, 0);
}

} // namespace
} // namespace quillon::tools
