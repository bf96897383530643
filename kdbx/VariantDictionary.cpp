#include "kdbx/VariantDictionary.h"

#include "kdbx/ByteReader.h"
#include "kdbx/ByteWriter.h"
#include "kdbx/Encoding.h"
#include "kdbx/KdbxError.h"

#include <string_view>

namespace quillon::kdbx {
namespace {

enum WireType : std::uint8_t {
    end = 0x00,
    uint32Type = 0x04,
    uint64Type = 0x05,
    boolType = 0x08,
    int32Type = 0x0C,
    int64Type = 0x0D,
    stringType = 0x18,
    bytesType = 0x42,
};

std::string_view asText(ByteView bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

VariantValue readValue(std::uint8_t type, ByteView bytes)
{
    // Numbers come from the start of the value; anything after them is ignored.
    ByteReader value(bytes);
    switch (type) {
    case uint32Type:
        return value.u32();
    case uint64Type:
        return value.u64();
    case boolType:
        // An empty bool reads as true, as the format's reference readers do.
        return bytes.empty() || bytes[0] != 0;
    case int32Type:
        return static_cast<std::int32_t>(value.u32());
    case int64Type:
        return static_cast<std::int64_t>(value.u64());
    case stringType: {
        const auto text = asText(bytes);
        return isValidUtf8(text) ? std::string(text) : std::string();
    }
    case bytesType:
        return std::vector<std::uint8_t>(bytes.begin(), bytes.end());
    default:
        throw KdbxError::malformedHeader("VariantDictionary type " + std::to_string(type));
    }
}

struct ValueWriter {
    ByteWriter& out;
    const std::string& key;

    void entry(WireType type, ByteView value)
    {
        out.u8(type);
        out.sized(ByteView(reinterpret_cast<const std::uint8_t*>(key.data()), key.size()));
        out.sized(value);
    }
    template <class Number>
    void number(WireType type, Number n, std::size_t width)
    {
        std::vector<std::uint8_t> bytes;
        ByteWriter w(bytes);
        if (width == 4)
            w.u32(static_cast<std::uint32_t>(n));
        else
            w.u64(static_cast<std::uint64_t>(n));
        entry(type, bytes);
    }

    void operator()(std::uint32_t v) { number(uint32Type, v, 4); }
    void operator()(std::uint64_t v) { number(uint64Type, v, 8); }
    void operator()(bool v)
    {
        const std::uint8_t b = v ? 1 : 0;
        entry(boolType, ByteView(&b, 1));
    }
    void operator()(std::int32_t v) { number(int32Type, v, 4); }
    void operator()(std::int64_t v) { number(int64Type, v, 8); }
    void operator()(const std::string& v)
    {
        entry(stringType, ByteView(reinterpret_cast<const std::uint8_t*>(v.data()), v.size()));
    }
    void operator()(const std::vector<std::uint8_t>& v) { entry(bytesType, v); }
};

} // namespace

VariantDictionary parseVariantDictionary(ByteView data)
{
    ByteReader reader(data);
    reader.u8(); // minor version: any value is accepted
    if (reader.u8() != 1)
        throw KdbxError::malformedHeader("VariantDictionary version");

    VariantDictionary dictionary;
    for (;;) {
        const std::uint8_t type = reader.u8();
        if (type == end)
            break;
        const auto key = asText(reader.bytes(reader.u32()));
        if (!isValidUtf8(key))
            throw KdbxError::malformedHeader("VariantDictionary key");
        const auto value = reader.bytes(reader.u32());
        dictionary.entries.insert_or_assign(std::string(key), readValue(type, value));
    }
    return dictionary;
}

std::vector<std::uint8_t> serialiseVariantDictionary(const VariantDictionary& dictionary)
{
    std::vector<std::uint8_t> bytes;
    ByteWriter out(bytes);
    out.u8(0x00);
    out.u8(0x01);
    // The map keeps its keys in byte order, so the bytes do not depend on how it was filled.
    for (const auto& [key, value] : dictionary.entries)
        std::visit(ValueWriter{out, key}, value);
    out.u8(end);
    return bytes;
}

} // namespace quillon::kdbx
