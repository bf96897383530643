#include "kdbx/BlockStream.h"

#include "kdbx/ByteWriter.h"
#include "kdbx/Check.h"
#include "kdbx/KdbxError.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

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
    out.reserve(out.size() + ciphertext.size() + (ciphertext.size() / blockSize + 2) * 36);
    const std::function<void(ByteView)> append = [&out](ByteView piece) {
        out.insert(out.end(), piece.begin(), piece.end());
    };
    BlockStreamWriter writer(append, hmacBaseKey, blockSize);
    writer.write(ciphertext);
    writer.finish();
}

BlockStreamWriter::BlockStreamWriter(const std::function<void(ByteView)>& out, const SecureBytes& hmacBaseKey,
                                     std::size_t blockSize)
    : out_(out), hmacBaseKey_(hmacBaseKey.copy()), blockSize_(blockSize)
{
    QUILLON_CHECK(blockSize > 0 && blockSize <= std::numeric_limits<std::uint32_t>::max());
}

void BlockStreamWriter::block(ByteView piece)
{
    std::vector<std::uint8_t> head;
    ByteWriter writer(head);
    writer.bytes(blockHmac(hmacBaseKey_, index_++, piece));
    writer.u32(static_cast<std::uint32_t>(piece.size()));
    out_(head);
    if (!piece.empty())
        out_(piece);
}

void BlockStreamWriter::write(ByteView ciphertext)
{
    if (!pending_.empty()) {
        const std::size_t n = std::min(ciphertext.size(), blockSize_ - pending_.size());
        pending_.insert(pending_.end(), ciphertext.begin(), ciphertext.begin() + static_cast<std::ptrdiff_t>(n));
        ciphertext = ciphertext.subspan(n);
        if (pending_.size() < blockSize_)
            return;
        block(pending_);
        pending_.clear();
    }
    // Whole blocks go straight from the input; only a remainder waits.
    while (ciphertext.size() >= blockSize_) {
        block(ciphertext.first(blockSize_));
        ciphertext = ciphertext.subspan(blockSize_);
    }
    pending_.assign(ciphertext.begin(), ciphertext.end());
}

void BlockStreamWriter::finish()
{
    if (!pending_.empty())
        block(pending_);
    pending_.clear();
    block({});
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

BlockStreamReader::BlockStreamReader(const SecureBytes& hmacBaseKey, std::function<void(ByteView)> each)
    : hmacBaseKey_(hmacBaseKey.copy()), each_(std::move(each))
{
}

std::size_t BlockStreamReader::write(ByteView input)
{
    const std::size_t offered = input.size();
    while (!input.empty() && !finished_) {
        const std::size_t n = std::min(input.size(), want_ - pending_.size());
        pending_.insert(pending_.end(), input.begin(), input.begin() + static_cast<std::ptrdiff_t>(n));
        input = input.subspan(n);
        if (pending_.size() < want_)
            break;
        if (!inData_) {
            const std::uint32_t length = loadU32(ByteView(pending_).subspan(32, 4));
            if (length > maxBlockSize)
                throw KdbxError::malformedHeader("block too long");
            want_ = 36 + length;
            inData_ = true;
            if (length != 0)
                continue;
        }
        const ByteView data = ByteView(pending_).subspan(36);
        if (!constantTimeEqual(ByteView(pending_).first(32), blockHmac(hmacBaseKey_, index_, data)))
            throw KdbxError::blockCorrupt(index_);
        ++index_;
        if (data.empty())
            finished_ = true;
        else
            each_(data);
        pending_.clear();
        want_ = 36;
        inData_ = false;
    }
    return offered - input.size();
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
