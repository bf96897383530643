// files/RegularFile.h: a file opened for reading only when it is a regular file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <system_error>

namespace quillon::files {

// A named pipe, a device or a folder at a database's or a key file's path is refused at once instead of hanging
// the open or reading forever. The descriptor closes with the object.
class RegularFile {
public:
    // None with error set when the file cannot be opened or is not a regular file (EISDIR for a folder, EINVAL
    // for any other kind).
    static std::optional<RegularFile> open(const std::filesystem::path& path, std::error_code& error);

    RegularFile(RegularFile&& other) noexcept;
    RegularFile& operator=(RegularFile&&) = delete;
    ~RegularFile();

    // As fstat saw it at open; another program may change it while it is read.
    std::uint64_t sizeAtOpen() const noexcept { return size_; }
    // Reads until `size` bytes are in or the file ends, and returns the count; on failure sets error.
    std::size_t read(std::uint8_t* into, std::size_t size, std::error_code& error);

private:
    RegularFile(int fd, std::uint64_t size) : fd_(fd), size_(size) {}
    int fd_;
    std::uint64_t size_;
};

// "Could not read NAME", with the cause.
std::system_error readFailure(const std::filesystem::path& path, std::error_code error);

} // namespace quillon::files
