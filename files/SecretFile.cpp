#include "files/SecretFile.h"

#include "files/RegularFile.h"

namespace quillon::files {

kdbx::SecureBytes readSecretFile(const std::filesystem::path& path)
{
    std::error_code error;
    auto file = RegularFile::open(path, error);
    if (!file)
        throw readFailure(path, error);
    if (file->sizeAtOpen() > maxSecretFileBytes)
        throw readFailure(path, std::make_error_code(std::errc::file_too_large));

    const auto size = static_cast<std::size_t>(file->sizeAtOpen());
    auto bytes = kdbx::SecureBytes::uninitialised(size);
    const std::size_t got = file->read(bytes.data(), size, error);
    if (error)
        throw readFailure(path, error);
    if (got < size) {
        // Shrunk while read: the buffer is cut in place, never moved.
        bytes.resizeUninitialised(got);
        return bytes;
    }
    std::uint8_t more = 0;
    const std::size_t extra = file->read(&more, 1, error);
    kdbx::secureWipe(&more, 1);
    if (error)
        throw readFailure(path, error);
    if (extra != 0) // grew while read: what was read is not the whole file
        throw readFailure(path, std::make_error_code(std::errc::resource_unavailable_try_again));
    return bytes;
}

} // namespace quillon::files
