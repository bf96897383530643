// tests/support/TempDir.h: a private directory that is removed with everything in it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string_view>
#include <vector>

namespace quillon::test {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const noexcept { return path_; }
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

std::vector<std::uint8_t> readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, std::span<const std::uint8_t> data);
void writeFile(const std::filesystem::path& path, std::string_view text);
// The permission bits (with set-id and sticky) of what the path names, links followed.
unsigned modeOf(const std::filesystem::path& path);

} // namespace quillon::test
