// tests/support/Process.h: runs another program with given input and collects what it printed.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quillon::test {

struct ProcessResult {
    int exitCode = -1; // -1 when the program did not exit normally
    int signal = 0;    // the signal that ended it, if any
    std::string out;
    std::string err;
};

struct ProcessOptions {
    std::string input;                         // written to standard input, then closed
    std::map<std::string, std::string> env;    // added to (or replacing in) the environment
    std::vector<std::string> unsetEnv;         // removed from the environment
    std::optional<std::filesystem::path> cwd;
    bool newSession = false;                   // setsid(): no controlling terminal
    std::chrono::seconds timeout{120};
};

// argv[0] is looked up in PATH when it has no slash.
ProcessResult run(const std::vector<std::string>& argv, const ProcessOptions& options = {});

std::optional<std::filesystem::path> findInPath(const std::string& name);

} // namespace quillon::test
