#include "tools/Passphrase.h"

#include "kdbx/Check.h"
#include "kdbx/Random.h"
#include "tools/Resources.h"

#include <array>
#include <fstream>
#include <iterator>

namespace quillon::tools {

std::vector<std::string> parseWordList(std::string_view text)
{
    std::vector<std::string> words;
    while (!text.empty()) {
        const auto newline = text.find('\n');
        std::string_view line = text.substr(0, newline);
        text = newline == std::string_view::npos ? std::string_view() : text.substr(newline + 1);
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        if (line.empty())
            continue;
        if (const auto tab = line.find('\t'); tab != std::string_view::npos)
            line.remove_prefix(tab + 1);
        words.emplace_back(line);
    }
    return words;
}

std::vector<std::string> loadWordList(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return {};
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (in.bad())
        return {};
    return parseWordList(text);
}

const std::vector<std::string>& effWordList()
{
    static const std::vector<std::string> words = loadWordList(resourcePath("eff_large_wordlist.txt"));
    return words;
}

std::size_t drawWordIndex(std::size_t n)
{
    QUILLON_CHECK(n >= 1 && n <= 65536);
    const std::size_t limit = 65536 / n * n;
    std::array<std::uint8_t, 2> bytes{};
    while (true) {
        kdbx::randomFill(bytes);
        const std::size_t v = std::size_t{bytes[0]} << 8 | bytes[1];
        if (v < limit) {
            bytes.fill(0);
            return v % n;
        }
    }
}

kdbx::SecureBytes passphrase(std::span<const std::string> words, std::size_t count, std::string_view separator)
{
    kdbx::SecureBytes out;
    if (words.empty())
        return out;
    for (std::size_t i = 0; i < count; ++i) {
        if (i > 0)
            out.append(separator);
        out.append(std::string_view(words[drawWordIndex(words.size())]));
    }
    return out;
}

} // namespace quillon::tools
