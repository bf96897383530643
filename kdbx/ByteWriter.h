// kdbx/ByteWriter.h: appends little-endian values to a byte buffer.
#pragma once

#include "kdbx/Check.h"

#include <cstdint>
#include <limits>
#include <span>
#include <string_view>
#include <vector>

namespace quillon::kdbx {

// Buf is std::vector<uint8_t> for public bytes or SecureBytes for secret ones.
template <class Buf>
class BasicByteWriter {
public:
    explicit BasicByteWriter(Buf& out) noexcept : out_(out) {}

    void u8(std::uint8_t v) { out_.push_back(v); }
    void u16(std::uint16_t v)
    {
        u8(static_cast<std::uint8_t>(v));
        u8(static_cast<std::uint8_t>(v >> 8));
    }
    void u32(std::uint32_t v)
    {
        for (int shift = 0; shift < 32; shift += 8)
            u8(static_cast<std::uint8_t>(v >> shift));
    }
    void u64(std::uint64_t v)
    {
        u32(static_cast<std::uint32_t>(v));
        u32(static_cast<std::uint32_t>(v >> 32));
    }
    void bytes(std::span<const std::uint8_t> data) { appendTo(out_, data); }
    void text(std::string_view s)
    {
        bytes(std::span(reinterpret_cast<const std::uint8_t*>(s.data()), s.size()));
    }
    // A 32-bit length then the data; a length beyond 32 bits is a programming error.
    void sized(std::span<const std::uint8_t> data)
    {
        QUILLON_CHECK(data.size() <= std::numeric_limits<std::uint32_t>::max());
        u32(static_cast<std::uint32_t>(data.size()));
        bytes(data);
    }

private:
    static void appendTo(std::vector<std::uint8_t>& v, std::span<const std::uint8_t> d)
    {
        v.insert(v.end(), d.begin(), d.end());
    }
    template <class B>
    static void appendTo(B& b, std::span<const std::uint8_t> d)
    {
        b.append(d);
    }
    Buf& out_;
};

using ByteWriter = BasicByteWriter<std::vector<std::uint8_t>>;

} // namespace quillon::kdbx
