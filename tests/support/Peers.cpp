#include "tests/support/Peers.h"

#include <cstdlib>
#include <string_view>

namespace quillon::test {
namespace {

bool envIsOne(const char* name)
{
    const char* v = std::getenv(name);
    return v && std::string_view(v) == "1";
}

} // namespace

bool peersRequired() { return envIsOne("QUILLON_REQUIRE_PEERS"); }
bool corpusRequired() { return envIsOne("QUILLON_REQUIRE_CORPUS"); }
bool rootRequired() { return envIsOne("QUILLON_REQUIRE_ROOT"); }

std::optional<std::filesystem::path> keepassxcCli() { return findInPath("keepassxc-cli"); }

std::optional<std::filesystem::path> pykeepassPython()
{
    static const std::optional<std::filesystem::path> found = []() -> std::optional<std::filesystem::path> {
        const std::filesystem::path python = "/usr/bin/python3";
        if (!std::filesystem::exists(python))
            return std::nullopt;
        const auto r = run({python.string(), "-c", "import pykeepass"});
        if (r.exitCode != 0)
            return std::nullopt;
        return python;
    }();
    return found;
}

std::optional<std::filesystem::path> kdbxwebModules()
{
    std::filesystem::path dir = std::filesystem::path(QUILLON_SOURCE_DIR) / ".deps/node/node_modules";
    if (const char* env = std::getenv("QUILLON_NODE_MODULES"))
        dir = env;
    if (!findInPath("node") || !std::filesystem::exists(dir / "kdbxweb/package.json") ||
        !std::filesystem::exists(dir / "hash-wasm"))
        return std::nullopt;
    return dir;
}

std::optional<std::filesystem::path> corpusDir()
{
    std::filesystem::path dir = QUILLON_DEFAULT_CORPUS_DIR;
    if (const char* env = std::getenv("QUILLON_CORPUS_DIR"))
        dir = env;
    if (std::filesystem::exists(dir / "cases.json"))
        return dir;
    return std::nullopt;
}

ProcessResult keepassxc(const std::vector<std::string>& args, const std::string& input)
{
    std::vector<std::string> argv{"keepassxc-cli"};
    argv.insert(argv.end(), args.begin(), args.end());
    ProcessOptions options;
    options.input = input;
    // keepassxc-cli is a Qt program; it must never look for a display in tests.
    options.env["QT_QPA_PLATFORM"] = "offscreen";
    return run(argv, options);
}

ProcessResult pykeepass(const std::string& script, const std::vector<std::string>& args)
{
    std::vector<std::string> argv{"/usr/bin/python3", "-c", script};
    argv.insert(argv.end(), args.begin(), args.end());
    return run(argv);
}

ProcessResult kdbxweb(const std::string& script, const std::vector<std::string>& args)
{
    std::vector<std::string> argv{"node", "-e", script};
    argv.insert(argv.end(), args.begin(), args.end());
    ProcessOptions options;
    if (const auto modules = kdbxwebModules())
        options.env["NODE_PATH"] = modules->string();
    return run(argv, options);
}

} // namespace quillon::test
