#include "tests/support/Process.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace quillon::test {
namespace {

void closeFd(int& fd)
{
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

} // namespace

std::optional<std::filesystem::path> findInPath(const std::string& name)
{
    const char* path = std::getenv("PATH");
    if (!path)
        return std::nullopt;
    std::string all(path);
    std::size_t start = 0;
    while (start <= all.size()) {
        const std::size_t end = all.find(':', start);
        const std::string dir = all.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!dir.empty()) {
            const auto candidate = std::filesystem::path(dir) / name;
            if (::access(candidate.c_str(), X_OK) == 0)
                return candidate;
        }
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    return std::nullopt;
}

ProcessResult run(const std::vector<std::string>& argv, const ProcessOptions& options)
{
    if (argv.empty())
        throw std::invalid_argument("run: empty argv");
    std::string program = argv[0];
    if (program.find('/') == std::string::npos) {
        auto found = findInPath(program);
        if (!found)
            throw std::runtime_error("run: not found in PATH: " + program);
        program = found->string();
    }

    // Build the environment before forking: the child may only call async-signal-safe functions.
    std::map<std::string, std::string> envMap;
    for (char** e = environ; *e; ++e) {
        std::string kv(*e);
        const auto eq = kv.find('=');
        if (eq != std::string::npos)
            envMap[kv.substr(0, eq)] = kv.substr(eq + 1);
    }
    for (const auto& name : options.unsetEnv)
        envMap.erase(name);
    for (const auto& [k, v] : options.env)
        envMap[k] = v;
    std::vector<std::string> envStrings;
    for (const auto& [k, v] : envMap)
        envStrings.push_back(k + "=" + v);
    std::vector<char*> envp;
    for (auto& s : envStrings)
        envp.push_back(s.data());
    envp.push_back(nullptr);
    std::vector<std::string> args = argv;
    std::vector<char*> argp;
    for (auto& a : args)
        argp.push_back(a.data());
    argp.push_back(nullptr);
    const std::string cwd = options.cwd ? options.cwd->string() : std::string();

    int in[2], out[2], err[2];
    if (::pipe2(in, O_CLOEXEC) || ::pipe2(out, O_CLOEXEC) || ::pipe2(err, O_CLOEXEC))
        throw std::runtime_error("run: pipe failed");
    const pid_t pid = ::fork();
    if (pid < 0)
        throw std::runtime_error("run: fork failed");
    if (pid == 0) {
        if (options.newSession)
            ::setsid();
        ::dup2(in[0], 0);
        ::dup2(out[1], 1);
        ::dup2(err[1], 2);
        if (!cwd.empty() && ::chdir(cwd.c_str()) != 0)
            ::_exit(127);
        ::execve(program.c_str(), argp.data(), envp.data());
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    int inFd = in[1], outFd = out[0], errFd = err[0];
    ::fcntl(inFd, F_SETFL, O_NONBLOCK);
    std::signal(SIGPIPE, SIG_IGN);

    ProcessResult result;
    std::size_t written = 0;
    if (options.input.empty())
        closeFd(inFd);
    const auto deadline = std::chrono::steady_clock::now() + options.timeout;
    bool timedOut = false;
    while (outFd >= 0 || errFd >= 0) {
        pollfd fds[3];
        int n = 0;
        if (outFd >= 0)
            fds[n++] = {outFd, POLLIN, 0};
        if (errFd >= 0)
            fds[n++] = {errFd, POLLIN, 0};
        if (inFd >= 0)
            fds[n++] = {inFd, POLLOUT, 0};
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            timedOut = true;
            break;
        }
        if (::poll(fds, static_cast<nfds_t>(n), static_cast<int>(left.count())) < 0 && errno != EINTR)
            break;
        for (int i = 0; i < n; ++i) {
            if (!fds[i].revents)
                continue;
            if (fds[i].fd == inFd) {
                const ssize_t w = ::write(inFd, options.input.data() + written, options.input.size() - written);
                if (w > 0)
                    written += static_cast<std::size_t>(w);
                if (w < 0 && errno != EAGAIN)
                    closeFd(inFd);
                if (written == options.input.size())
                    closeFd(inFd);
                continue;
            }
            char buf[65536];
            const ssize_t r = ::read(fds[i].fd, buf, sizeof buf);
            if (r <= 0) {
                if (fds[i].fd == outFd)
                    closeFd(outFd);
                else
                    closeFd(errFd);
                continue;
            }
            (fds[i].fd == outFd ? result.out : result.err).append(buf, static_cast<std::size_t>(r));
        }
    }
    closeFd(inFd);
    closeFd(outFd);
    closeFd(errFd);
    if (timedOut)
        ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    else if (WIFSIGNALED(status))
        result.signal = WTERMSIG(status);
    if (timedOut)
        result.err += "\n[timed out]";
    return result;
}

} // namespace quillon::test
