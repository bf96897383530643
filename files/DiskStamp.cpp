#include "files/DiskStamp.h"

#include "files/RegularFile.h"

#include <array>

namespace quillon::files {

DiskStamp DiskStamp::of(kdbx::ByteView bytes)
{
    return {static_cast<std::int64_t>(bytes.size()), kdbx::sha256(bytes)};
}

std::optional<DiskStamp> DiskStamp::ofFile(const std::filesystem::path& path)
{
    std::error_code ignored;
    return ofFile(path, ignored);
}

std::optional<DiskStamp> DiskStamp::ofFile(const std::filesystem::path& path, std::error_code& error)
{
    auto file = RegularFile::open(path, error);
    if (!file)
        return std::nullopt;
    kdbx::Sha256 hash;
    std::int64_t size = 0;
    std::array<std::uint8_t, 64 * 1024> chunk{};
    for (;;) {
        const std::size_t got = file->read(chunk.data(), chunk.size(), error);
        if (error)
            return std::nullopt;
        hash.update(kdbx::ByteView(chunk).first(got));
        size += static_cast<std::int64_t>(got);
        if (got < chunk.size())
            break;
    }
    return DiskStamp{size, hash.finish()};
}

} // namespace quillon::files
