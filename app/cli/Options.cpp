#include "app/cli/Options.h"

#include "kdbx/Encoding.h"

#include <algorithm>

namespace quillon::cli {
namespace {

const OptionDefinition* findLong(std::span<const OptionDefinition> options, std::string_view name)
{
    const auto it =
        std::find_if(options.begin(), options.end(), [&](const OptionDefinition& o) { return o.name == name; });
    return it == options.end() ? nullptr : &*it;
}

const OptionDefinition* findShort(std::span<const OptionDefinition> options, char c)
{
    const auto it =
        std::find_if(options.begin(), options.end(), [&](const OptionDefinition& o) { return o.shortName == c; });
    return it == options.end() ? nullptr : &*it;
}

} // namespace

std::optional<std::string> ParsedOptions::value(std::string_view name) const
{
    const auto it = values_.find(name);
    if (it == values_.end() || it->second.empty())
        return std::nullopt;
    return it->second.back();
}

std::vector<std::string> ParsedOptions::values(std::string_view name) const
{
    const auto it = values_.find(name);
    return it == values_.end() ? std::vector<std::string>{} : it->second;
}

std::optional<std::int64_t> ParsedOptions::integer(std::string_view name, std::int64_t low, std::int64_t high) const
{
    const auto text = value(name);
    if (!text)
        return std::nullopt;
    const auto number = kdbx::parseDecimal(*text);
    if (!number || *number < low || *number > high)
        throw UsageError("--" + std::string(name) + " takes a whole number from " + std::to_string(low) + " to " +
                         std::to_string(high) + ".");
    return number;
}

ParsedOptions parseOptions(std::span<const std::string> args, std::span<const OptionDefinition> options)
{
    ParsedOptions parsed;
    bool optionsEnded = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
            parsed.arguments.push_back(arg);
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        if (arg == "--help" || arg == "-h") {
            parsed.help = true;
            continue;
        }
        const OptionDefinition* option = nullptr;
        std::optional<std::string> inlineValue;
        std::string shown = arg;
        if (arg.starts_with("--")) {
            std::string_view name = std::string_view(arg).substr(2);
            if (const auto eq = name.find('='); eq != std::string_view::npos) {
                inlineValue = std::string(name.substr(eq + 1));
                name = name.substr(0, eq);
                shown = "--" + std::string(name);
            }
            option = findLong(options, name);
        } else if (arg.size() == 2) {
            option = findShort(options, arg[1]);
        }
        if (!option)
            throw UsageError("unknown option " + shown + ".");
        auto& slot = parsed.values_[std::string(option->name)];
        if (option->valueName.empty()) {
            if (inlineValue)
                throw UsageError(shown + " takes no value.");
            slot.emplace_back();
            continue;
        }
        if (inlineValue) {
            slot.push_back(*inlineValue);
        } else {
            if (i + 1 >= args.size())
                throw UsageError(shown + " needs a value (" + std::string(option->valueName) + ").");
            slot.push_back(args[++i]);
        }
    }
    return parsed;
}

} // namespace quillon::cli
