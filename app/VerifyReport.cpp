#include "app/VerifyReport.h"

#include "kdbx/ByteReader.h"
#include "kdbx/KdbxError.h"
#include "kdbx/OuterHeader.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace quillon::app {
namespace {

std::vector<std::uint8_t> readWholeFile(const std::filesystem::path& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), path.string());
    std::vector<std::uint8_t> bytes;
    std::uint8_t buffer[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            const int error = errno;
            ::close(fd);
            throw std::system_error(error, std::generic_category(), path.string());
        }
        if (n == 0)
            break;
        bytes.insert(bytes.end(), buffer, buffer + n);
    }
    ::close(fd);
    return bytes;
}

} // namespace

int runVerify(const std::filesystem::path& path, const kdbx::SecureBytes& password, std::ostream& out)
{
    (void)password; // used once this build can decrypt
    try {
        const auto bytes = readWholeFile(path);
        kdbx::ByteReader reader(bytes);
        (void)kdbx::parseOuterHeader(reader);
        out << "failed: This build cannot decrypt databases yet.\n";
    } catch (const kdbx::KdbxError& e) {
        out << "failed: " << e.describe() << '\n';
    } catch (const std::system_error& e) {
        out << "failed: " << e.code().message() << '\n';
    }
    return 1;
}

} // namespace quillon::app
