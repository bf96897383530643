// tests/support/CliRunner.h: runs the built quillon-cli as a user would, with a private home folder.
#pragma once

#include "tests/support/Process.h"

#include <filesystem>
#include <string>
#include <vector>

namespace quillon::test {

// `quillon-cli args...` with `input` on standard input; no controlling terminal, so a password can only
// come from --password-stdin.
ProcessResult runCli(const std::vector<std::string>& args, const std::string& input = {});

} // namespace quillon::test
