// tests/support/CliRunner.h: runs the built quillon-cli as a user would, with a private home folder.
#pragma once

#include "tests/support/Process.h"

#include <filesystem>
#include <string>
#include <vector>

namespace quillon::test {

// The home folder every run shares: HOME, XDG_DATA_HOME (data/) and XDG_CONFIG_HOME (config/) point inside
// it, so backups and preferences never touch the real user's.
const std::filesystem::path& cliHome();
// Where quillon-cli puts backups under cliHome().
std::filesystem::path cliBackupRoot();

// `quillon-cli args...` with `input` on standard input; no controlling terminal, so a password can only
// come from --password-stdin.
ProcessResult runCli(const std::vector<std::string>& args, const std::string& input = {});

} // namespace quillon::test
