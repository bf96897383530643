// kdbx/Gzip.h: the gzip member around the payload: our own wrapper and CRC check over zlib's raw DEFLATE.
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <future>
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

// Writes one member from data handed over piece by piece, as a serialiser produces it. Each completed slice
// is deflated on a core of its own, primed with the 32 KiB before it, while the caller goes on producing the
// next: compressing overlaps producing, and the whole plain input never sits in memory at once. The slices
// join into one DEFLATE stream, the same for the same input however the pieces were cut.
//
//     GzipWriter out;
//     out.write(innerHeader);
//     out.write(xml);               // any number of calls
//     SecureBytes member = out.finish();
class GzipWriter {
public:
    GzipWriter() = default;
    ~GzipWriter(); // waits for the slices still being deflated
    GzipWriter(const GzipWriter&) = delete;
    GzipWriter& operator=(const GzipWriter&) = delete;

    void write(ByteView data);
    // Bytes handed over so far.
    std::size_t size() const noexcept { return total_; }
    // The whole member, in wiped memory: compressed plaintext is as secret as the plaintext.
    SecureBytes finish();
    // The same in pieces, so that the member is never joined. drainReady() hands sink what is ready so far, in
    // order: the header, then each slice already deflated. close() waits for the rest and returns the size of
    // what is still to come; drain() hands that over, up to the trailer. Each slice is wiped as soon as sink
    // returns.
    void drainReady(const std::function<void(ByteView)>& sink);
    std::size_t close();
    void drain(const std::function<void(ByteView)>& sink);

    // A slice that this writer compressed. Public for the implementation's helpers only.
    struct Deflated {
        SecureBytes bytes;
        std::uint32_t crc = 0;
        std::size_t inputSize = 0;
    };

private:
    void dispatch();
    void handOver(Deflated& piece, const std::function<void(ByteView)>& sink);

    SecureBytes slice_;
    // The last 32 KiB before slice_, the window that primes its compression.
    SecureBytes window_;
    std::deque<std::future<Deflated>> pending_;
    std::vector<Deflated> done_;
    std::size_t total_ = 0;
    unsigned long crc_ = 0; // of the slices handed over
    bool headerSent_ = false;
    bool finished_ = false;
};

// Reads a member as GzipWriter writes it (the fixed header, no optional fields) from pieces handed over as they
// arrive, and hands the inflated data to out in slices of at most 64 KiB, so that neither the member nor what it
// inflates to is held whole. Throws as gunzip does; data after the member is refused.
class GunzipReader {
public:
    explicit GunzipReader(std::function<void(ByteView)> out, std::size_t ceiling = defaultDecompressedCeiling);
    ~GunzipReader();
    GunzipReader(const GunzipReader&) = delete;
    GunzipReader& operator=(const GunzipReader&) = delete;

    void write(ByteView compressed);
    // Checks that the member ended, and its CRC-32 and length.
    void finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Throws KdbxError for faults of the wrapper (magic, short data, CRC) and DecompressionError for what
// zlib refuses. The header CRC and the stored length are not checked.
SecureBytes gunzip(ByteView data, std::size_t ceiling = defaultDecompressedCeiling);

} // namespace quillon::kdbx
