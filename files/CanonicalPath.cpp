#include "files/CanonicalPath.h"

#include "files/Posix.h"

#include <system_error>
#include <vector>

namespace quillon::files {

std::filesystem::path canonicalPath(const std::filesystem::path& location)
{
    std::error_code ignored;
    const auto absolute = std::filesystem::absolute(location, ignored);
    std::vector<std::filesystem::path> parts;
    for (const auto& part : absolute)
        if (!part.empty())
            parts.push_back(part);

    // Links can only be resolved in the part that exists; the rest cannot contain one, so it is only tidied.
    for (std::size_t existing = parts.size(); existing > 0; --existing) {
        std::filesystem::path prefix;
        for (std::size_t i = 0; i < existing; ++i)
            prefix /= parts[i];
        const auto real = posix::realpath(prefix);
        if (!real)
            continue;
        auto result = *real;
        for (std::size_t i = existing; i < parts.size(); ++i)
            result /= parts[i];
        result = result.lexically_normal();
        if (!result.has_filename() && result.has_relative_path())
            result = result.parent_path();
        return result;
    }
    return absolute.lexically_normal();
}

} // namespace quillon::files
