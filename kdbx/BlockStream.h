// kdbx/BlockStream.h: the authenticated block stream that carries the encrypted payload, and its keys.
#pragma once

#include "kdbx/ByteReader.h"
#include "kdbx/Crypto.h"
#include "kdbx/SecureBytes.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace quillon::kdbx {

// The index the header's authentication code uses; payload blocks count from 0.
inline constexpr std::uint64_t headerBlockIndex = 0xFFFFFFFFFFFFFFFF;

// SHA-512(index, little-endian ‖ HMAC base key): 64 bytes.
SecureBytes blockKey(const SecureBytes& hmacBaseKey, std::uint64_t index);

Digest256 headerHmac(ByteView rawHeader, const SecureBytes& hmacBaseKey);

// Appends the blocks to out: full blocks of blockSize, the rest, then an empty final block.
void writeBlockStream(std::vector<std::uint8_t>& out, ByteView ciphertext, const SecureBytes& hmacBaseKey,
                      std::size_t blockSize = std::size_t{1} << 20);

// The same, for ciphertext handed over in pieces as it is produced: each block goes to out (its code and length,
// then its data) as soon as it is full, so no more than one block is held. out must outlive the writer.
class BlockStreamWriter {
public:
    BlockStreamWriter(const std::function<void(ByteView)>& out, const SecureBytes& hmacBaseKey,
                      std::size_t blockSize = std::size_t{1} << 20);
    void write(ByteView ciphertext);
    // Appends the last partial block and the empty final block.
    void finish();

private:
    void block(ByteView piece);

    const std::function<void(ByteView)>& out_;
    SecureBytes hmacBaseKey_;
    std::size_t blockSize_;
    std::vector<std::uint8_t> pending_; // ciphertext: nothing secret
    std::uint64_t index_ = 0;
};

// The reading side of BlockStreamWriter, for a stream handed over in pieces of any size: each block's data goes to
// `each` once its code has been checked, and only one block is held at a time. Throws blockCorrupt(i) for a block
// whose code does not match, and malformedHeader for a block longer than any writer makes (maxBlockSize).
class BlockStreamReader {
public:
    static constexpr std::size_t maxBlockSize = std::size_t{64} << 20;

    BlockStreamReader(const SecureBytes& hmacBaseKey, std::function<void(ByteView)> each);
    // Returns how much of input belongs to the stream: all of it until the empty final block has been read.
    std::size_t write(ByteView input);
    bool finished() const noexcept { return finished_; }

private:
    SecureBytes hmacBaseKey_;
    std::function<void(ByteView)> each_;
    std::vector<std::uint8_t> pending_; // ciphertext: nothing secret
    std::size_t want_ = 36;              // the code and the length come first
    bool inData_ = false;
    bool finished_ = false;
    std::uint64_t index_ = 0;
};

// Reads up to and including the empty final block, handing each non-empty block's data to `each` once
// its code has been checked. Throws as readBlockStream does.
void readBlocks(ByteReader& reader, const SecureBytes& hmacBaseKey, const std::function<void(ByteView)>& each);

// Reads up to and including the empty final block and returns the joined ciphertext. Throws
// blockCorrupt(i) for a block whose code does not match and "unexpected end of data" for a short stream.
SecureBytes readBlockStream(ByteReader& reader, const SecureBytes& hmacBaseKey);

} // namespace quillon::kdbx
