#include "files/Backups.h"

#include "files/Posix.h"
#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

namespace quillon::files {

namespace {

namespace fs = std::filesystem;

// The folder and every missing folder above it, each 0700; the folder itself is made 0700 if it was already there
// with wider permissions, since it holds every backup of one database.
bool makeFolders(const fs::path& folder)
{
    std::vector<fs::path> missing;
    struct ::stat info {};
    fs::path at = folder;
    while (posix::stat(at, info) != 0) {
        if (errno != ENOENT || !at.has_relative_path())
            return false;
        missing.push_back(at);
        at = at.parent_path();
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it)
        if (posix::mkdir(*it, 0700) != 0 && errno != EEXIST)
            return false;
    if (posix::stat(folder, info) != 0 || !S_ISDIR(info.st_mode))
        return false;
    return (info.st_mode & 07777) == 0700 || posix::chmod(folder, 0700) == 0;
}

bool copyFile(const fs::path& from, const fs::path& to)
{
    const int in = posix::open(from, O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return false;
    const int out = posix::open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (out < 0) {
        posix::close(in);
        return false;
    }
    std::array<std::uint8_t, 64 * 1024> chunk{};
    bool ok = true;
    for (;;) {
        ssize_t got = posix::read(in, chunk.data(), chunk.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            ok = got == 0;
            break;
        }
        for (std::size_t done = 0; ok && done < static_cast<std::size_t>(got);) {
            const ssize_t put = posix::write(out, chunk.data() + done, static_cast<std::size_t>(got) - done);
            if (put < 0 && errno == EINTR)
                continue;
            ok = put > 0;
            if (ok)
                done += static_cast<std::size_t>(put);
        }
        if (!ok)
            break;
    }
    posix::close(in);
    // The file was created 0600; set it again in case the umask or the file system did otherwise.
    ok = ok && posix::fsync(out) == 0 && posix::fchmod(out, 0600) == 0;
    ok = posix::close(out) == 0 && ok;
    if (!ok)
        posix::unlink(to);
    return ok;
}

// "yyyy-MM-dd HH.mm.ss.SSS" in local time; the digits are ASCII whatever the user's locale.
std::string timeText(std::chrono::system_clock::time_point now)
{
    const auto sinceEpoch = now.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    const auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch - seconds).count();
    const std::time_t time = static_cast<std::time_t>(seconds.count());
    std::tm local{};
    ::localtime_r(&time, &local);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d.%02d.%02d.%03d", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(millis));
    return text.data();
}

} // namespace

Backups::Backups(fs::path root, Clock now) : root_(std::move(root)), now_(std::move(now)) {}

fs::path Backups::backupFolder(const fs::path& database) const
{
    const std::string& text = database.native();
    const auto digest =
        kdbx::sha256(kdbx::ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
    return root_ / (database.stem().string() + "-" + kdbx::hexEncode(kdbx::ByteView(digest).first(4)));
}

std::vector<fs::path> Backups::listBackups(const fs::path& database) const
{
    const fs::path folder = backupFolder(database);
    auto names = posix::listDirectory(folder);
    if (!names)
        return {};
    std::erase_if(*names, [](const std::string& name) { return fs::path(name).extension() != ".kdbx"; });
    std::sort(names->begin(), names->end());
    std::vector<fs::path> backups;
    backups.reserve(names->size());
    for (const auto& name : *names)
        backups.push_back(folder / name);
    return backups;
}

bool Backups::makeBackup(const fs::path& database) const
{
    const fs::path folder = backupFolder(database);
    if (!makeFolders(folder))
        return false;
    const fs::path copy = folder / (database.stem().string() + " " + timeText(now_()) + ".kdbx");
    if (!copyFile(database, copy))
        return false;
    const auto backups = listBackups(database);
    for (std::size_t i = 0; i + kept < backups.size(); ++i)
        posix::unlink(backups[i]);
    return true;
}

void Backups::clearBackups(const fs::path& database) const
{
    const fs::path folder = backupFolder(database);
    if (const auto names = posix::listDirectory(folder))
        for (const auto& name : *names)
            posix::unlink(folder / name);
    posix::rmdir(folder);
}

} // namespace quillon::files
