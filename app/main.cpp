// app/main.cpp: program entry; the command line's logic lives in CommandLine so tests can drive it.
#include "app/CommandLine.h"
#include "app/Hardening.h"

#include <iostream>

int main(int argc, char** argv)
{
    quillon::app::hardenProcess();
    return quillon::app::runCommandLine(argc, argv, std::cout);
}
