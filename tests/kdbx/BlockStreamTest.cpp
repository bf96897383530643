#include "kdbx/BlockStream.h"
#include "kdbx/ByteReader.h"
#include "kdbx/KdbxError.h"
#include "tests/support/Helpers.h"

#include <gmock/gmock.h>

#include <numeric>

using namespace quillon::kdbx;
using quillon::test::bytesOf;
using testing::StrEq;
using testing::ThrowsMessage;

namespace {

constexpr std::size_t mib = std::size_t{1} << 20;

SecureBytes baseKey()
{
    std::vector<std::uint8_t> k(64);
    std::iota(k.begin(), k.end(), std::uint8_t{100});
    return SecureBytes::from(k);
}

std::vector<std::uint8_t> payload(std::size_t n)
{
    std::vector<std::uint8_t> v(n);
    for (std::size_t i = 0; i < n; ++i)
        v[i] = static_cast<std::uint8_t>(i * 7 + i / 251);
    return v;
}

// Walks the blocks as written and returns (index implied by position, length) of each.
std::vector<std::uint32_t> blockLengths(const std::vector<std::uint8_t>& stream)
{
    std::vector<std::uint32_t> lengths;
    ByteReader reader(stream);
    while (reader.remaining() > 0) {
        reader.skip(32);
        lengths.push_back(reader.u32());
        reader.skip(lengths.back());
    }
    return lengths;
}

TEST(BlockStream, layoutAndRoundTrip)
{
    struct Row {
        std::size_t size;
        std::vector<std::uint32_t> lengths;
    };
    const Row rows[] = {
        {0, {0}},
        {1, {1, 0}},
        {mib, {static_cast<std::uint32_t>(mib), 0}},
        {mib + 1, {static_cast<std::uint32_t>(mib), 1, 0}},
        {2 * mib + 100, {static_cast<std::uint32_t>(mib), static_cast<std::uint32_t>(mib), 100, 0}},
    };
    const SecureBytes key = baseKey();
    for (const Row& row : rows) {
        const auto data = payload(row.size);
        std::vector<std::uint8_t> stream = {0xAA}; // appended, not replaced
        writeBlockStream(stream, data, key);
        ASSERT_EQ(stream.front(), 0xAA);
        stream.erase(stream.begin());
        EXPECT_EQ(blockLengths(stream), row.lengths) << row.size;

        stream.insert(stream.end(), {9, 9, 9}); // bytes after the final block are ignored
        ByteReader reader(stream);
        EXPECT_EQ(bytesOf(readBlockStream(reader, key)), data) << row.size;
        EXPECT_EQ(reader.remaining(), 3u);
    }
}

TEST(BlockStream, tamperingNamesTheBlock)
{
    std::vector<std::uint8_t> stream;
    writeBlockStream(stream, payload(300), baseKey(), 100); // blocks 0-2 of 100 bytes, block 3 empty
    const std::size_t block = 136;
    const auto flipped = [&](std::size_t at) {
        auto bytes = stream;
        bytes[at] ^= 0x01;
        return bytes;
    };
    auto swapped = stream; // the index is part of each MAC
    std::swap_ranges(swapped.begin(), swapped.begin() + block, swapped.begin() + block);
    const struct {
        const char* name;
        std::vector<std::uint8_t> bytes;
        int block;
    } rows[] = {
        {"block 0 data", flipped(36 + 5), 0},           {"block 0 MAC", flipped(0), 0},
        {"block 2 data", flipped(2 * block + 36 + 99), 2}, {"final block MAC", flipped(3 * block + 31), 3},
        {"two blocks swapped", swapped, 0},             {"wrong key", stream, 0},
    };
    for (const auto& row : rows) {
        ByteReader reader(row.bytes);
        const SecureBytes key = row.bytes == stream ? SecureBytes::from(std::vector<std::uint8_t>(64, 1)) : baseKey();
        EXPECT_THAT([&] { (void)readBlockStream(reader, key); },
                    ThrowsMessage<KdbxError>(StrEq("Data block " + std::to_string(row.block) +
                                                   " failed its integrity check.")))
            << row.name;
    }
}

} // namespace
