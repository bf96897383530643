// generate and diceware: the password and passphrase generators, as the generator panel makes them.
#include "app/cli/Command.h"
#include "tools/GeneratorPanel.h"
#include "tools/Passphrase.h"
#include "tools/PasswordGenerator.h"

#include <algorithm>
#include <cstdio>
#include <limits>

namespace quillon::cli {
namespace {

constexpr std::int64_t anyCount = std::numeric_limits<std::int32_t>::max();

std::string strengthLine(std::int64_t count, const char* unit, double bits)
{
    char line[64];
    std::snprintf(line, sizeof line, "%lld %s \u00b7 %.0f bits", static_cast<long long>(count), unit, bits);
    return line;
}

int generate(Invocation& call)
{
    const auto& o = call.options;
    // Out-of-range lengths are clamped as in the generator panel, never refused.
    const auto length = std::clamp<std::int64_t>(o.integer("length", -anyCount, anyCount).value_or(20), 4, 1024);
    tools::CharacterSets sets;
    if (o.has("lower") || o.has("upper") || o.has("digits") || o.has("symbols"))
        sets = {o.has("lower"), o.has("upper"), o.has("digits"), o.has("symbols")};
    const auto alphabet = tools::characterAlphabet(sets);
    auto password = tools::characterPassword(static_cast<std::size_t>(length), sets);
    password.push_back('\n');
    writeText(call.io.out, password.view());
    if (o.has("strength"))
        call.io.err << strengthLine(length, "characters",
                                    tools::entropyBits(alphabet.size(), static_cast<std::size_t>(length)))
                    << '\n';
    return exitSuccess;
}

int diceware(Invocation& call)
{
    const auto& o = call.options;
    const auto count = std::clamp<std::int64_t>(o.integer("words", -anyCount, anyCount).value_or(5), 3, 64);
    std::vector<std::string> custom;
    if (const auto list = o.value("word-list"))
        custom = tools::loadWordList(pathArgument(*list));
    const auto& words = o.has("word-list") ? custom : tools::effWordList();
    if (words.empty())
        throw Failure(std::string(tools::GeneratorPanel::missingWordListNotice));
    auto phrase = tools::passphrase(words, static_cast<std::size_t>(count), o.value("separator").value_or(" "));
    phrase.push_back('\n');
    writeText(call.io.out, phrase.view());
    if (o.has("strength"))
        call.io.err << strengthLine(count, "words", tools::entropyBits(words.size(), static_cast<std::size_t>(count)))
                    << '\n';
    return exitSuccess;
}

} // namespace

void addGeneratorCommands(std::vector<CommandDefinition>& table)
{
    table.push_back({"generate", "", "Generate a random password.",
                     {{"length", 'L', "N", "number of characters (default 20, kept within 4..1024)"},
                      {"lower", 'l', {}, "use lower-case letters"},
                      {"upper", 'U', {}, "use upper-case letters"},
                      {"digits", 'n', {}, "use digits"},
                      {"symbols", 's', {}, "use the symbols !@#$%^&*()-_=+[]{};:,.<>?"},
                      {"strength", 0, {}, "also print its strength on standard error"}},
                     0, 0, generate,
                     "Without a set option all four sets are used (87 characters). Each character is drawn\n"
                     "uniformly from the system's secure random source."});
    table.push_back({"diceware", "", "Generate a passphrase from the EFF large word list.",
                     {{"words", 'W', "N", "number of words (default 5, kept within 3..64)"},
                      {"separator", 0, "TEXT", "text between the words (default one space)"},
                      {"word-list", 0, "PATH", "draw from this list instead (one word a line, or \"11111<TAB>word\")"},
                      {"strength", 0, {}, "also print its strength on standard error"}},
                     0, 0, diceware});
}

} // namespace quillon::cli
