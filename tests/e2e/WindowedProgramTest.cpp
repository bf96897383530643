// quillon under Xvfb: open a database from the command line, unlock it by typing, lock it with Ctrl+L, hand a
// second file over from another process, save with Ctrl+S, copy a password to the X clipboard, and quit with
// Ctrl+Q.
#include "tests/support/Peers.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>

#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace quillon::test;
using namespace std::chrono_literals;

extern char** environ;

namespace {

const std::string quillon = QUILLON_BINARY_DIR "/app/quillon";

// A program left running in the background; killed at the end unless it exited.
class Background {
public:
    Background(const std::vector<std::string>& argv, const std::map<std::string, std::string>& env, int passFd = -1)
    {
        std::vector<std::string> environment;
        for (char** e = environ; *e; ++e) {
            const std::string item(*e);
            const auto name = item.substr(0, item.find('='));
            if (!env.contains(name) && name != "DBUS_SESSION_BUS_ADDRESS" && name != "WAYLAND_DISPLAY")
                environment.push_back(item);
        }
        for (const auto& [name, value] : env)
            environment.push_back(name + "=" + value);
        std::vector<char*> envp;
        for (auto& item : environment)
            envp.push_back(item.data());
        envp.push_back(nullptr);
        std::vector<std::string> args = argv;
        std::vector<char*> cargv;
        for (auto& a : args)
            cargv.push_back(a.data());
        cargv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const int devnull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
        posix_spawn_file_actions_adddup2(&actions, devnull, 0);
        if (passFd >= 0)
            posix_spawn_file_actions_adddup2(&actions, passFd, 3);
        ::posix_spawn(&pid_, args[0].c_str(), &actions, nullptr, cargv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        ::close(devnull);
    }
    ~Background()
    {
        if (pid_ > 0 && !exited_) {
            ::kill(pid_, SIGKILL);
            ::waitpid(pid_, nullptr, 0);
        }
    }
    // The exit status, or none when it did not exit in time.
    std::optional<int> wait(std::chrono::milliseconds limit)
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < deadline) {
            int status = 0;
            if (::waitpid(pid_, &status, WNOHANG) == pid_) {
                exited_ = true;
                return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            }
            std::this_thread::sleep_for(20ms);
        }
        return std::nullopt;
    }

private:
    pid_t pid_ = -1;
    bool exited_ = false;
};

// Starts Xvfb on a free display and returns its number.
std::optional<std::string> startXvfb(const std::filesystem::path& xvfb, std::unique_ptr<Background>& server)
{
    int fds[2];
    if (::pipe(fds) != 0)
        return std::nullopt;
    server = std::make_unique<Background>(
        std::vector<std::string>{xvfb.string(), "-displayfd", "3", "-screen", "0", "1024x768x24", "-nolisten", "tcp"},
        std::map<std::string, std::string>{}, fds[1]);
    ::close(fds[1]);
    std::string number;
    pollfd p{fds[0], POLLIN, 0};
    while (::poll(&p, 1, 10000) > 0) {
        char c = 0;
        if (::read(fds[0], &c, 1) != 1 || c == '\n')
            break;
        number += c;
    }
    ::close(fds[0]);
    if (number.empty())
        return std::nullopt;
    return ":" + number;
}

// A home, settings, data and runtime folder of the test's own on its X display, so the program meets nothing of
// the user's and no other instance.
std::map<std::string, std::string> privateEnvironment(const TempDir& dir, const std::string& display)
{
    std::filesystem::create_directories(dir / "home");
    std::filesystem::create_directories(dir / "run");
    std::filesystem::permissions(dir / "run", std::filesystem::perms::owner_all);
    return {
        {"DISPLAY", display},
        {"HOME", (dir / "home").string()},
        {"XDG_CONFIG_HOME", (dir / "home" / ".config").string()},
        {"XDG_DATA_HOME", (dir / "home" / ".local" / "share").string()},
        {"TMPDIR", (dir / "run").string()},
        {"XDG_RUNTIME_DIR", (dir / "run").string()},
        {"QT_QPA_PLATFORM", "xcb"},
    };
}

class Desktop {
public:
    Desktop(std::filesystem::path xdotool, std::string display) : xdotool_(std::move(xdotool)), display_(std::move(display)) {}

    ProcessResult xdo(std::vector<std::string> args) const
    {
        args.insert(args.begin(), xdotool_.string());
        ProcessOptions options;
        options.env["DISPLAY"] = display_;
        options.timeout = 20s;
        return run(args, options);
    }
    // The window whose title is exactly `title`, waiting for it to appear.
    std::optional<std::string> windowTitled(const std::string& title, std::chrono::seconds limit = 20s) const
    {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (std::chrono::steady_clock::now() < deadline) {
            const auto found = xdo({"search", "--name", title});
            std::istringstream ids(found.out);
            for (std::string id; std::getline(ids, id);)
                if (xdo({"getwindowname", id}).out == title + "\n")
                    return id;
            std::this_thread::sleep_for(100ms);
        }
        return std::nullopt;
    }
    // Types the password into the unlock screen of `name` as a user would, then waits for the unlocked title.
    // The window, or none when the unlock screen or the unlocked database never showed.
    std::optional<std::string> unlockByTyping(const std::string& name, const std::string& password) const
    {
        const auto window = windowTitled(name + " is locked");
        if (!window)
            return std::nullopt;
        xdo({"windowfocus", "--sync", *window});
        xdo({"type", "--delay", "30", password});
        xdo({"key", "Return"});
        return windowTitled(name) ? window : std::nullopt;
    }

private:
    std::filesystem::path xdotool_;
    std::string display_;
};

// Xvfb on a free display, xdotool to type at it, and the program's private environment on that display.
class WindowedProgram : public ::testing::Test {
protected:
    void SetUp() override
    {
        const auto xvfb = findInPath("Xvfb");
        const auto xdotool = findInPath("xdotool");
        QUILLON_REQUIRE_PEER(xvfb && xdotool ? xvfb : std::nullopt, "Xvfb and xdotool");
        display = startXvfb(*xvfb, server);
        ASSERT_TRUE(display) << "Xvfb did not start";
        desktop.emplace(*xdotool, *display);
        env = privateEnvironment(dir, *display);
    }

    std::unique_ptr<Background> server;
    std::optional<std::string> display;
    std::optional<Desktop> desktop;
    TempDir dir;
    std::map<std::string, std::string> env;
};

TEST_F(WindowedProgram, unlockLockHandOverAndQuitOnARealXServer)
{
    std::filesystem::create_directories(dir / "databases");
    writeFile(dir / "databases" / "vault.kdbx", tinyFile(passwordOnly("right")));
    writeFile(dir / "databases" / "second.kdbx", tinyFile(passwordOnly("right")));

    Background app({quillon, (dir / "databases" / "vault.kdbx").string()}, env);
    const auto window = desktop->unlockByTyping("vault.kdbx", "right");
    ASSERT_TRUE(window) << "no unlock screen, or it did not unlock";

    desktop->xdo({"key", "ctrl+l"});
    ASSERT_TRUE(desktop->windowTitled("vault.kdbx is locked")) << "Ctrl+L did not lock";

    // Another start hands its file over and leaves at once; the file opens as a tab of the same window.
    Background second({quillon, (dir / "databases" / "second.kdbx").string()}, env);
    EXPECT_EQ(second.wait(20s), 0);
    const auto tab = desktop->windowTitled("second.kdbx is locked");
    ASSERT_TRUE(tab) << "the handed-over file did not open";
    EXPECT_EQ(*tab, *window);

    desktop->xdo({"windowfocus", "--sync", *window});
    desktop->xdo({"key", "ctrl+q"});
    EXPECT_EQ(app.wait(20s), 0);

    std::vector<std::string> left;
    for (const auto& folder : {dir / "databases", dir / "run"})
        for (const auto& item : std::filesystem::directory_iterator(folder))
            left.push_back(item.path().filename().string());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{"second.kdbx", "vault.kdbx"})) << "a temporary file was left";
}

// Ctrl+S writes a file that keepassxc-cli opens. After another process rewrites the file (same size), Ctrl+S
// asks first, and Return, which picks the default "No", leaves that process's file as it is.
TEST_F(WindowedProgram, ctrlSWritesAFileOthersOpenAndAsksBeforeOverwritingAnotherProcessesChange)
{
    QUILLON_REQUIRE_PEER(keepassxcCli(), "keepassxc-cli");
    const auto path = dir / "vault.kdbx";
    writeFile(path, tinyFile(passwordOnly("right")));
    const auto before = readFile(path);

    Background app({quillon, path.string()}, env);
    const auto window = desktop->unlockByTyping("vault.kdbx", "right");
    ASSERT_TRUE(window) << "no unlock screen, or it did not unlock";

    desktop->xdo({"key", "ctrl+s"});
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (readFile(path) == before && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(50ms);
    ASSERT_NE(readFile(path), before) << "Ctrl+S wrote nothing";
    EXPECT_EQ(keepassxc({"ls", path.string()}, "right\n").exitCode, 0);

    auto theirs = readFile(path);
    theirs[theirs.size() - 20] ^= 0x5a;
    writeFile(path, theirs);
    desktop->xdo({"windowfocus", "--sync", *window});
    desktop->xdo({"key", "ctrl+s"});
    const auto question = desktop->windowTitled("Quillon");
    ASSERT_TRUE(question) << "Ctrl+S did not ask before overwriting";
    desktop->xdo({"windowfocus", "--sync", *question});
    desktop->xdo({"key", "Return"});
    std::this_thread::sleep_for(1s);
    EXPECT_EQ(readFile(path), theirs);

    desktop->xdo({"windowfocus", "--sync", *window});
    desktop->xdo({"key", "ctrl+q"});
    EXPECT_EQ(app.wait(20s), 0);
    EXPECT_EQ(readFile(path), theirs);
}

// Ctrl+Shift+C puts the selected entry's password on the X clipboard, where another program reads it, and the
// program takes it off again once the hold (15 s) is over.
TEST_F(WindowedProgram, copiedPasswordIsOnTheXClipboardAndGoneAfterTheHold)
{
    const auto xclip = findInPath("xclip");
    QUILLON_REQUIRE_PEER(xclip, "xclip");
    const auto path = dir / "vault.kdbx";
    writeFile(path, tinyFile(passwordOnly("right")));
    const auto clipboard = [&] {
        ProcessOptions options;
        options.env["DISPLAY"] = *display;
        options.timeout = 20s;
        return run({xclip->string(), "-o", "-selection", "clipboard"}, options).out;
    };

    Background app({quillon, path.string()}, env);
    const auto window = desktop->unlockByTyping("vault.kdbx", "right");
    ASSERT_TRUE(window) << "no unlock screen, or it did not unlock";

    // Find the entry, go down to it in the list, copy its password.
    desktop->xdo({"key", "ctrl+f"});
    desktop->xdo({"type", "--delay", "30", "Sample"});
    desktop->xdo({"key", "Down"});
    desktop->xdo({"key", "ctrl+shift+c"});
    auto deadline = std::chrono::steady_clock::now() + 10s;
    std::string seen;
    while ((seen = clipboard()) != "s3cret" && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(100ms);
    ASSERT_EQ(seen, "s3cret") << "the password did not reach the clipboard";

    // Still there well inside the hold, gone a second after it.
    std::this_thread::sleep_for(5s);
    EXPECT_EQ(clipboard(), "s3cret");
    std::this_thread::sleep_for(11s);
    EXPECT_EQ(clipboard(), "") << "the password outlived the hold";

    desktop->xdo({"windowfocus", "--sync", *window});
    desktop->xdo({"key", "ctrl+q"});
    EXPECT_EQ(app.wait(20s), 0);
}

} // namespace
