#include "kdbx/BlockStream.h"

#include "kdbx/ByteWriter.h"
#include "kdbx/Check.h"
#include "kdbx/KdbxError.h"

#include <array>
#include <limits>

namespace quillon::kdbx {
namespace {

std::array<std::uint8_t, 8> littleEndian64(std::uint64_t v) noexcept
{
    std::array<std::uint8_t, 8> out{};
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<std::uint8_t>(v >> (8 * i));
    return out;
}

std::array<std::uint8_t, 4> littleEndian32(std::uint32_t v) noexcept
{
    std::array<std::uint8_t, 4> out{};
    for (std::size_t i = 0; i < out.size(); ++i)
        out[i] = static_cast<std::uint8_t>(v >> (8 * i));
    return out;
}

Digest256 blockHmac(const SecureBytes& hmacBaseKey, std::uint64_t index, ByteView data)
{
    const SecureBytes key = blockKey(hmacBaseKey, index);
    const auto indexBytes = littleEndian64(index);
    const auto lengthBytes = littleEndian32(static_cast<std::uint32_t>(data.size()));
    return hmacSha256(key.span(), {indexBytes, lengthBytes, data});
}

} // namespace

SecureBytes blockKey(const SecureBytes& hmacBaseKey, std::uint64_t index)
{
    const auto indexBytes = littleEndian64(index);
    return sha512Secret({indexBytes, hmacBaseKey.span()});
}

Digest256 headerHmac(ByteView rawHeader, const SecureBytes& hmacBaseKey)
{
    const SecureBytes key = blockKey(hmacBaseKey, headerBlockIndex);
    return hmacSha256(key.span(), {rawHeader});
}

void writeBlockStream(std::vector<std::uint8_t>& out, ByteView ciphertext, const SecureBytes& hmacBaseKey,
                      std::size_t blockSize)
{
    QUILLON_CHECK(blockSize > 0 && blockSize <= std::numeric_limits<std::uint32_t>::max());
    const std::size_t blocks = (ciphertext.size() + blockSize - 1) / blockSize;
    out.reserve(out.size() + ciphertext.size() + (blocks + 1) * 36);
    ByteWriter writer(out);
    std::uint64_t index = 0;
    for (;; ++index) {
        const ByteView piece = ciphertext.first(std::min(blockSize, ciphertext.size()));
        writer.bytes(blockHmac(hmacBaseKey, index, piece));
        writer.sized(piece);
        if (piece.empty())
            break;
        ciphertext = ciphertext.subspan(piece.size());
    }
}

void readBlocks(ByteReader& reader, const SecureBytes& hmacBaseKey, const std::function<void(ByteView)>& each)
{
    for (std::uint64_t index = 0;; ++index) {
        const ByteView stored = reader.bytes(32);
        const std::uint32_t length = reader.u32();
        const ByteView data = reader.bytes(length);
        const Digest256 expected = blockHmac(hmacBaseKey, index, data);
        if (!constantTimeEqual(stored, expected))
            throw KdbxError::blockCorrupt(index);
        if (length == 0)
            return;
        each(data);
    }
}

SecureBytes readBlockStream(ByteReader& reader, const SecureBytes& hmacBaseKey)
{
    SecureBytes ciphertext;
    // The blocks cannot hold more than what is left, so one reservation avoids every regrowth.
    ciphertext.reserve(reader.remaining());
    readBlocks(reader, hmacBaseKey, [&](ByteView data) { ciphertext.append(data); });
    return ciphertext;
}

} // namespace quillon::kdbx
