// files/SecretFile.h: reading a whole file whose content is a secret (a key file, an attachment to add).
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstddef>
#include <filesystem>

namespace quillon::files {

// Beyond what one attachment of a database can hold, and far beyond any key file.
inline constexpr std::size_t maxSecretFileBytes = 0xFFFF'FFFEu;

// Reads the regular file at path into wiped memory allocated once, at the length the file has when opened,
// so no copy is left behind by a growing buffer. A folder, a named pipe or another special file is refused
// without waiting for a writer (EINVAL, EISDIR); so is a file larger than maxSecretFileBytes (EFBIG) or one
// that grows while it is read (EAGAIN). Throws std::system_error: "Could not read key.bin: …".
kdbx::SecureBytes readSecretFile(const std::filesystem::path& path);

} // namespace quillon::files
