#include "kdbx/KdbxError.h"
#include "kdbx/OuterHeader.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

using namespace quillon::kdbx;
using testing::StrEq;
using testing::ThrowsMessage;

namespace {

using Bytes = std::vector<std::uint8_t>;

const std::string unexpectedEndMessage = "Malformed header: unexpected end of data.";

// Header bytes put together by hand, independently of the writer under test.
struct Raw {
    Bytes bytes;
    explicit Raw(std::uint32_t version = 0x00040000, std::uint32_t sig1 = 0x9AA2D903, std::uint32_t sig2 = 0xB54BFB67)
    {
        u32(sig1).u32(sig2).u32(version);
    }
    Raw& u32(std::uint32_t v)
    {
        for (int s = 0; s < 32; s += 8)
            bytes.push_back(std::uint8_t(v >> s));
        return *this;
    }
    Raw& field(std::uint8_t id, const Bytes& data)
    {
        bytes.push_back(id);
        u32(static_cast<std::uint32_t>(data.size()));
        bytes.insert(bytes.end(), data.begin(), data.end());
        return *this;
    }
    // A field id and length with no data behind it.
    Raw& claim(std::uint8_t id, std::uint32_t length)
    {
        bytes.push_back(id);
        return u32(length);
    }
    Raw& seedAndIV() { return field(4, Bytes(32, 0x11)).field(7, Bytes(16, 0x22)); }
    Bytes end() { return field(0, {0x0D, 0x0A, 0x0D, 0x0A}).bytes; }
};

ParsedOuterHeader parse(const Bytes& bytes)
{
    ByteReader reader(bytes);
    return parseOuterHeader(reader);
}

void expectFails(const Bytes& bytes, const std::string& message, const std::string& why)
{
    EXPECT_THAT([&] { parse(bytes); }, ThrowsMessage<KdbxError>(StrEq(message))) << why;
}

OuterHeader sampleHeader()
{
    OuterHeader h;
    h.minor = 1;
    h.cipher.assign(cipherChaCha20.begin(), cipherChaCha20.end());
    h.compressed = false;
    h.masterSeed = Bytes(32, 0xA5);
    h.encryptionIV = Bytes(12, 0x5A);
    h.kdf.entries["$UUID"] = Bytes(kdfArgon2id.begin(), kdfArgon2id.end());
    h.kdf.entries["I"] = std::uint64_t{2};
    h.kdf.entries["M"] = std::uint64_t{65536};
    h.kdf.entries["P"] = std::uint32_t{1};
    h.kdf.entries["S"] = Bytes(32, 0x33);
    h.kdf.entries["V"] = std::uint32_t{0x13};
    h.publicCustomData = Bytes{0x00, 0x01, 0x00};
    for (std::uint8_t id : Bytes{200, 1, 5, 6, 8, 9, 10})
        h.unknownFields.push_back({id, Bytes(id % 7u, id)});
    return h;
}

TEST(OuterHeader, roundTripKeepsEverythingAndLeavesReaderAfterEndField)
{
    const OuterHeader h = sampleHeader();
    const Bytes header = serialiseOuterHeader(h);
    Bytes file = header;
    file.insert(file.end(), {0xEE, 0xEE, 0xEE});
    ByteReader reader(file);
    const auto parsed = parseOuterHeader(reader);
    EXPECT_EQ(parsed.header, h);
    EXPECT_EQ(parsed.raw, header);
    EXPECT_EQ(reader.remaining(), 3u);
    EXPECT_EQ(serialiseOuterHeader(parsed.header), header);
}

TEST(OuterHeader, refusalsGiveTheirMessages)
{
    const std::string kdbx3 =
        "This is a KDBX 3.1 database, and Quillon opens KDBX 4 only. In KeePassXC or KeePass 2, set the key "
        "derivation function to Argon2id (a KDBX 4 option), save, and open it again.";
    struct Case {
        const char* name;
        Bytes bytes;
        std::string message;
    };
    const Case cases[] = {
        {"first signature", Raw(0x00040000, 0x9AA2D904).seedAndIV().end(), "Not a KDBX file."},
        {"second signature", Raw(0x00040000, 0x9AA2D903, 0xB54BFB66).seedAndIV().end(), "Not a KDBX file."},
        {"KDBX 1 signature", Raw(0x00040000, 0x9AA2D903, 0xB54BFB65).seedAndIV().end(), "Not a KDBX file."},
        {"version 3.1", Raw(0x00030001).seedAndIV().end(), kdbx3},
        {"version 5.0", Raw(0x00050000).seedAndIV().end(),
         "This is a KDBX 5.0 database, and Quillon opens KDBX 4 only. In KeePassXC or KeePass 2, set the key "
         "derivation function to Argon2id (a KDBX 4 option), save, and open it again."},
        {"no seed", Raw().field(7, Bytes(16, 1)).end(), "Malformed header: missing seed or IV."},
        {"no IV", Raw().field(4, Bytes(32, 1)).end(), "Malformed header: missing seed or IV."},
        {"empty seed", Raw().seedAndIV().field(4, {}).end(), "Malformed header: missing seed or IV."},
        // Refused, never allocated for.
        {"huge field length", Raw().seedAndIV().claim(2, 0xFFFFFFFF).field(0, {}).bytes, unexpectedEndMessage},
        {"bad dictionary", Raw().seedAndIV().field(11, {0x00, 0x02, 0x00}).end(),
         "Malformed header: VariantDictionary version."},
        {"truncated dictionary", Raw().seedAndIV().field(11, {0x00, 0x01}).end(), unexpectedEndMessage},
        {"no end field", Raw().seedAndIV().bytes, unexpectedEndMessage},
    };
    for (const auto& c : cases)
        expectFails(c.bytes, c.message, c.name);
}

TEST(OuterHeader, repeatedFieldsReplaceEarlierOnes)
{
    const auto h = parse(Raw()
                             .field(2, {1})
                             .field(2, {2})
                             .field(4, {3})
                             .field(7, {4})
                             .seedAndIV()
                             .field(11, {0x00, 0x01, 0x04, 1, 0, 0, 0, 'A', 4, 0, 0, 0, 1, 0, 0, 0, 0x00})
                             .field(11, {0x00, 0x01, 0x00})
                             .field(12, {5})
                             .field(12, {6})
                             .end())
                       .header;
    EXPECT_EQ(h.cipher, Bytes{2});
    EXPECT_EQ(h.masterSeed, Bytes(32, 0x11));
    EXPECT_EQ(h.encryptionIV, Bytes(16, 0x22));
    EXPECT_TRUE(h.kdf.entries.empty());
    EXPECT_EQ(h.publicCustomData, Bytes{6});
    EXPECT_TRUE(h.unknownFields.empty());
}

} // namespace
