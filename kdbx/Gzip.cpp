#include "kdbx/Gzip.h"

#include <cstring>

#include "kdbx/ByteReader.h"
#include "kdbx/ByteWriter.h"
#include "kdbx/Check.h"
#include "kdbx/KdbxError.h"
#include "kdbx/WipingHeap.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <future>
#include <thread>
#include <string>

namespace quillon::kdbx {
namespace {

constexpr int rawDeflate = -15;
constexpr std::uint8_t flagExtra = 0x04;
constexpr std::uint8_t flagName = 0x08;
constexpr std::uint8_t flagComment = 0x10;
constexpr std::uint8_t flagHeaderCrc = 0x02;
// DEFLATE cannot expand a byte of input into more than about 1032 bytes of output.
constexpr std::size_t maxDeflateRatio = 1032;
constexpr std::size_t firstGuessMinimum = std::size_t{64} << 10;
// Output is produced in slices small enough to stay in cache while their CRC-32 is taken.
constexpr std::size_t crcSlice = std::size_t{256} << 10;

uInt slice(std::size_t n) noexcept { return static_cast<uInt>(std::min<std::size_t>(n, UINT_MAX)); }

// The compressor and decompressor state hold plaintext (window, pending output): it lives on the wiping
// heap, and is ended on every path.
struct ZStream {
    z_stream z{};
    bool inflating;
    explicit ZStream(bool inflate) : inflating(inflate)
    {
        z.zalloc = wipingZalloc;
        z.zfree = wipingZfree;
    }
    ~ZStream() { inflating ? inflateEnd(&z) : deflateEnd(&z); }
    ZStream(const ZStream&) = delete;
    ZStream& operator=(const ZStream&) = delete;
};

std::string zlibReason(const z_stream& z, int code)
{
    return std::string("decompression failed: ") + (z.msg ? z.msg : zError(code));
}

std::string ceilingText(std::size_t ceiling)
{
    constexpr std::size_t gib = std::size_t{1} << 30;
    const std::string amount =
        ceiling % gib == 0 ? std::to_string(ceiling / gib) + " GiB" : std::to_string(ceiling) + " bytes";
    return "decompressed data exceeds " + amount;
}

// Raw inflate into wiped memory, never past the ceiling. The output is sized once from the trailer's
// length when that is believable, so ordinary payloads are inflated without a single regrowth.
// `consumed` receives how many input bytes the DEFLATE stream took up to its end, `crc` the output's CRC-32.
SecureBytes inflateRaw(ByteView input, std::uint32_t sizeHint, std::size_t ceiling, std::size_t& consumed,
                       std::uint32_t& crc)
{
    ZStream stream(true);
    z_stream& z = stream.z;
    if (const int code = inflateInit2(&z, rawDeflate); code != Z_OK)
        throw DecompressionError(zlibReason(z, code));

    const std::size_t ratioBound = input.size() > ceiling / maxDeflateRatio ? ceiling : input.size() * maxDeflateRatio;
    std::size_t capacity = std::min({std::max<std::size_t>(sizeHint, 1), ratioBound, ceiling});
    capacity = std::max(capacity, std::min(firstGuessMinimum, ceiling));
    SecureBytes out = SecureBytes::uninitialised(capacity);
    std::size_t produced = 0;
    uLong check = ::crc32_z(0, nullptr, 0);

    for (;;) {
        if (produced == out.size()) {
            if (out.size() >= ceiling) {
                // Full at the ceiling: the stream may still end here without another byte.
                std::uint8_t probe = 0;
                z.next_out = &probe;
                z.avail_out = 1;
                z.next_in = const_cast<Bytef*>(input.data());
                z.avail_in = slice(input.size());
                const int code = inflate(&z, Z_NO_FLUSH);
                secureWipe(&probe, 1);
                if (code == Z_STREAM_END && z.avail_out == 1) {
                    consumed = static_cast<std::size_t>(z.total_in);
                    break;
                }
                if (z.avail_out == 0)
                    throw DecompressionError(ceilingText(ceiling));
                throw DecompressionError(zlibReason(z, code));
            }
            out.resizeUninitialised(std::min(out.size() * 2, ceiling));
        }
        const std::size_t inBefore = z.total_in;
        z.next_in = const_cast<Bytef*>(input.data());
        z.avail_in = slice(input.size());
        z.next_out = out.data() + produced;
        z.avail_out = slice(std::min(out.size() - produced, crcSlice));
        const uInt outBefore = z.avail_out;
        const int code = inflate(&z, Z_NO_FLUSH);
        const std::size_t fresh = outBefore - z.avail_out;
        check = ::crc32_z(check, out.data() + produced, fresh);
        produced += fresh;
        input = input.subspan(static_cast<std::size_t>(z.total_in - inBefore));
        if (code == Z_STREAM_END) {
            consumed = static_cast<std::size_t>(z.total_in);
            break;
        }
        if (code == Z_BUF_ERROR && input.empty())
            throw DecompressionError("decompression failed: unexpected end of compressed data");
        if (code != Z_OK && code != Z_BUF_ERROR)
            throw DecompressionError(zlibReason(z, code));
    }
    out.resize(produced);
    crc = static_cast<std::uint32_t>(check);
    return out;
}

void skipZeroTerminated(ByteReader& reader)
{
    while (reader.u8() != 0) {
    }
}

} // namespace

std::uint32_t crc32(ByteView data)
{
    return static_cast<std::uint32_t>(::crc32_z(0, data.data(), data.size()));
}

namespace {

// Inputs this large are deflated in slices side by side, one per core.
constexpr std::size_t parallelSlice = std::size_t{8} << 20;
// DEFLATE looks back at most 32 KiB: a slice primed with that much of the input before it compresses as
// it would have inside one stream.
constexpr std::size_t deflateWindow = std::size_t{32} << 10;

struct Deflated {
    SecureBytes buffer; // sized for the worst case; only the first `size` bytes were ever touched
    std::size_t size = 0;
    ByteView bytes() const { return buffer.span().first(size); }
};

// Raw DEFLATE of one slice into a wiped buffer. A slice that is not the last ends on a byte boundary
// without a final block, so that slices join into one stream.
Deflated deflateSlice(ByteView in, ByteView dictionary, bool last)
{
    ZStream stream(false);
    z_stream& z = stream.z;
    QUILLON_CHECK(deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, rawDeflate, 8, Z_DEFAULT_STRATEGY) == Z_OK);
    if (!dictionary.empty())
        QUILLON_CHECK(deflateSetDictionary(&z, dictionary.data(), slice(dictionary.size())) == Z_OK);
    SecureBytes out;
    out.resizeUninitialised(deflateBound(&z, static_cast<uLong>(in.size())) + 16);
    std::size_t produced = 0;
    ByteView rest = in;
    for (;;) {
        if (produced == out.size())
            out.resizeUninitialised(out.size() * 2);
        const std::size_t inBefore = z.total_in;
        z.next_in = const_cast<Bytef*>(rest.data());
        z.avail_in = slice(rest.size());
        z.next_out = out.data() + produced;
        z.avail_out = slice(out.size() - produced);
        const uInt outBefore = z.avail_out;
        const bool allIn = rest.size() <= UINT_MAX;
        const int code = deflate(&z, allIn ? (last ? Z_FINISH : Z_SYNC_FLUSH) : Z_NO_FLUSH);
        produced += outBefore - z.avail_out;
        rest = rest.subspan(static_cast<std::size_t>(z.total_in - inBefore));
        if (code == Z_STREAM_END || (!last && allIn && rest.empty() && z.avail_out != 0))
            break;
        QUILLON_CHECK(code == Z_OK || code == Z_BUF_ERROR);
    }
    return {std::move(out), produced};
}

} // namespace

std::vector<std::uint8_t> gzip(ByteView data)
{
    static constexpr std::uint8_t header[] = {0x1f, 0x8b, 0x08, 0x00, 0, 0, 0, 0, 0x00, 0xff};
    const std::size_t cores = std::max(1u, std::thread::hardware_concurrency());
    const std::size_t count = std::clamp<std::size_t>(data.size() / parallelSlice, 1, cores);
    std::vector<std::future<Deflated>> later;
    for (std::size_t i = 1; i < count; ++i) {
        const std::size_t begin = data.size() * i / count, end = data.size() * (i + 1) / count;
        const ByteView dictionary = data.subspan(begin - std::min(begin, deflateWindow), std::min(begin, deflateWindow));
        later.push_back(std::async(std::launch::async, deflateSlice, data.subspan(begin, end - begin), dictionary,
                                   i + 1 == count));
    }
    std::vector<Deflated> slices;
    slices.push_back(deflateSlice(data.first(data.size() / count), {}, count == 1));
    const std::uint32_t check = crc32(data);
    for (auto& f : later)
        slices.push_back(f.get());

    // Sized once: a regrowth would leave copies of the compressed plaintext in freed memory.
    std::size_t total = sizeof header + 8;
    for (const auto& s : slices)
        total += s.size;
    std::vector<std::uint8_t> out(total - 8);
    out.reserve(total); // the trailer too, before any plaintext is in it
    std::memcpy(out.data(), header, sizeof header);
    std::size_t at = sizeof header;
    for (const auto& s : slices) {
        std::memcpy(out.data() + at, s.bytes().data(), s.size);
        at += s.size;
    }
    ByteWriter writer(out);
    writer.u32(check);
    writer.u32(static_cast<std::uint32_t>(data.size()));
    return out;
}

SecureBytes gunzip(ByteView data, std::size_t ceiling)
{
    ByteReader reader(data);
    const ByteView magic = reader.bytes(2);
    if (magic[0] != 0x1f || magic[1] != 0x8b)
        throw KdbxError::malformedInner("not gzip");
    reader.skip(1); // the method byte is not checked
    const std::uint8_t flags = reader.u8();
    reader.skip(6);
    if (flags & flagExtra)
        reader.skip(reader.u16());
    if (flags & flagName)
        skipZeroTerminated(reader);
    if (flags & flagComment)
        skipZeroTerminated(reader);
    if (flags & flagHeaderCrc)
        reader.skip(2);
    if (reader.remaining() < 8)
        throw KdbxError::malformedHeader(unexpectedEnd);

    // The DEFLATE data runs at most to 8 bytes before the end. The trailer is read where the stream
    // actually ends: some writers leave padding after the member, which is not looked at.
    const ByteView rest = reader.rest();
    const ByteView compressed = rest.first(rest.size() - 8);
    const std::uint32_t sizeHint = loadU32(rest.subspan(rest.size() - 4));
    std::size_t consumed = 0;
    std::uint32_t crc = 0;
    SecureBytes out = inflateRaw(compressed, sizeHint, ceiling, consumed, crc);
    const std::uint32_t storedCrc = loadU32(rest.subspan(consumed));
    if (crc != storedCrc)
        throw KdbxError::malformedInner("gzip crc mismatch");
    return out;
}

} // namespace quillon::kdbx
