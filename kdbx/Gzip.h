// kdbx/Gzip.h: the gzip member around the payload: our own wrapper and CRC check over zlib's raw DEFLATE.
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace quillon::kdbx {

// zlib refused the DEFLATE data or the output outgrew its ceiling. Deliberately not a KdbxError: it is
// the compression library's failure, and its text is zlib's reason, never data.
class DecompressionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A gzip bomb stops here instead of exhausting memory.
inline constexpr std::size_t defaultDecompressedCeiling = std::size_t{2} << 30;

// The reflected CRC-32 of gzip and zlib; empty input gives 0.
std::uint32_t crc32(ByteView data);

// One member: fixed 10-byte header (no name, time 0, OS unknown), raw DEFLATE, CRC-32, length.
std::vector<std::uint8_t> gzip(ByteView data);

// Throws KdbxError for faults of the wrapper (magic, short data, CRC) and DecompressionError for what
// zlib refuses. The header CRC and the stored length are not checked.
SecureBytes gunzip(ByteView data, std::size_t ceiling = defaultDecompressedCeiling);

} // namespace quillon::kdbx
