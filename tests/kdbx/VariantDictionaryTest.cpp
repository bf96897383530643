#include "kdbx/KdbxError.h"
#include "kdbx/VariantDictionary.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace quillon::kdbx;
using testing::StrEq;
using testing::ThrowsMessage;

namespace {

using Bytes = std::vector<std::uint8_t>;

// Builds dictionary bytes by hand, independently of the writer under test.
struct Dict {
    Bytes bytes{0x00, 0x01};
    Dict& raw(const Bytes& b)
    {
        bytes.insert(bytes.end(), b.begin(), b.end());
        return *this;
    }
    Dict& u32(std::uint32_t v) { return raw({std::uint8_t(v), std::uint8_t(v >> 8), std::uint8_t(v >> 16), std::uint8_t(v >> 24)}); }
    Dict& entry(std::uint8_t type, const std::string& key, const Bytes& value)
    {
        raw({type}).u32(static_cast<std::uint32_t>(key.size())).raw(Bytes(key.begin(), key.end()));
        return u32(static_cast<std::uint32_t>(value.size())).raw(value);
    }
    Bytes end() const
    {
        Bytes b = bytes;
        b.push_back(0);
        return b;
    }
};

Bytes allTypesBytes()
{
    return Dict()
        .entry(0x04, "a32", {0x78, 0x56, 0x34, 0x12})
        .entry(0x05, "b64", {0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01})
        .entry(0x08, "cBool", {0x01})
        .entry(0x0C, "dI32", {0xFE, 0xFF, 0xFF, 0xFF})
        .entry(0x0D, "eI64", {0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF})
        .entry(0x18, "fStr", {'t', 0xC3, 0xA9})
        .entry(0x42, "gBytes", {0x00, 0xFF})
        .end();
}

VariantDictionary allTypes()
{
    VariantDictionary d;
    // Inserted out of key order on purpose.
    d.entries["gBytes"] = Bytes{0x00, 0xFF};
    d.entries["fStr"] = std::string("t\xC3\xA9");
    d.entries["eI64"] = std::int64_t{-3};
    d.entries["dI32"] = std::int32_t{-2};
    d.entries["cBool"] = true;
    d.entries["b64"] = std::uint64_t{0x0102030405060708};
    d.entries["a32"] = std::uint32_t{0x12345678};
    return d;
}

void expectMalformed(const Bytes& bytes, const std::string& message, const std::string& why)
{
    EXPECT_THAT([&] { parseVariantDictionary(bytes); }, ThrowsMessage<KdbxError>(StrEq(message))) << why;
}

TEST(VariantDictionary, allSevenTypesMatchTheWireLayout)
{
    EXPECT_EQ(serialiseVariantDictionary(allTypes()), allTypesBytes());
    EXPECT_EQ(parseVariantDictionary(allTypesBytes()), allTypes());
}

struct ValueCase {
    const char* name;
    std::uint8_t type;
    Bytes value;
    VariantValue expected;
};

TEST(VariantDictionary, valuesFollowTheReadingRules)
{
    const ValueCase cases[] = {
        {"uint32 extra bytes ignored", 0x04, {1, 0, 0, 0, 9, 9}, std::uint32_t{1}},
        {"uint64 low half first", 0x05, {1, 0, 0, 0, 2, 0, 0, 0}, std::uint64_t{0x0000000200000001}},
        {"uint64 extra bytes ignored", 0x05, {0xFF, 0, 0, 0, 0, 0, 0, 0x80, 7}, std::uint64_t{0x80000000000000FF}},
        {"int32 negative", 0x0C, {0, 0, 0, 0x80}, std::int32_t{INT32_MIN}},
        {"int64 negative", 0x0D, {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, std::int64_t{-1}},
        {"empty bool is true", 0x08, {}, true},
        {"bool zero", 0x08, {0}, false},
        {"bool any non-zero", 0x08, {2, 0}, true},
        {"bool only first byte counts", 0x08, {0, 1}, false},
        {"string not UTF-8 becomes empty", 0x18, {'a', 0xC3}, std::string()},
        {"empty string", 0x18, {}, std::string()},
        {"bytes kept raw", 0x42, {0xC3, 0x00}, Bytes{0xC3, 0x00}},
    };
    for (const auto& c : cases) {
        const auto d = parseVariantDictionary(Dict().entry(c.type, "k", c.value).end());
        ASSERT_EQ(d.entries.count("k"), 1u) << c.name;
        EXPECT_EQ(d.entries.at("k"), c.expected) << c.name;
    }
}

TEST(VariantDictionary, malformedInputGivesItsMessage)
{
    const std::string end = "Malformed header: unexpected end of data.";
    struct Case {
        const char* name;
        Bytes bytes;
        std::string message;
    };
    const Case cases[] = {
        {"major version 2", {0x00, 0x02, 0x00}, "Malformed header: VariantDictionary version."},
        {"major version 0", {0x01, 0x00, 0x00}, "Malformed header: VariantDictionary version."},
        {"key not UTF-8", Dict().entry(0x04, "\xFF", {1, 0, 0, 0}).end(), "Malformed header: VariantDictionary key."},
        {"unknown type", Dict().entry(0x07, "k", {1}).end(), "Malformed header: VariantDictionary type 7."},
        {"type 255", Dict().entry(0xFF, "k", {}).end(), "Malformed header: VariantDictionary type 255."},
        {"3-byte uint32", Dict().entry(0x04, "k", {1, 0, 0}).end(), end},
        {"7-byte int64", Dict().entry(0x0D, "k", {1, 0, 0, 0, 0, 0, 0}).end(), end},
        {"huge key length", Dict().raw({0x04}).u32(0xFFFFFFFF).raw({'k', 0}).bytes, end},
        {"huge value length", Dict().raw({0x04}).u32(1).raw({'k'}).u32(0xFFFFFFFF).raw({1, 0, 0, 0, 0}).bytes, end},
        {"no terminator", Dict().entry(0x04, "k", {1, 0, 0, 0}).bytes, end},
        {"empty", {}, end},
    };
    for (const auto& c : cases)
        expectMalformed(c.bytes, c.message, c.name);
}

TEST(VariantDictionary, repeatedKeyReplacesEarlierValue)
{
    const auto d = parseVariantDictionary(Dict().entry(0x04, "k", {1, 0, 0, 0}).entry(0x18, "k", {'x'}).end());
    ASSERT_EQ(d.entries.size(), 1u);
    EXPECT_EQ(d.entries.at("k"), VariantValue(std::string("x")));
}

} // namespace
