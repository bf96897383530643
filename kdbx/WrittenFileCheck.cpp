#include "kdbx/WrittenFileCheck.h"

#include "kdbx/OuterHeader.h"

#include <algorithm>
#include <optional>

namespace quillon::kdbx {
namespace {

constexpr std::size_t pieceSize = std::size_t{64} << 10;
constexpr std::size_t codesSize = 64; // the header's SHA-256, then its HMAC

// The length of the outer header at the start of bytes, once its end field is all there: signatures and version,
// then fields of an id, a 32-bit length and the data, up to the field with id 0.
std::optional<std::size_t> headerLength(ByteView bytes)
{
    std::size_t at = 12;
    while (at + 5 <= bytes.size()) {
        const std::uint8_t id = bytes[at];
        const std::size_t length = loadU32(bytes.subspan(at + 1, 4));
        if (length > BlockStreamReader::maxBlockSize)
            throw KdbxError::malformedHeader("header field too long");
        at += 5 + length;
        if (at > bytes.size())
            return std::nullopt;
        if (id == 0)
            return at;
    }
    return std::nullopt;
}

} // namespace

WrittenFileCheck::WrittenFileCheck(const Credentials& credentials, const PayloadDigests& digests)
    : credentials_(credentials), digests_(digests), plain_(SecureBytes::uninitialised(pieceSize + 16))
{
}

void WrittenFileCheck::write(ByteView piece)
{
    // The header is gathered a little at a time, so that a large first piece is not copied whole.
    while (!blocks_ && !piece.empty()) {
        const ByteView some = piece.first(std::min(piece.size(), std::size_t{4} << 10));
        head_.insert(head_.end(), some.begin(), some.end());
        piece = piece.subspan(some.size());
        const auto length = headerLength(head_);
        if (!length || head_.size() < *length + codesSize) {
            if (head_.size() > BlockStreamReader::maxBlockSize)
                throw KdbxError::malformedHeader(unexpectedEnd);
            continue;
        }
        header();
        const std::vector<std::uint8_t> rest(head_.begin() + static_cast<std::ptrdiff_t>(*length + codesSize),
                                             head_.end());
        std::vector<std::uint8_t>().swap(head_);
        if (blocks_->write(rest) != rest.size())
            throw KdbxError::writtenFileDiffers(); // bytes after the final block
    }
    if (!blocks_)
        return;
    const std::size_t used = blocks_->write(piece);
    if (used != piece.size())
        throw KdbxError::writtenFileDiffers(); // bytes after the final block
}

void WrittenFileCheck::header()
{
    ByteReader reader(head_);
    const ParsedOuterHeader parsed = parseOuterHeader(reader);
    const DerivedKeys keys = checkedKeys(reader, parsed, credentials_);

    decryptor_.emplace(payloadDecryptor(parsed.header, keys));
    if (parsed.header.compressed)
        gunzip_.emplace([this](ByteView plain) { payload(plain); });
    blocks_.emplace(keys.hmacBaseKey, [this](ByteView block) {
        while (!block.empty()) {
            const ByteView piece = block.first(std::min(block.size(), pieceSize));
            decrypted(plain_.span().first(decryptor_->update(piece, plain_.data())));
            block = block.subspan(piece.size());
        }
    });
}

void WrittenFileCheck::decrypted(ByteView plain)
{
    if (gunzip_)
        gunzip_->write(plain);
    else
        payload(plain);
}

// The payload as it comes out: the inner header first, then the XML, each into its own digest.
void WrittenFileCheck::payload(ByteView plain)
{
    if (seen_ < digests_.innerHeaderSize) {
        const auto n =
            static_cast<std::size_t>(std::min<std::uint64_t>(plain.size(), digests_.innerHeaderSize - seen_));
        innerDigest_.update(plain.first(n));
        plain = plain.subspan(n);
        seen_ += n;
    }
    xmlDigest_.update(plain);
    seen_ += plain.size();
}

void WrittenFileCheck::finish()
{
    if (!blocks_ || !blocks_->finished())
        throw KdbxError::malformedHeader(unexpectedEnd);
    decrypted(plain_.span().first(decryptor_->finish(plain_.data())));
    if (gunzip_)
        gunzip_->finish();
    const Digest256 innerSeen = innerDigest_.finish(), xmlSeen = xmlDigest_.finish();
    if (seen_ != digests_.innerHeaderSize + digests_.xmlSize || !constantTimeEqual(innerSeen, digests_.innerHeader) ||
        !constantTimeEqual(xmlSeen, digests_.xml))
        throw KdbxError::writtenFileDiffers();
}

} // namespace quillon::kdbx
