// files/DiskStamp.h: what a file held when it was last read or written: its size and SHA-256.
#pragma once

#include "kdbx/Crypto.h"
#include "kdbx/SecureBytes.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <system_error>

namespace quillon::files {

// No date, name or attribute takes part: a same-size change with its modification time set back is a change.
struct DiskStamp {
    std::int64_t size = 0;
    kdbx::Digest256 digest{};

    static DiskStamp of(kdbx::ByteView bytes);
    // Absent when the file cannot be read (missing, a folder, no permission, a read error).
    static std::optional<DiskStamp> ofFile(const std::filesystem::path& path);
    // The same, saying why it is absent.
    static std::optional<DiskStamp> ofFile(const std::filesystem::path& path, std::error_code& error);

    bool operator==(const DiskStamp&) const = default;
};

} // namespace quillon::files
