#include "files/LeftoverSave.h"

#include "files/Posix.h"

#include <sys/stat.h>


namespace quillon::files {
namespace {

std::chrono::system_clock::time_point modifiedTime(const struct ::stat& info)
{
    return std::chrono::system_clock::time_point(
        std::chrono::duration_cast<std::chrono::system_clock::duration>(std::chrono::seconds(info.st_mtim.tv_sec) +
                                                                        std::chrono::nanoseconds(info.st_mtim.tv_nsec)));
}

bool isUpperUuid(std::string_view text)
{
    if (text.size() != 36)
        return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (c != '-')
                return false;
        } else if (!((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F'))) {
            return false;
        }
    }
    return true;
}

} // namespace

bool isTemporaryNameFor(std::string_view candidate, std::string_view target)
{
    constexpr std::string_view suffix = ".tmp";
    const std::size_t fixed = 1 + target.size() + 1 + 36 + suffix.size();
    if (target.empty() || candidate.size() != fixed || candidate.front() != '.' ||
        candidate.substr(1, target.size()) != target || candidate[1 + target.size()] != '.' ||
        !candidate.ends_with(suffix))
        return false;
    return isUpperUuid(candidate.substr(2 + target.size(), 36));
}

std::optional<LeftoverSave> findLeftoverSave(const std::filesystem::path& database)
{
    const auto resolved = posix::realpath(database);
    if (!resolved)
        return std::nullopt;
    struct ::stat info {};
    if (posix::stat(*resolved, info) != 0 || !S_ISREG(info.st_mode))
        return std::nullopt;
    const auto databaseTime = modifiedTime(info);
    const auto names = posix::listDirectory(resolved->parent_path());
    if (!names)
        return std::nullopt;
    const std::string target = resolved->filename().string();
    std::optional<LeftoverSave> newest;
    for (const auto& name : *names) {
        if (!isTemporaryNameFor(name, target))
            continue;
        const auto path = resolved->parent_path() / name;
        struct ::stat candidate {};
        if (posix::lstat(path, candidate) != 0 || !S_ISREG(candidate.st_mode))
            continue; // a link or a folder under that name is nobody's save
        const auto modified = modifiedTime(candidate);
        if (modified > databaseTime && (!newest || modified > newest->modified))
            newest = LeftoverSave{path, modified};
    }
    return newest;
}

} // namespace quillon::files
