// tools/Resources.h: where the program's shipped files (the word list) are found at run time.
#pragma once

#include <filesystem>
#include <string_view>

namespace quillon::tools {

// QUILLON_RESOURCE_DIR when set; otherwise share/quillon beside the executable's folder, which holds
// both in the build tree (build/app/quillon → build/share/quillon) and in an install (bin → share/quillon).
std::filesystem::path resourceDir();

std::filesystem::path resourcePath(std::string_view name);

} // namespace quillon::tools
