// kdbx/ByteReader.h: forward-only; every length is checked before it is trusted.
#pragma once

#include "kdbx/KdbxError.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace quillon::kdbx {

class ByteReader {
public:
    explicit ByteReader(std::span<const std::uint8_t> data) noexcept : rest_(data), start_(data.data()) {}

    std::span<const std::uint8_t> bytes(std::size_t n)
    {
        if (n > rest_.size())
            throw KdbxError::malformedHeader(unexpectedEnd);
        auto out = rest_.first(n);
        rest_ = rest_.subspan(n);
        return out;
    }
    void skip(std::size_t n) { (void)bytes(n); }
    std::uint8_t u8() { return bytes(1)[0]; }
    std::uint16_t u16()
    {
        auto b = bytes(2);
        return static_cast<std::uint16_t>(b[0] | (b[1] << 8));
    }
    std::uint32_t u32()
    {
        auto b = bytes(4);
        return static_cast<std::uint32_t>(b[0]) | static_cast<std::uint32_t>(b[1]) << 8 |
               static_cast<std::uint32_t>(b[2]) << 16 | static_cast<std::uint32_t>(b[3]) << 24;
    }
    std::uint64_t u64()
    {
        const std::uint64_t low = u32();
        const std::uint64_t high = u32();
        return low | high << 32;
    }

    std::span<const std::uint8_t> rest() const noexcept { return rest_; }
    std::size_t remaining() const noexcept { return rest_.size(); }
    // Bytes consumed since the reader was made.
    std::size_t position() const noexcept { return static_cast<std::size_t>(rest_.data() - start_); }

private:
    std::span<const std::uint8_t> rest_;
    const std::uint8_t* start_;
};

// Little-endian decoding from a span known to be long enough (callers check the size first).
inline std::uint32_t loadU32(std::span<const std::uint8_t> b) noexcept
{
    return static_cast<std::uint32_t>(b[0]) | static_cast<std::uint32_t>(b[1]) << 8 |
           static_cast<std::uint32_t>(b[2]) << 16 | static_cast<std::uint32_t>(b[3]) << 24;
}

} // namespace quillon::kdbx
