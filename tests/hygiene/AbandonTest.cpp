// A file whose key derivation would run for days: the command-line program stops at once on Ctrl-C
// instead of finishing it first.
#include "kdbx/OuterHeader.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

using namespace quillon;
using namespace quillon::test;

namespace {

// A header asking for 2^32-1 Argon2 passes, its digest, and a MAC that is never reached.
std::vector<std::uint8_t> endlessKdfFile()
{
    kdbx::OuterHeader header = tinyDatabase({.compressed = false})->header;
    header.kdf.entries["I"] = std::uint64_t{0xFFFFFFFFu};
    std::vector<std::uint8_t> file = kdbx::serialiseOuterHeader(header);
    const kdbx::Digest256 digest = kdbx::headerDigest(file);
    file.insert(file.end(), digest.begin(), digest.end());
    file.resize(file.size() + 32);
    return file;
}

// Waits up to `limit` for the child to end; the raw wait status, or -1 if it is still running.
int waitFor(pid_t pid, std::chrono::milliseconds limit)
{
    const auto until = std::chrono::steady_clock::now() + limit;
    for (;;) {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid)
            return status;
        if (std::chrono::steady_clock::now() > until)
            return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

TEST(Abandon, cliStopsOnCtrlCDuringAnEndlessKeyDerivation)
{
    const TempDir dir;
    const auto database = dir / "endless.kdbx";
    writeFile(database, endlessKdfFile());

    int input[2];
    ASSERT_EQ(::pipe2(input, O_CLOEXEC), 0);
    const std::string cli = QUILLON_BINARY_DIR "/app/quillon-cli";
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        ::dup2(input[0], STDIN_FILENO);
        const int null = ::open("/dev/null", O_WRONLY);
        ::dup2(null, STDOUT_FILENO);
        ::dup2(null, STDERR_FILENO);
        ::execl(cli.c_str(), cli.c_str(), "stats", "--password-stdin", database.c_str(), nullptr);
        ::_exit(127);
    }
    ::close(input[0]);
    ASSERT_EQ(::write(input[1], "pw\n", 3), 3);
    ::close(input[1]);

    // Still deriving after a moment, then gone within a second of the interrupt.
    ASSERT_EQ(waitFor(pid, std::chrono::milliseconds(500)), -1) << "quillon-cli ended before the interrupt";
    ::kill(pid, SIGINT);
    const int status = waitFor(pid, std::chrono::seconds(1));
    if (status == -1) {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        FAIL() << "quillon-cli kept running after Ctrl-C";
    }
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGINT) << "wait status " << status;
}

} // namespace
