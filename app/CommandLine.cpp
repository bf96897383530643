#include "app/CommandLine.h"

#include "app/SelfTest.h"
#include "app/Version.h"
#include "app/VerifyReport.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pwd.h>
#include <termios.h>
#include <unistd.h>

namespace quillon::app {
namespace {

constexpr std::string_view usage = "usage: quillon [FILE…] | --verify <path> [password] | --self-test";

std::optional<std::string> homeOf(std::string_view user)
{
    if (user.empty()) {
        if (const char* home = std::getenv("HOME"); home && *home)
            return std::string(home);
    }
    const passwd* entry = user.empty() ? ::getpwuid(::getuid()) : ::getpwnam(std::string(user).c_str());
    if (!entry || !entry->pw_dir)
        return std::nullopt;
    return std::string(entry->pw_dir);
}

bool isReadableFileLocation(const std::filesystem::path& path)
{
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    return !error && std::filesystem::exists(status) && !std::filesystem::is_directory(status);
}

void writeAll(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t n = ::write(fd, text.data(), text.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return;
        text.remove_prefix(static_cast<std::size_t>(n));
    }
}

// An interrupted prompt must not leave the user's terminal without echo.
int promptTerminal = -1;
termios promptSaved{};
constexpr int promptSignals[] = {SIGINT, SIGTERM, SIGQUIT, SIGHUP};

extern "C" void restoreTerminalAndDie(int signal)
{
    ::tcsetattr(promptTerminal, TCSAFLUSH, &promptSaved);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

} // namespace

Command parseCommandLine(std::span<char* const> argv)
{
    for (std::size_t i = 1; i < argv.size(); ++i)
        if (std::string_view(argv[i]) == "--self-test")
            return {Mode::selfTest, {}, -1};
    if (argv.size() >= 2 && std::string_view(argv[1]) == "--version")
        return {Mode::version, {}, -1};
    if (argv.size() >= 3 && std::string_view(argv[1]) == "--verify")
        return {Mode::verify, argv[2], argv.size() >= 4 ? 3 : -1};
    return {};
}

std::filesystem::path expandTilde(std::string_view path)
{
    if (!path.starts_with('~'))
        return std::filesystem::path(path);
    const auto slash = path.find('/');
    const auto user = path.substr(1, slash == std::string_view::npos ? std::string_view::npos : slash - 1);
    const auto home = homeOf(user);
    if (!home)
        return std::filesystem::path(path);
    const auto rest = slash == std::string_view::npos ? std::string_view() : path.substr(slash);
    return std::filesystem::path(*home + std::string(rest));
}

std::optional<kdbx::SecureBytes> readPasswordFromTerminal(std::string_view prompt)
{
    // /dev/tty rather than standard input: a password must never be taken from a pipe by accident.
    const int tty = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (tty < 0)
        return std::nullopt;
    termios saved{};
    const bool canSilence = ::tcgetattr(tty, &saved) == 0;
    if (canSilence) {
        promptTerminal = tty;
        promptSaved = saved;
        for (const int signal : promptSignals)
            std::signal(signal, restoreTerminalAndDie);
        termios silent = saved;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ECHONL;
        ::tcsetattr(tty, TCSAFLUSH, &silent);
    }
    writeAll(tty, prompt);

    kdbx::SecureBytes password;
    password.reserve(256);
    for (;;) {
        std::uint8_t c = 0;
        const ssize_t n = ::read(tty, &c, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0 || c == '\n')
            break;
        password.push_back(c);
        c = 0;
    }
    if (canSilence) {
        ::tcsetattr(tty, TCSAFLUSH, &saved);
        for (const int signal : promptSignals)
            std::signal(signal, SIG_DFL);
    }
    ::close(tty);
    return password;
}

int runCommandLine(int argc, char** argv, std::ostream& out)
{
    const Command command = parseCommandLine(std::span<char* const>(argv, static_cast<std::size_t>(argc)));
    switch (command.mode) {
    case Mode::selfTest:
        return runSelfTest(allSelfChecks(), out);
    case Mode::version:
        out << "quillon " << version << '\n';
        return 0;
    case Mode::application:
        // The windowed application starts from main(); here only the usage is left to say.
        out << usage << '\n';
        return 2;
    case Mode::verify:
        break;
    }

    kdbx::SecureBytes password;
    if (command.passwordArgument >= 0) {
        char* argument = argv[command.passwordArgument];
        const std::size_t length = std::strlen(argument);
        password = kdbx::SecureBytes::fromText(std::string_view(argument, length));
        // Also keeps it out of /proc/<pid>/cmdline from now on.
        kdbx::secureWipe(argument, length);
    }
    if (command.path.empty()) {
        out << "Not a file: (no path given)" << std::endl;
        return 1;
    }
    const auto path = expandTilde(command.path);
    if (!isReadableFileLocation(path)) {
        out << "Not a file: " << path.string() << std::endl;
        return 1;
    }
    if (command.passwordArgument < 0) {
        out.flush();
        auto typed = readPasswordFromTerminal("Password: ");
        if (!typed) {
            out << "No terminal to read a password from." << std::endl;
            return 1;
        }
        password = std::move(*typed);
    }
    const int status = runVerify(path, password, out);
    out.flush();
    return status;
}

} // namespace quillon::app
