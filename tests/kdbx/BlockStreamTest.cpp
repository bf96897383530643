#include "kdbx/BlockStream.h"
#include "kdbx/ByteReader.h"
#include "kdbx/KdbxError.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

using namespace quillon::kdbx;
using testing::StrEq;
using testing::ThrowsMessage;

namespace {

std::vector<std::uint8_t> plainBytes(const SecureBytes& bytes) { return {bytes.data(), bytes.data() + bytes.size()}; }

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
        EXPECT_EQ(plainBytes(readBlockStream(reader, key)), data) << row.size;
        EXPECT_EQ(reader.remaining(), 3u);
    }
}

TEST(BlockStream, tamperingNamesTheBlock)
{
    const auto data = payload(300);
    std::vector<std::uint8_t> stream;
    writeBlockStream(stream, data, baseKey(), 100); // blocks 0-2 of 100 bytes, block 3 empty
    const std::size_t block = 136;
    struct Row {
        const char* name;
        std::size_t offset;
        const char* message;
    };
    const Row rows[] = {
        {"block 0 data", 36 + 5, "Data block 0 failed its integrity check."},
        {"block 0 MAC", 0, "Data block 0 failed its integrity check."},
        {"block 2 data", 2 * block + 36 + 99, "Data block 2 failed its integrity check."},
        {"final block MAC", 3 * block + 31, "Data block 3 failed its integrity check."},
    };
    for (const Row& row : rows) {
        auto bad = stream;
        bad[row.offset] ^= 0x01;
        ByteReader reader(bad);
        EXPECT_THAT([&] { (void)readBlockStream(reader, baseKey()); }, ThrowsMessage<KdbxError>(StrEq(row.message)))
            << row.name;
    }
    // Swapping two blocks breaks both: the index is part of each MAC.
    auto swapped = stream;
    std::swap_ranges(swapped.begin(), swapped.begin() + block, swapped.begin() + block);
    ByteReader reader(swapped);
    EXPECT_THAT([&] { (void)readBlockStream(reader, baseKey()); },
                ThrowsMessage<KdbxError>(StrEq("Data block 0 failed its integrity check.")));
    // The wrong key fails at once.
    auto otherKey = SecureBytes::from(std::vector<std::uint8_t>(64, 1));
    ByteReader again(stream);
    EXPECT_THAT([&] { (void)readBlockStream(again, otherKey); },
                ThrowsMessage<KdbxError>(StrEq("Data block 0 failed its integrity check.")));
}

// A length beyond what is left is refused before anything is read for it.
TEST(BlockStream, aHugeBlockLengthIsUnexpectedEnd)
{
    std::vector<std::uint8_t> huge(36, 0);
    huge[32] = huge[33] = huge[34] = huge[35] = 0xFF;
    ByteReader reader(huge);
    EXPECT_THAT([&] { (void)readBlockStream(reader, baseKey()); },
                ThrowsMessage<KdbxError>(StrEq("Malformed header: unexpected end of data.")));
}

} // namespace
