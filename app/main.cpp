// app/main.cpp: program entry; the command line's logic lives in CommandLine so tests can drive it.
#include "app/CommandLine.h"
#include "app/Hardening.h"
#include "ui/Application.h"

#include <iostream>

int main(int argc, char** argv)
{
    quillon::app::hardenProcess();
    const auto command = quillon::app::parseCommandLine(std::span<char* const>(argv, static_cast<std::size_t>(argc)));
    if (command.mode == quillon::app::Mode::application)
        return quillon::ui::runApplication(argc, argv);
    return quillon::app::runCommandLine(argc, argv, std::cout);
}
