#include "app/cli/Cli.h"

#include "app/CommandLine.h"
#include "app/Version.h"
#include "app/cli/Command.h"
#include "files/DatabaseFile.h"
#include "files/SecretFile.h"
#include "kdbx/Gzip.h"
#include "kdbx/KdbxError.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <unistd.h>

namespace quillon::cli {
namespace {

constexpr std::string_view program = "quillon-cli";

void printOverview(std::ostream& out)
{
    out << "usage: " << program << " <command> [options] <database> [args]\n"
        << "       " << program << " <command> --help\n\n"
        << "A command-line companion to Quillon for KDBX 4 databases. It reads and writes the same files,\n"
        << "saving through the same conflict-checked writer, with a backup before each change.\n\n"
        << "commands:\n";
    for (const auto& c : commandTable()) {
        std::string name(c.name);
        name.resize(std::max<std::size_t>(name.size() + 2, 18), ' ');
        out << "  " << name << c.summary << '\n';
    }
    out << "\nExit status: 0 on success, 1 on failure, 2 on a usage error.\n";
}

void printHelp(std::ostream& out, const CommandDefinition& c)
{
    out << "usage: " << program << ' ' << c.name << " [options]";
    if (!c.arguments.empty())
        out << ' ' << c.arguments;
    out << "\n\n" << c.summary << '\n';
    if (!c.details.empty())
        out << '\n' << c.details << '\n';
    out << "\noptions:\n";
    auto line = [&](std::string left, std::string_view help) {
        left.resize(std::max<std::size_t>(left.size() + 2, 28), ' ');
        out << "  " << left << help << '\n';
    };
    for (const auto& o : c.options) {
        std::string left = o.shortName ? std::string{'-', o.shortName} + ", " : std::string("    ");
        left += "--" + std::string(o.name);
        if (!o.valueName.empty())
            left += " " + std::string(o.valueName);
        line(left, o.help);
    }
    line("-h, --help", "show this help");
}

int runCommand(const CommandDefinition& command, std::span<const std::string> args, Io& io)
{
    try {
        Invocation call{io, parseOptions(args, command.options)};
        if (call.options.help) {
            printHelp(io.out, command);
            return exitSuccess;
        }
        const auto count = call.options.arguments.size();
        if (count < command.minArguments)
            throw UsageError("missing arguments: " + std::string(command.arguments) + ".");
        if (count > command.maxArguments)
            throw UsageError("too many arguments.");
        const int status = command.run(call);
        io.out.flush();
        return status;
    } catch (const UsageError& e) {
        io.out.flush();
        io.err << program << ' ' << command.name << ": " << e.what() << "\nTry '" << program << ' ' << command.name
               << " --help'.\n";
        return exitUsage;
    } catch (const std::bad_alloc&) {
        io.out.flush();
        io.err << "Not enough memory.\n";
        return exitFailure;
    } catch (const std::exception& e) {
        // KdbxError, ChangedOnDisk, DecompressionError, std::system_error and our own Failure all carry the
        // text the user reads, free of secrets.
        io.out.flush();
        io.err << e.what() << '\n';
        return exitFailure;
    }
}

} // namespace

const std::vector<CommandDefinition>& commandTable()
{
    static const std::vector<CommandDefinition> table = [] {
        std::vector<CommandDefinition> t;
        addDatabaseInfoCommands(t);
        addBrowseCommands(t);
        addEditCommands(t);
        addAttachmentCommands(t);
        addDatabaseCommands(t);
        addMergeCommands(t);
        addGeneratorCommands(t);
        return t;
    }();
    return table;
}

const std::vector<OptionDefinition>& credentialOptions()
{
    static const std::vector<OptionDefinition> options = {
        {"key-file", 'k', "PATH", "unlock with this key file (as well as the password, unless --no-password)"},
        {"no-password", 0, {}, "the database has no password (a key file alone unlocks it)"},
        {"password-stdin", 0, {}, "read passwords from standard input, one line each, instead of the terminal"},
    };
    return options;
}

std::vector<OptionDefinition> withOptions(std::initializer_list<std::vector<OptionDefinition>> parts)
{
    std::vector<OptionDefinition> all;
    for (const auto& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

kdbx::SecureBytes readSecretLine(int fd)
{
    kdbx::SecureBytes line;
    line.reserve(256);
    for (;;) {
        std::uint8_t c = 0;
        const ssize_t n = ::read(fd, &c, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            throw std::system_error(errno, std::generic_category(), "Could not read standard input");
        if (n == 0 || c == '\n')
            break;
        line.push_back(c);
    }
    if (!line.empty() && line[line.size() - 1] == '\r')
        line.resize(line.size() - 1);
    return line;
}

void checkCredentialOptions(const Invocation& call)
{
    if (call.options.has("no-password") && !call.options.has("key-file"))
        throw UsageError("--no-password needs --key-file.");
}

kdbx::Credentials readCredentials(Invocation& call)
{
    const auto& o = call.options;
    kdbx::Credentials credentials;
    checkCredentialOptions(call);
    if (const auto keyFile = o.value("key-file")) {
        credentials.keyFile = files::readSecretFile(pathArgument(*keyFile));
    }
    if (o.has("no-password"))
        return credentials;
    if (o.has("password-stdin")) {
        credentials.password = readSecretLine(call.io.in);
        return credentials;
    }
    auto typed = call.io.promptTerminal ? call.io.promptTerminal("Password: ") : std::nullopt;
    if (!typed)
        throw Failure("No terminal to read a password from.");
    credentials.password = std::move(*typed);
    return credentials;
}

kdbx::SecureBytes readNewSecret(Invocation& call, std::string_view prompt, std::string_view repeatPrompt)
{
    if (call.options.has("password-stdin"))
        return readSecretLine(call.io.in);
    auto first = call.io.promptTerminal ? call.io.promptTerminal(prompt) : std::nullopt;
    if (!first)
        throw Failure("No terminal to read a password from.");
    auto second = call.io.promptTerminal(repeatPrompt);
    if (!second || first->view() != second->view())
        throw Failure("The two passwords don't match. Nothing was changed.");
    return std::move(*first);
}

std::filesystem::path pathArgument(const std::string& text)
{
    if (text.empty())
        throw UsageError("an empty path was given.");
    return app::expandTilde(text);
}

std::unique_ptr<kdbx::KdbxFile> openForReading(Invocation& call, const std::filesystem::path& path)
{
    checkCredentialOptions(call);
    // Read before asking for the password, so a wrong path fails before anyone types.
    auto read = files::readDiskBytes(path);
    const auto credentials = readCredentials(call);
    return kdbx::KdbxFile::open(std::move(read.bytes), credentials);
}

void writeText(std::ostream& out, std::string_view text)
{
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
}

void writeJson(Invocation& call, const Json& json)
{
    writeText(call.io.out, json.text().view());
}

int run(std::span<const std::string> args, Io& io)
{
    if (args.empty()) {
        printOverview(io.err);
        return exitUsage;
    }
    const std::string& first = args.front();
    if (first == "--help" || first == "-h" || first == "help") {
        if (first == "help" && args.size() > 1) {
            for (const auto& c : commandTable())
                if (c.name == args[1]) {
                    printHelp(io.out, c);
                    return exitSuccess;
                }
            io.err << program << ": unknown command " << args[1] << ".\n";
            return exitUsage;
        }
        printOverview(io.out);
        return exitSuccess;
    }
    if (first == "--version") {
        io.out << program << ' ' << app::version << '\n';
        return exitSuccess;
    }
    for (const auto& c : commandTable())
        if (c.name == first)
            return runCommand(c, args.subspan(1), io);
    io.err << program << ": unknown command " << first << ".\nTry '" << program << " --help'.\n";
    return exitUsage;
}

} // namespace quillon::cli
