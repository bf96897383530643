// app/cli/Options.h: the options and arguments of one quillon-cli command, parsed against its table.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::cli {

// A mistake in how the command was called: exit status 2, with a pointer to --help.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A failure of the command itself, in its own words: exit status 1.
class Failure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct OptionDefinition {
    std::string_view name;     // long name without "--"
    char shortName = 0;        // 0: none
    std::string_view valueName; // empty: a flag that takes no value
    std::string_view help;
};

class ParsedOptions {
public:
    bool has(std::string_view name) const { return values_.contains(std::string(name)); }
    // The last value given for the option.
    std::optional<std::string> value(std::string_view name) const;
    // Every value, in the order given.
    std::vector<std::string> values(std::string_view name) const;
    // A decimal integer within [low, high]; anything else is a usage error naming the option.
    std::optional<std::int64_t> integer(std::string_view name, std::int64_t low, std::int64_t high) const;

    std::vector<std::string> arguments; // positional, in order
    bool help = false;

private:
    friend ParsedOptions parseOptions(std::span<const std::string>, std::span<const OptionDefinition>);
    std::map<std::string, std::vector<std::string>, std::less<>> values_;
};

// "--name value", "--name=value", "-x value", "-x"; "--" ends the options; "-h"/"--help" anywhere before it
// asks for help. Unknown options and missing values are usage errors.
ParsedOptions parseOptions(std::span<const std::string> args, std::span<const OptionDefinition> options);

} // namespace quillon::cli
