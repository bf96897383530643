#include "tests/support/CliRunner.h"

#include "tests/support/TempDir.h"

namespace quillon::test {

namespace {

// The home folder every run shares: HOME, XDG_DATA_HOME (data/) and XDG_CONFIG_HOME (config/) point inside
// it, so backups and preferences never touch the real user's.
const std::filesystem::path& cliHome()
{
    static const TempDir home;
    return home.path();
}

} // namespace

ProcessResult runCli(const std::vector<std::string>& args, const std::string& input)
{
    std::vector<std::string> argv{QUILLON_BINARY_DIR "/app/quillon-cli"};
    argv.insert(argv.end(), args.begin(), args.end());
    ProcessOptions options;
    options.input = input;
    options.newSession = true;
    options.env["HOME"] = cliHome().string();
    options.env["XDG_DATA_HOME"] = (cliHome() / "data").string();
    options.env["XDG_CONFIG_HOME"] = (cliHome() / "config").string();
    options.timeout = std::chrono::seconds(60);
    return run(argv, options);
}

} // namespace quillon::test
