#include "tools/Resources.h"

#include <cstdlib>
#include <system_error>

namespace quillon::tools {

std::filesystem::path resourceDir()
{
    if (const char* dir = std::getenv("QUILLON_RESOURCE_DIR"); dir && *dir)
        return dir;
    std::error_code error;
    const auto exe = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error)
        return {};
    return exe.parent_path().parent_path() / "share" / "quillon";
}

std::filesystem::path resourcePath(std::string_view name)
{
    const auto dir = resourceDir();
    if (dir.empty())
        return {};
    return dir / name;
}

} // namespace quillon::tools
