// The quillon program as a user runs it: which mode the arguments choose, and what each prints.
#include "app/CommandLine.h"
#include "kdbx/OuterHeader.h"
#include "tests/support/Helpers.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <thread>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace quillon;
using namespace quillon::test;
using testing::HasSubstr;

extern char** environ;

namespace {

const std::string quillon = QUILLON_BINARY_DIR "/app/quillon";
const std::string usageLine = "usage: quillon [FILE…] | --verify <path> [password] | --self-test\n";

ProcessResult runQuillon(std::vector<std::string> args, ProcessOptions options = {})
{
    args.insert(args.begin(), quillon);
    options.timeout = std::chrono::seconds(30);
    return run(args, options);
}

std::vector<std::uint8_t> tinyHeader()
{
    kdbx::OuterHeader h;
    h.masterSeed.assign(32, 1);
    h.encryptionIV.assign(16, 2);
    return kdbx::serialiseOuterHeader(h);
}

TEST(CommandLine, argumentsChooseTheMode)
{
    struct Case {
        std::vector<std::string> args;
        app::Mode mode;
        std::string path;
    };
    const Case cases[] = {
        {{}, app::Mode::application, ""},
        {{"--verify"}, app::Mode::application, ""},
        {{"--verify", "a.kdbx"}, app::Mode::verify, "a.kdbx"},
        {{"x", "--verify", "a.kdbx"}, app::Mode::application, ""},
        {{"--verify", "a.kdbx", "--self-test"}, app::Mode::selfTest, ""},
        {{"--self-testing"}, app::Mode::application, ""},
        {{"--version"}, app::Mode::version, ""},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args{"quillon"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const auto command = app::parseCommandLine(test::Argv(args).list());
        const std::string name = testing::PrintToString(c.args);
        EXPECT_EQ(command.mode, c.mode) << name;
        EXPECT_EQ(command.path, c.path) << name;
    }
}

TEST(CommandLine, leadingTildeIsTheHomeDirectory)
{
    const test::ScopedEnv home("HOME", "/home/someone");
    EXPECT_EQ(app::expandTilde("~"), "/home/someone");
    EXPECT_EQ(app::expandTilde("~/x.kdbx"), "/home/someone/x.kdbx");
    EXPECT_EQ(app::expandTilde("a/~/x.kdbx"), "a/~/x.kdbx");
    EXPECT_EQ(app::expandTilde("~root/x"), "/root/x");
    EXPECT_EQ(app::expandTilde("~no-such-user-here/x"), "~no-such-user-here/x");
}

TEST(CommandLine, programPrintsWhatEachFormAsksFor)
{
    TempDir dir;
    writeFile(dir / "notkdbx.kdbx", std::string_view("hello, this is not a database"));
    auto header = tinyHeader();
    writeFile(dir / "cut.kdbx", std::span(header).first(header.size() - 3));
    std::filesystem::create_directory(dir / "folder");
    const std::string home = dir.path().string();

    struct Case {
        const char* name;
        std::vector<std::string> args;
        std::string out;
        int status;
    };
    const Case cases[] = {
        {"nothing, without a display", {}, "No display to show windows on: DISPLAY and WAYLAND_DISPLAY are unset.\n", 1},
        {"verify alone", {"--verify"}, usageLine, 2},
        {"verify not first", {"x", "--verify", home + "/notkdbx.kdbx", "pw"}, usageLine, 2},
        {"empty path", {"--verify", ""}, "Not a file: (no path given)\n", 1},
        {"directory", {"--verify", home + "/folder", "pw"}, "Not a file: " + home + "/folder\n", 1},
        {"tilde found", {"--verify", "~/notkdbx.kdbx", "pw", "extra"}, "failed: Not a KDBX file.\n", 1},
        {"truncated header", {"--verify", "~/cut.kdbx", "pw"}, "failed: Malformed header: unexpected end of data.\n", 1},
        {"read failure", {"--verify", "/proc/self/mem", "pw"}, "failed: Input/output error\n", 1},
    };
    for (const auto& c : cases) {
        ProcessOptions options;
        options.env["HOME"] = home;
        options.unsetEnv = {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"};
        const auto r = runQuillon(c.args, options);
        EXPECT_EQ(r.out, c.out) << c.name;
        EXPECT_EQ(r.exitCode, c.status) << c.name;
        EXPECT_EQ(r.err, "") << c.name;
    }
}

TEST(CommandLine, withoutTerminalThePasswordCannotBeAsked)
{
    TempDir dir;
    writeFile(dir / "db.kdbx", tinyHeader());
    ProcessOptions options;
    options.newSession = true;
    options.input = "typed on a pipe\n"; // must not be taken as the password
    const auto r = runQuillon({"--verify", (dir / "db.kdbx").string()}, options);
    EXPECT_EQ(r.out, "No terminal to read a password from.\n");
    EXPECT_EQ(r.exitCode, 1);
}

// Everything the terminal shows until the program ends, typing `typed` once the prompt appears (or,
// with no text to type, interrupting the program there).
struct TerminalSession {
    std::string shown;
    int status = -1;
    int signal = 0;
    bool echoAfterwards = false;
};

TerminalSession runOnTerminal(const std::vector<std::string>& args, const std::string& typed)
{
    std::vector<std::string> all{quillon};
    all.insert(all.end(), args.begin(), args.end());
    test::Argv argv(all);
    int master = -1;
    const pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
    if (pid == 0) {
        ::execv(quillon.c_str(), argv.data());
        ::_exit(127);
    }
    TerminalSession session;
    if (pid < 0)
        return session;
    bool answered = false;
    for (;;) {
        pollfd p{master, POLLIN, 0};
        if (::poll(&p, 1, 20000) <= 0)
            break;
        char buffer[256];
        const ssize_t n = ::read(master, buffer, sizeof buffer);
        if (n <= 0)
            break; // EIO once the program has ended and closed the terminal
        session.shown.append(buffer, static_cast<std::size_t>(n));
        if (!answered && session.shown.find("Password: ") != std::string::npos) {
            answered = true;
            if (typed.empty())
                ::kill(pid, SIGINT);
            else if (::write(master, typed.data(), typed.size()) < 0)
                break;
        }
    }
    int status = 0;
    if (::waitpid(pid, &status, 0) == pid) {
        session.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        session.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    termios settings{};
    session.echoAfterwards = ::tcgetattr(master, &settings) == 0 && (settings.c_lflag & ECHO) != 0;
    ::close(master);
    return session;
}

TEST(CommandLine, promptReadsThePasswordFromTheTerminalWithoutEcho)
{
    TempDir dir;
    const auto db = (dir / "db.kdbx").string();
    writeFile(db, tinyFile(passwordOnly("typed-secret")));
    const auto session = runOnTerminal({"--verify", db}, "typed-secret\n");
    EXPECT_THAT(session.shown, testing::StartsWith("Password: "));
    EXPECT_THAT(session.shown, testing::Not(HasSubstr("typed-secret")));
    EXPECT_THAT(session.shown, HasSubstr("round-trip: XML identical\r\n")) << "the typed password opened it";
    EXPECT_EQ(session.status, 0);
    EXPECT_TRUE(session.echoAfterwards);

    const auto interrupted = runOnTerminal({"--verify", db}, "");
    EXPECT_EQ(interrupted.signal, SIGINT);
    EXPECT_TRUE(interrupted.echoAfterwards) << "the interrupted prompt left echo off";
}

TEST(CommandLine, selfTestWinsWherever)
{
    const auto r = runQuillon({"--verify", "/nonexistent", "--self-test"});
    EXPECT_EQ(r.exitCode, 0) << r.out;
    EXPECT_THAT(r.out, HasSubstr("  ok    OuterHeader with unknown fields\n"));
    EXPECT_THAT(r.out, testing::EndsWith(" passed, 0 failed\n"));
    EXPECT_THAT(r.out, testing::Not(HasSubstr("FAIL")));
}

#ifdef QUILLON_HARDENED
// While the program waits on a FIFO, its password argument is gone from its command line and the
// system will write no core file for it; its own self-test sees it is not dumpable.
TEST(CommandLine, releaseBuildIsHardenedAndWipesThePasswordArgument)
{
    // A header whose key derivation would run for hours, on two threads: once they run, every check before
    // opening has been made.
    TempDir dir;
    const auto path = dir / "db.kdbx";
    auto header = tinyDatabase()->header;
    header.kdf.entries["M"] = std::uint64_t{8} << 20;
    header.kdf.entries["I"] = std::uint64_t{0xFFFFFFFF};
    header.kdf.entries["P"] = std::uint32_t{2};
    writeFile(path, headerOnlyFile(header));
    const std::string password = "hunter2-in-argv";
    test::Argv argv({quillon, "--verify", path.string(), password});
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    ASSERT_EQ(::posix_spawn(&pid, quillon.c_str(), &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);

    const auto proc = std::filesystem::path("/proc") / std::to_string(pid);
    const auto deriving = [&] {
        const auto status = readFile(proc / "status");
        const std::string text(status.begin(), status.end());
        const auto at = text.find("Threads:\t");
        return at != std::string::npos && std::atoi(text.c_str() + at + 9) > 1;
    };
    for (int wait = 0; wait < 3000 && !deriving(); ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_TRUE(deriving());
    const auto cmdline = readFile(proc / "cmdline");
    EXPECT_THAT(std::string(cmdline.begin(), cmdline.end()), testing::Not(HasSubstr("hunter2")));
    const auto limits = readFile(proc / "limits");
    EXPECT_THAT(std::string(limits.begin(), limits.end()),
                testing::ContainsRegex("Max core file size +0 +0 +bytes"));
    ::kill(pid, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    EXPECT_TRUE(WIFSIGNALED(status));

    EXPECT_THAT(runQuillon({"--self-test"}).out, HasSubstr("  ok    no core dumps, not dumpable\n"));
}
#endif

} // namespace
