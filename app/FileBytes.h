// app/FileBytes.h: reading a whole file for the command-line programs.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace quillon::app {

// Throws std::system_error naming the file when it cannot be read.
std::vector<std::uint8_t> readFileBytes(const std::filesystem::path& path);

} // namespace quillon::app
