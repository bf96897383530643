// A gzip member whose DEFLATE data inflates past the 2 GiB ceiling: the reader stops at the ceiling with
// the library's error instead of exhausting memory. The bomb is made in pieces; the test never holds its
// inflated form.
#include "kdbx/Gzip.h"

#include <gtest/gtest.h>

#include <zlib.h>

#include <sys/resource.h>

using namespace quillon::kdbx;

namespace {

std::vector<std::uint8_t> rawDeflateOfZeros(std::size_t count)
{
    z_stream z{};
    EXPECT_EQ(deflateInit2(&z, 9, Z_DEFLATED, -15, 9, Z_DEFAULT_STRATEGY), Z_OK);
    const std::vector<std::uint8_t> zeros(1 << 20, 0);
    std::vector<std::uint8_t> out;
    std::vector<std::uint8_t> chunk(1 << 16);
    std::size_t left = count;
    int code = Z_OK;
    while (code != Z_STREAM_END) {
        const std::size_t n = std::min(left, zeros.size());
        z.next_in = const_cast<Bytef*>(zeros.data());
        z.avail_in = static_cast<uInt>(n);
        left -= n;
        do {
            z.next_out = chunk.data();
            z.avail_out = static_cast<uInt>(chunk.size());
            code = deflate(&z, left == 0 ? Z_FINISH : Z_NO_FLUSH);
            out.insert(out.end(), chunk.data(), chunk.data() + (chunk.size() - z.avail_out));
        } while (z.avail_out == 0 || (left == 0 && code != Z_STREAM_END));
    }
    deflateEnd(&z);
    return out;
}

long maxRssKiB()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

TEST(GzipBomb, stopsAtTheTwoGibibyteCeiling)
{
    const std::size_t inflated = defaultDecompressedCeiling + (std::size_t{1} << 20);
    std::vector<std::uint8_t> member = {0x1f, 0x8b, 8, 0, 0, 0, 0, 0, 0, 0xff};
    const auto deflated = rawDeflateOfZeros(inflated);
    member.insert(member.end(), deflated.begin(), deflated.end());
    // The trailer claims a small size, as a bomb's would.
    member.insert(member.end(), {0, 0, 0, 0, 0x10, 0, 0, 0});
    ASSERT_LT(member.size(), std::size_t{8} << 20);

    try {
        (void)gunzip(member);
        FAIL() << "a member inflating past the ceiling was accepted";
    } catch (const DecompressionError& e) {
        EXPECT_STREQ(e.what(), "decompressed data exceeds 2 GiB");
    }
    // The output buffer never grows past the ceiling plus the copy it grows from.
    EXPECT_LT(maxRssKiB(), 3L * 1024 * 1024 + 512 * 1024);
}

} // namespace
