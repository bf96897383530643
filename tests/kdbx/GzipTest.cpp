#include "kdbx/Gzip.h"
#include "kdbx/KdbxError.h"
#include "tests/support/Helpers.h"
#include "tests/support/Peers.h"
#include "tests/support/Process.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>

using namespace quillon::kdbx;
using quillon::test::bytesOf;
using quillon::test::readFile;
using quillon::test::run;
using quillon::test::TempDir;
using quillon::test::writeFile;
using testing::HasSubstr;
using testing::StrEq;
using testing::ThrowsMessage;

namespace {

std::vector<std::uint8_t> sampleText(std::size_t n)
{
    std::string s;
    for (std::size_t i = 0; s.size() < n; ++i)
        s += "<Entry><String><Key>Title</Key><Value>entry " + std::to_string(i * 7919 % 1000) + "</Value></String>\n";
    s.resize(n);
    return bytesOf(s);
}

// Members written by the system's gzip and by Python's zlib (name, comment, extra field, header CRC), and
// ours (below) read back by gzip -dc.
TEST(Gzip, interoperatesWithOtherWriters)
{
    const auto gzipTool = quillon::test::findInPath("gzip");
    QUILLON_REQUIRE_PEER(gzipTool, "gzip");
    const auto python = quillon::test::findInPath("python3");
    QUILLON_REQUIRE_PEER(python, "python3");
    TempDir dir;
    const auto data = sampleText(200000);
    writeFile(dir / "payload.xml", data);

    const auto named = run({gzipTool->string(), "-N", "-k", "-9", (dir / "payload.xml").string()});
    ASSERT_EQ(named.exitCode, 0) << named.err;
    const auto byGzip = readFile(dir / "payload.xml.gz");
    ASSERT_TRUE(byGzip[3] & 0x08) << "gzip -N writes the file name";
    EXPECT_EQ(bytesOf(gunzip(byGzip)), data);

    // Every optional header field, and a method byte that is not 8 (not refused).
    const std::string script = R"(
import sys, zlib, struct
data = open(sys.argv[1], 'rb').read()
c = zlib.compressobj(6, zlib.DEFLATED, -15)
body = c.compress(data) + c.flush()
def member(method):
    h = bytes([0x1f, 0x8b, method, 0x1e]) + struct.pack('<I', 1700000000) + bytes([2, 3])
    h += struct.pack('<H', 5) + b'extra' + b'name.xml\0' + b'a comment\0'
    h += struct.pack('<H', zlib.crc32(h) & 0xffff)
    return h + body + struct.pack('<II', zlib.crc32(data), len(data) & 0xffffffff)
open(sys.argv[2], 'wb').write(member(8))
open(sys.argv[3], 'wb').write(member(9))
)";
    const auto made = run({python->string(), "-c", script, (dir / "payload.xml").string(), (dir / "full.gz").string(),
                           (dir / "method9.gz").string()});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    const auto check = run({gzipTool->string(), "-t", (dir / "full.gz").string()});
    EXPECT_EQ(check.exitCode, 0) << "the hand-made member is valid gzip: " << check.err;
    EXPECT_EQ(bytesOf(gunzip(readFile(dir / "full.gz"))), data);
    EXPECT_EQ(bytesOf(gunzip(readFile(dir / "method9.gz"))), data);
}

// Large payloads are deflated in slices on several cores, each primed with the 32 KiB before it; the joined
// stream must be one member that gzip itself reads back, whatever pieces a serialiser handed the writer. Reading,
// the output is sized from the trailer and filled ahead on another core; a trailer that understates the size
// makes the buffer move mid-way, which must not disturb what was written.
TEST(Gzip, aLargePayloadIsOneMemberHoweverItWasCutAndWhateverItsTrailerClaims)
{
    const auto gzipTool = quillon::test::findInPath("gzip");
    QUILLON_REQUIRE_PEER(gzipTool, "gzip");
    const auto data = sampleText(std::size_t{13} << 20); // whole slices, and a last one that is not full
    auto member = gzip(data);
    GzipWriter writer;
    const std::size_t cuts[] = {1, 10, 4093, 65536, std::size_t{5} << 20};
    for (std::size_t i = 0, at = 0; at < data.size(); at += cuts[i++ % std::size(cuts)])
        writer.write(ByteView(data).subspan(at, std::min(cuts[i % std::size(cuts)], data.size() - at)));
    EXPECT_EQ(writer.size(), data.size());
    EXPECT_TRUE(std::ranges::equal(writer.finish().span(), member));

    TempDir dir;
    writeFile(dir / "ours.gz", member);
    const auto back = run({gzipTool->string(), "-dc", (dir / "ours.gz").string()});
    ASSERT_EQ(back.exitCode, 0) << back.err;
    EXPECT_TRUE(bytesOf(back.out) == data);
    const std::uint32_t claimed = std::uint32_t{5} << 20;
    for (int i = 0; i < 4; ++i)
        member[member.size() - 4 + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(claimed >> (8 * i));
    EXPECT_TRUE(bytesOf(gunzip(member)) == data);

    // Exactly a whole number of slices: the stream ends with an empty final block.
    const auto even = sampleText(std::size_t{8} << 20);
    EXPECT_TRUE(bytesOf(gunzip(gzip(even))) == even);
}

TEST(Gzip, malformedWrappers)
{
    const auto data = sampleText(1000);
    const auto good = gzip(data);
    auto withName = std::vector<std::uint8_t>{0x1f, 0x8b, 8, 0x08, 0, 0, 0, 0, 0, 0xff, 'n', 'a', 'm', 'e'};
    const std::string notGzip = "Malformed inner header: not gzip.";
    const std::string shortData = "Malformed header: unexpected end of data.";
    const std::string crc = "Malformed inner header: gzip crc mismatch.";
    struct Row {
        const char* name;
        std::vector<std::uint8_t> input;
        std::string message;
    };
    auto mutated = [&](std::size_t at) {
        auto b = good;
        b[at] ^= 0x40;
        return b;
    };
    const Row rows[] = {
        {"empty", {}, shortData},
        {"one byte", {0x1f}, shortData},
        {"wrong magic", mutated(1), notGzip},
        {"zlib stream", {0x78, 0x9c, 3, 0, 0, 0, 0, 1}, notGzip},
        {"header cut", std::vector(good.begin(), good.begin() + 9), shortData},
        {"no trailer", std::vector(good.begin(), good.begin() + 17), shortData},
        {"name never ends", withName, shortData},
        {"extra longer than the file", {0x1f, 0x8b, 8, 0x04, 0, 0, 0, 0, 0, 0xff, 0xff, 0x00, 1, 2}, shortData},
        {"stored CRC changed", mutated(good.size() - 8), crc},
    };
    for (const Row& row : rows)
        EXPECT_THAT([&] { (void)gunzip(row.input); }, ThrowsMessage<KdbxError>(StrEq(row.message))) << row.name;

    // The stored length is not checked.
    EXPECT_EQ(bytesOf(gunzip(mutated(good.size() - 1))), data);
}

// A damaged stream is the library's error; output stops at the ceiling whatever the trailer claims; padding after
// the member, which some writers add, is never looked at.
TEST(Gzip, inflatingStopsAtDamageAndAtTheCeilingAndIgnoresPadding)
{
    const auto good = gzip(sampleText(5000));
    auto truncated = std::vector(good.begin(), good.begin() + 30);
    truncated.insert(truncated.end(), good.end() - 8, good.end());
    auto invalid = good;
    invalid[10] = 0xff; // block type 3 is reserved
    for (const auto& input : {truncated, invalid})
        EXPECT_THAT([&] { (void)gunzip(input); }, ThrowsMessage<DecompressionError>(HasSubstr("decompression failed")));

    const std::vector<std::uint8_t> zeros(4096, 0);
    auto member = gzip(zeros);
    EXPECT_EQ(gunzip(member, 4096).size(), 4096u);
    for (const std::size_t ceiling : {4095u, 1000u})
        EXPECT_THAT([&] { (void)gunzip(member, ceiling); },
                    ThrowsMessage<DecompressionError>(StrEq("decompressed data exceeds " + std::to_string(ceiling) +
                                                            " bytes")));
    member.back() = 0x7f; // a trailer that lies about the length changes nothing but the first guess
    EXPECT_EQ(bytesOf(gunzip(member)), zeros);

    auto padded = good;
    padded.insert(padded.end(), 8, 0x08);
    EXPECT_EQ(bytesOf(gunzip(padded)), sampleText(5000));
    padded[padded.size() - 16] ^= 1; // the stored CRC, before the padding
    EXPECT_THROW(gunzip(padded), KdbxError);
}

} // namespace
