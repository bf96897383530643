// app/cli_main.cpp: quillon-cli entry; the commands live in app/cli so tests can drive them.
#include "app/CommandLine.h"
#include "app/Hardening.h"
#include "app/cli/Cli.h"
#include "state/Preferences.h"
#include "tools/TOTP.h"

#include <QStandardPaths>
#include <QString>

#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

int main(int argc, char** argv)
{
    using namespace quillon;
    app::hardenProcess();
    std::ios::sync_with_stdio(false);
    const std::vector<std::string> args(argv + 1, argv + argc);
    cli::Io io{std::cout, std::cerr};
    io.in = STDIN_FILENO;
    io.outIsTerminal = ::isatty(STDOUT_FILENO) == 1;
    io.promptTerminal = app::readPasswordFromTerminal;
    io.now = tools::secondsSince1970Now;
    // The windowed program's backup folder and preference, so both make and skip backups alike.
    const QString data = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (!data.isEmpty())
        io.backupRoot = std::filesystem::path(data.toStdString()) / "Quillon" / "Backups";
    io.backUpBeforeSaving = [] { return state::Preferences().backUpBeforeSaving(); };
    const int status = cli::run(args, io);
    std::cout.flush();
    return status;
}
