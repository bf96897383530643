// app/cli/Command.h: what every command is given, the command table, and the helpers they share.
#pragma once

#include "app/cli/Cli.h"
#include "app/cli/Json.h"
#include "app/cli/Options.h"
#include "kdbx/CompositeKey.h"
#include "kdbx/KdbxFile.h"

#include <filesystem>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

namespace quillon::cli {

struct Invocation {
    Io& io;
    ParsedOptions options;
};

struct CommandDefinition {
    std::string_view name;
    std::string_view arguments; // as shown in the usage line: "DATABASE [GROUP]"
    std::string_view summary;
    std::vector<OptionDefinition> options;
    std::size_t minArguments = 0;
    std::size_t maxArguments = 0;
    int (*run)(Invocation&) = nullptr;
    std::string_view details = {}; // extra paragraph for --help
};

// Every command, in the order --help lists them.
const std::vector<CommandDefinition>& commandTable();

// The option sets most commands share.
const std::vector<OptionDefinition>& credentialOptions();
inline constexpr OptionDefinition jsonOption{"json", 0, {}, "machine-readable output (JSON, camelCase names)"};

std::vector<OptionDefinition> withOptions(std::initializer_list<std::vector<OptionDefinition>> parts);

// Each file of commands adds its own.
void addDatabaseInfoCommands(std::vector<CommandDefinition>& table);
void addGeneratorCommands(std::vector<CommandDefinition>& table);
void addBrowseCommands(std::vector<CommandDefinition>& table);
void addEditCommands(std::vector<CommandDefinition>& table);
void addDatabaseCommands(std::vector<CommandDefinition>& table);
void addAttachmentCommands(std::vector<CommandDefinition>& table);
void addMergeCommands(std::vector<CommandDefinition>& table);

// One line of standard input as a password: up to "\n" (a "\r" before it is dropped) or the end of input.
// An empty line, or no input at all, is an empty password, never "no password".
kdbx::SecureBytes readSecretLine(int fd);

// Usage mistakes in the credential options, found before anything is read.
void checkCredentialOptions(const Invocation& call);

// The database's credentials from --key-file, --no-password and --password-stdin, else the terminal prompt.
kdbx::Credentials readCredentials(Invocation& call);

// A new secret the command needs after unlocking (an entry's or the database's new password): the next line
// of standard input with --password-stdin, else asked twice on the terminal.
kdbx::SecureBytes readNewSecret(Invocation& call, std::string_view prompt, std::string_view repeatPrompt);

// The path as typed, with a leading "~" expanded.
std::filesystem::path pathArgument(const std::string& text);

// Reads and decodes a database for a command that only reads it.
std::unique_ptr<kdbx::KdbxFile> openForReading(Invocation& call, const std::filesystem::path& path);

// The outer header's cipher and key derivation as `info` names them.
std::string cipherName(const std::vector<std::uint8_t>& id);
std::string kdfName(const kdbx::VariantDictionary& kdf);

void writeText(std::ostream& out, std::string_view text);
void writeJson(Invocation& call, const Json& json);

} // namespace quillon::cli
