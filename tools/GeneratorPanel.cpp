#include "tools/GeneratorPanel.h"

#include "kdbx/Encoding.h"
#include "tools/Passphrase.h"
#include "tools/PasswordGenerator.h"

#include <algorithm>
#include <cstdio>

namespace quillon::tools {
namespace {

std::int64_t countFrom(std::string_view text)
{
    if (text.empty())
        return 20;
    return kdbx::parseDecimal(text).value_or(20);
}

std::string strengthLine(std::int64_t count, const char* unit, double bits)
{
    char line[64];
    std::snprintf(line, sizeof line, "%lld %s \u00b7 %.0f bits", static_cast<long long>(count), unit, bits);
    return line;
}

} // namespace

GeneratorPanel::GeneratorPanel(std::span<const std::string> words) : words_(words) {}

GeneratorPanel::GeneratorPanel() : GeneratorPanel(effWordList()) {}

void GeneratorPanel::modeChanged(Mode mode)
{
    mode_ = mode;
    countText_ = mode == Mode::random ? "20" : "5";
    regenerate();
}

void GeneratorPanel::regenerate()
{
    const std::int64_t typed = countFrom(countText_);
    if (mode_ == Mode::random) {
        const auto length = std::clamp<std::int64_t>(typed, 4, 1024);
        const CharacterSets all;
        output_ = characterPassword(static_cast<std::size_t>(length), all);
        strength_ = strengthLine(length, "characters",
                                 entropyBits(characterAlphabet(all).size(), static_cast<std::size_t>(length)));
        return;
    }
    if (words_.empty()) {
        output_.wipe();
        strength_ = missingWordListNotice;
        return;
    }
    const auto count = std::clamp<std::int64_t>(typed, 3, 64);
    output_ = passphrase(words_, static_cast<std::size_t>(count), " ");
    strength_ = strengthLine(count, "words", entropyBits(words_.size(), static_cast<std::size_t>(count)));
}

void GeneratorPanel::useIt()
{
    if (output_.empty() || !onUse)
        return;
    onUse(output_.view());
}

void GeneratorPanel::cancelIt()
{
    if (onCancel)
        onCancel();
}

void GeneratorPanel::reset()
{
    mode_ = Mode::random;
    countText_ = "20";
    regenerate();
}

} // namespace quillon::tools
