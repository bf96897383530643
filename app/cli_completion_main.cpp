// app/cli_completion_main.cpp: writes quillon-cli's bash completion from its command table at build time, so
// the completion cannot drift from the commands and options the program accepts.
#include "app/cli/Command.h"

#include <iostream>
#include <string>

int main()
{
    using namespace quillon::cli;
    std::string commands;
    for (const auto& c : commandTable())
        commands += std::string(c.name) + ' ';
    std::cout << "# bash completion for quillon-cli (generated from its command table; do not edit)\n"
              << "_quillon_cli()\n{\n"
              << "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}\n"
              << "    local commands=\"" << commands << "\"\n"
              << "    if [ \"$COMP_CWORD\" -eq 1 ]; then\n"
              << "        COMPREPLY=($(compgen -W \"$commands--help --version\" -- \"$cur\"))\n"
              << "        return\n"
              << "    fi\n"
              << "    local options='' paths='' values=''\n"
              << "    case ${COMP_WORDS[1]} in\n"
              << "    help)\n"
              << "        [ \"$COMP_CWORD\" -eq 2 ] && COMPREPLY=($(compgen -W \"$commands\" -- \"$cur\"))\n"
              << "        return\n"
              << "        ;;\n";
    for (const auto& c : commandTable()) {
        std::string options, paths, values;
        for (const auto& o : c.options) {
            std::string names = "--" + std::string(o.name);
            if (o.shortName)
                names += std::string(" -") + o.shortName;
            options += names + ' ';
            if (o.valueName == "PATH")
                paths += names + ' ';
            else if (!o.valueName.empty())
                values += names + ' ';
        }
        std::cout << "    " << c.name << ")\n"
                  << "        options='" << options << "-h --help'\n"
                  << "        paths=' " << paths << "'\n"
                  << "        values=' " << values << "'\n"
                  << "        ;;\n";
    }
    std::cout << "    *)\n"
              << "        return\n"
              << "        ;;\n"
              << "    esac\n"
              << "    if [[ $paths == *\" $prev \"* ]]; then\n"
              << "        compopt -o filenames 2>/dev/null\n"
              << "        COMPREPLY=($(compgen -f -- \"$cur\"))\n"
              << "    elif [[ $values == *\" $prev \"* ]]; then\n"
              << "        COMPREPLY=()\n"
              << "    elif [[ $cur == -* ]]; then\n"
              << "        COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n"
              << "    else\n"
              << "        compopt -o filenames 2>/dev/null\n"
              << "        COMPREPLY=($(compgen -f -- \"$cur\"))\n"
              << "    fi\n"
              << "}\n"
              << "complete -F _quillon_cli quillon-cli\n";
    return std::cout.good() ? 0 : 1;
}
