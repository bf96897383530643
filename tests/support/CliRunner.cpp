#include "tests/support/CliRunner.h"

#include "tests/support/TempDir.h"

namespace quillon::test {

const std::filesystem::path& cliHome()
{
    static const TempDir home;
    return home.path();
}

std::filesystem::path cliBackupRoot() { return cliHome() / "data" / "Quillon" / "Backups"; }

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
