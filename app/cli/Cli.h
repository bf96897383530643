// app/cli/Cli.h: quillon-cli, the command-line companion: one call runs one command and gives its exit status.
#pragma once

#include "kdbx/SecureBytes.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

namespace quillon::cli {

// Exit statuses: success, a failure of the command, a mistake in how it was called.
inline constexpr int exitSuccess = 0;
inline constexpr int exitFailure = 1;
inline constexpr int exitUsage = 2;

// Everything a command touches outside the database file, so tests can drive commands in-process.
struct Io {
    Io(std::ostream& output, std::ostream& errors) : out(output), err(errors) {}

    std::ostream& out;
    std::ostream& err;
    // Read unbuffered, one line per password, so later lines stay for whoever reads next.
    int in = 0;
    bool outIsTerminal = false;
    // Prompts on the controlling terminal with echo off; nothing when there is no terminal.
    std::function<std::optional<kdbx::SecureBytes>(std::string_view prompt)> promptTerminal;
    // Seconds since 1970, for one-time codes.
    std::function<double()> now;
    // Where backups go (the data folder's Quillon/Backups); empty: none are made.
    std::filesystem::path backupRoot;
    // The user's "Back Up Before Saving" preference, asked only when a command writes.
    std::function<bool()> backUpBeforeSaving;
};

// args: everything after the program name.
int run(std::span<const std::string> args, Io& io);

} // namespace quillon::cli
