// app/CommandLine.h: the windowless modes of the command line, --self-test, --verify and --version.
#pragma once

#include "kdbx/SecureBytes.h"

#include <filesystem>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

namespace quillon::app {

enum class Mode : std::uint8_t { selfTest, verify, version, application };

struct Command {
    Mode mode = Mode::application;
    std::string path;              // as given, for verify
    int passwordArgument = -1;     // index into argv of the password, when given
};

// Which form the arguments take; argv[0] is the program.
Command parseCommandLine(std::span<char* const> argv);

// "~" and "~/..." become the home directory ($HOME, else the password database's entry); "~name/..."
// that user's home. Anything else is returned as it is.
std::filesystem::path expandTilde(std::string_view path);

// Reads one line from the controlling terminal with echo off, after printing `prompt` there. Nothing
// when the process has no controlling terminal.
std::optional<kdbx::SecureBytes> readPasswordFromTerminal(std::string_view prompt);

// Runs the mode the arguments ask for and returns the exit status. The password argument, if any, is
// wiped from argv once it has been copied.
int runCommandLine(int argc, char** argv, std::ostream& out);

} // namespace quillon::app
