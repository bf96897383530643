// files/CanonicalPath.h: one path text per file, whatever route reached it.
#pragma once

#include <filesystem>

namespace quillon::files {

// Absolute, with every symbolic link resolved and then "." and ".." removed. For a path that does not exist
// yet, its deepest existing folder is resolved and the rest is added as written. Used alike by the open-file
// registry, the session memory and the remembered key files.
std::filesystem::path canonicalPath(const std::filesystem::path& location);

} // namespace quillon::files
