#include "kdbx/Gzip.h"

#include <cstring>

#include "kdbx/ByteReader.h"
#include "kdbx/ByteWriter.h"
#include "kdbx/Check.h"
#include "kdbx/KdbxError.h"
#include "kdbx/WipingHeap.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <future>
#include <limits>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include <sys/mman.h>
#include <unistd.h>

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

// Maps the pages of a fresh output buffer on another core, a bounded stretch ahead of the writer. On a
// virtual machine whose host takes freed memory back, faulting in a fresh page costs more than inflating
// into it, and two cores fault in parallel. MADV_POPULATE_WRITE leaves the contents alone, so it never
// races with the writer; where the system lacks it, nothing happens. The lead is bounded, so a trailer
// that lies about the size maps little more than the data really fills.
class FaultAhead {
public:
    FaultAhead(std::uint8_t* begin, std::size_t size) : begin_(begin), size_(size)
    {
#ifdef MADV_POPULATE_WRITE
        const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
        if (size >= worthIt && reinterpret_cast<std::uintptr_t>(begin) % page == 0) {
            try {
                thread_ = std::thread([this] { run(); });
            } catch (const std::system_error&) {
                // No thread to spare: the writer faults its pages itself.
            }
        }
#endif
    }
    ~FaultAhead()
    {
        if (!thread_.joinable())
            return;
        reached_.store(stopped, std::memory_order_release);
        reached_.notify_one();
        thread_.join();
    }
    FaultAhead(const FaultAhead&) = delete;
    FaultAhead& operator=(const FaultAhead&) = delete;

    // The writer has filled the buffer up to offset.
    void reached(std::size_t offset) noexcept
    {
        if (!thread_.joinable())
            return;
        reached_.store(offset, std::memory_order_release);
        reached_.notify_one();
    }

private:
    static constexpr std::size_t worthIt = std::size_t{16} << 20;
    static constexpr std::size_t step = std::size_t{2} << 20;
    static constexpr std::size_t lead = std::size_t{64} << 20;
    static constexpr std::size_t stopped = std::numeric_limits<std::size_t>::max();

    void run() noexcept
    {
#ifdef MADV_POPULATE_WRITE
        std::size_t next = 0;
        while (next < size_) {
            const std::size_t writer = reached_.load(std::memory_order_acquire);
            if (writer == stopped)
                return;
            if (next > writer + lead) {
                reached_.wait(writer, std::memory_order_acquire);
                continue;
            }
            // Behind the writer, leave it the page it is on and fault the next ones: both fault at once,
            // never the same page.
            next = std::max(next, writer - writer % step + step);
            const std::size_t length = std::min(step, size_ - next);
            if (::madvise(begin_ + next, length, MADV_POPULATE_WRITE) != 0)
                return; // an older kernel, or memory is short: the writer faults the pages itself
            next += length;
        }
#endif
    }

    std::uint8_t* begin_;
    std::size_t size_;
    std::atomic<std::size_t> reached_{0};
    std::thread thread_;
};

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
    // Declared after out, so that it stops before out is released.
    std::optional<FaultAhead> ahead(std::in_place, out.data(), out.size());
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
            ahead.reset(); // the buffer is about to move
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
        if (ahead)
            ahead->reached(produced);
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

// Slices this large keep both cores busy from the first megabytes on and cost a few bytes each at the join,
// while the slices in flight (one per core, and the one being filled) stay a few MiB: with 4 MiB slices they
// weighed 9 MiB more at the peak of a 50,000-entry save, in the same time.
constexpr std::size_t sliceSize = std::size_t{1} << 20;
// DEFLATE looks back at most 32 KiB: a slice primed with that much of the input before it compresses as
// it would have inside one stream.
constexpr std::size_t deflateWindow = std::size_t{32} << 10;
constexpr std::uint8_t gzipHeader[] = {0x1f, 0x8b, 0x08, 0x00, 0, 0, 0, 0, 0x00, 0xff};

// Raw DEFLATE of one slice, with its CRC-32 taken on the way. A slice that is not the last ends on a byte
// boundary without a final block, so that slices join into one stream.
GzipWriter::Deflated deflateSlice(ByteView in, ByteView dictionary, bool last)
{
    GzipWriter::Deflated result;
    result.crc = static_cast<std::uint32_t>(::crc32_z(0, in.data(), in.size()));
    result.inputSize = in.size();
    ZStream stream(false);
    z_stream& z = stream.z;
    QUILLON_CHECK(deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, rawDeflate, 8, Z_DEFAULT_STRATEGY) == Z_OK);
    if (!dictionary.empty())
        QUILLON_CHECK(deflateSetDictionary(&z, dictionary.data(), slice(dictionary.size())) == Z_OK);
    // Text shrinks several times over; the buffer grows for input that does not.
    SecureBytes& out = result.bytes;
    out.resizeUninitialised(in.size() / 4 + 1024);
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
    // Kept until every slice is done: only what was produced, not the room it was given.
    out = SecureBytes::from(out.span().first(produced));
    return result;
}

} // namespace

GzipWriter::~GzipWriter()
{
    // A running job's future waits for it here; the jobs own what they read, so none outlives its input.
    pending_.clear();
}

void GzipWriter::write(ByteView data)
{
    QUILLON_CHECK(!finished_);
    total_ += data.size();
    while (!data.empty()) {
        if (slice_.size() == sliceSize)
            dispatch();
        if (slice_.empty())
            slice_.reserve(sliceSize);
        const std::size_t n = std::min(data.size(), sliceSize - slice_.size());
        slice_.append(data.first(n));
        data = data.subspan(n);
    }
}

void GzipWriter::dispatch()
{
    // At most one slice per core in flight: the caller fills the next one meanwhile.
    const std::size_t cores = std::max(1u, std::thread::hardware_concurrency());
    while (pending_.size() >= cores) {
        done_.push_back(pending_.front().get());
        pending_.pop_front();
    }
    SecureBytes nextWindow = SecureBytes::from(slice_.span().last(std::min(slice_.size(), deflateWindow)));
    // Deferred when no thread can be had: the slice is then deflated here, in its turn.
    pending_.push_back(std::async(std::launch::async | std::launch::deferred,
                                  [in = std::move(slice_), dictionary = std::move(window_)] {
                                      return deflateSlice(in.span(), dictionary.span(), false);
                                  }));
    window_ = std::move(nextWindow);
    slice_ = SecureBytes();
}

void GzipWriter::handOver(Deflated& piece, const std::function<void(ByteView)>& sink)
{
    crc_ = ::crc32_combine(crc_, piece.crc, static_cast<z_off_t>(piece.inputSize));
    sink(piece.bytes.span());
    piece.bytes.wipe();
}

void GzipWriter::drainReady(const std::function<void(ByteView)>& sink)
{
    if (!headerSent_) {
        sink(ByteView(gzipHeader));
        headerSent_ = true;
    }
    for (auto& piece : done_)
        handOver(piece, sink);
    done_.clear();
    while (!pending_.empty() && pending_.front().wait_for(std::chrono::seconds(0)) == std::future_status::ready) {
        Deflated piece = pending_.front().get();
        pending_.pop_front();
        handOver(piece, sink);
    }
}

std::size_t GzipWriter::close()
{
    QUILLON_CHECK(!finished_);
    finished_ = true;
    // The last slice, possibly empty, closes the stream here while the others finish.
    Deflated last = deflateSlice(slice_.span(), window_.span(), true);
    slice_.wipe();
    window_.wipe();
    for (auto& later : pending_)
        done_.push_back(later.get());
    pending_.clear();
    done_.push_back(std::move(last));

    std::size_t size = (headerSent_ ? 0 : sizeof gzipHeader) + 8;
    for (const auto& piece : done_)
        size += piece.bytes.size();
    return size;
}

void GzipWriter::drain(const std::function<void(ByteView)>& sink)
{
    QUILLON_CHECK(finished_);
    if (!headerSent_) {
        sink(ByteView(gzipHeader));
        headerSent_ = true;
    }
    for (auto& piece : done_)
        handOver(piece, sink);
    done_.clear();
    std::vector<std::uint8_t> trailer;
    ByteWriter writer(trailer);
    writer.u32(static_cast<std::uint32_t>(crc_));
    writer.u32(static_cast<std::uint32_t>(total_));
    sink(trailer);
}

SecureBytes GzipWriter::finish()
{
    SecureBytes out;
    // Sized once, so that the member is copied once.
    out.reserve(close());
    drain([&out](ByteView piece) { out.append(piece); });
    return out;
}

std::vector<std::uint8_t> gzip(ByteView data)
{
    GzipWriter writer;
    writer.write(data);
    const SecureBytes member = writer.finish();
    return {member.span().begin(), member.span().end()};
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

struct GunzipReader::State {
    ZStream stream{true};
    std::function<void(ByteView)> out;
    std::size_t ceiling = 0;
    std::array<std::uint8_t, sizeof gzipHeader> header{};
    std::size_t headerHave = 0;
    std::array<std::uint8_t, 8> trailer{};
    std::size_t trailerHave = 0;
    bool ended = false;
    std::size_t total = 0;
    uLong crc = ::crc32_z(0, nullptr, 0);
    SecureBytes buffer = SecureBytes::uninitialised(std::size_t{64} << 10);
};

GunzipReader::GunzipReader(std::function<void(ByteView)> out, std::size_t ceiling) : state_(std::make_unique<State>())
{
    state_->out = std::move(out);
    state_->ceiling = ceiling;
    if (const int code = inflateInit2(&state_->stream.z, rawDeflate); code != Z_OK)
        throw DecompressionError(zlibReason(state_->stream.z, code));
}

GunzipReader::~GunzipReader() = default;

void GunzipReader::write(ByteView data)
{
    State& s = *state_;
    z_stream& z = s.stream.z;
    while (!data.empty()) {
        if (s.headerHave < s.header.size()) {
            const std::size_t n = std::min(data.size(), s.header.size() - s.headerHave);
            std::copy_n(data.begin(), n, s.header.begin() + static_cast<std::ptrdiff_t>(s.headerHave));
            s.headerHave += n;
            data = data.subspan(n);
            if (s.headerHave == s.header.size()) {
                if (s.header[0] != 0x1f || s.header[1] != 0x8b)
                    throw KdbxError::malformedInner("not gzip");
                if (s.header[2] != 0x08 || s.header[3] != 0)
                    throw KdbxError::malformedInner("unexpected gzip header");
            }
            continue;
        }
        if (s.ended) {
            if (data.size() > s.trailer.size() - s.trailerHave)
                throw KdbxError::malformedInner("data after the gzip member");
            std::copy(data.begin(), data.end(), s.trailer.begin() + static_cast<std::ptrdiff_t>(s.trailerHave));
            s.trailerHave += data.size();
            return;
        }
        const std::size_t inBefore = z.total_in;
        z.next_in = const_cast<Bytef*>(data.data());
        z.avail_in = slice(data.size());
        z.next_out = s.buffer.data();
        z.avail_out = slice(s.buffer.size());
        const int code = inflate(&z, Z_NO_FLUSH);
        const std::size_t fresh = s.buffer.size() - z.avail_out;
        const auto consumed = static_cast<std::size_t>(z.total_in - inBefore);
        if (code == Z_BUF_ERROR && fresh == 0 && consumed == 0)
            throw DecompressionError(zlibReason(z, code));
        data = data.subspan(consumed);
        if (fresh > s.ceiling - s.total)
            throw DecompressionError(ceilingText(s.ceiling));
        s.total += fresh;
        s.crc = ::crc32_z(s.crc, s.buffer.data(), fresh);
        if (fresh != 0)
            s.out(s.buffer.span().first(fresh));
        if (code == Z_STREAM_END)
            s.ended = true;
        else if (code != Z_OK && code != Z_BUF_ERROR)
            throw DecompressionError(zlibReason(z, code));
    }
}

void GunzipReader::finish()
{
    const State& s = *state_;
    if (!s.ended)
        throw DecompressionError("decompression failed: unexpected end of compressed data");
    if (s.trailerHave < s.trailer.size())
        throw KdbxError::malformedHeader(unexpectedEnd);
    if (static_cast<std::uint32_t>(s.crc) != loadU32(s.trailer))
        throw KdbxError::malformedInner("gzip crc mismatch");
    if (static_cast<std::uint32_t>(s.total) != loadU32(ByteView(s.trailer).subspan(4)))
        throw KdbxError::malformedInner("gzip length mismatch");
}

} // namespace quillon::kdbx
