#include "tests/support/TempDir.h"

#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>

namespace quillon::test {

TempDir::TempDir()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "quillon-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data()))
        throw std::system_error(errno, std::generic_category(), "mkdtemp");
    path_ = pattern;
}

TempDir::~TempDir()
{
    std::error_code ec;
    // Tests may leave read-only folders behind; make them writable so removal succeeds.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec))
            std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                         std::filesystem::perm_options::add, ec);
    }
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(path_, ec);
}

std::vector<std::uint8_t> readFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + path.string());
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const std::filesystem::path& path, std::span<const std::uint8_t> data)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    if (!out)
        throw std::runtime_error("cannot write " + path.string());
}

void writeFile(const std::filesystem::path& path, std::string_view text)
{
    writeFile(path, std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

unsigned modeOf(const std::filesystem::path& path)
{
    struct ::stat info {};
    if (::stat(path.c_str(), &info) != 0)
        throw std::system_error(errno, std::generic_category(), "stat " + path.string());
    return info.st_mode & 07777;
}

} // namespace quillon::test
