#include "kdbx/OuterHeader.h"

#include "kdbx/ByteWriter.h"
#include "kdbx/Check.h"
#include "kdbx/KdbxError.h"

namespace quillon::kdbx {
namespace {

constexpr std::uint32_t signature1 = 0x9AA2D903;
constexpr std::uint32_t signature2 = 0xB54BFB67;

enum FieldId : std::uint8_t {
    endField = 0,
    cipherField = 2,
    compressionField = 3,
    masterSeedField = 4,
    encryptionIVField = 7,
    kdfField = 11,
    publicCustomDataField = 12,
};

bool isInterpreted(std::uint8_t id)
{
    switch (id) {
    case endField:
    case cipherField:
    case compressionField:
    case masterSeedField:
    case encryptionIVField:
    case kdfField:
    case publicCustomDataField:
        return true;
    default:
        return false;
    }
}

void writeField(ByteWriter& out, std::uint8_t id, ByteView data)
{
    out.u8(id);
    out.sized(data);
}

} // namespace

ParsedOuterHeader parseOuterHeader(ByteReader& reader)
{
    const auto start = reader.rest();
    const std::size_t startPosition = reader.position();

    if (reader.u32() != signature1 || reader.u32() != signature2)
        throw KdbxError::notKdbx();
    const std::uint32_t version = reader.u32();
    const auto major = static_cast<std::uint16_t>(version >> 16);
    const auto minor = static_cast<std::uint16_t>(version & 0xFFFF);
    if (major != 4)
        throw KdbxError::unsupportedVersion(major, minor);

    ParsedOuterHeader parsed;
    OuterHeader& header = parsed.header;
    header.major = major;
    header.minor = minor;
    for (;;) {
        const std::uint8_t id = reader.u8();
        const auto data = reader.bytes(reader.u32());
        if (id == endField)
            break;
        switch (id) {
        case cipherField:
            header.cipher.assign(data.begin(), data.end());
            break;
        case compressionField:
            header.compressed = !data.empty() && data[0] == 1;
            break;
        case masterSeedField:
            header.masterSeed.assign(data.begin(), data.end());
            break;
        case encryptionIVField:
            header.encryptionIV.assign(data.begin(), data.end());
            break;
        case kdfField:
            header.kdf = parseVariantDictionary(data);
            break;
        case publicCustomDataField:
            header.publicCustomData.emplace(data.begin(), data.end());
            break;
        default:
            // Ids older versions used (1, 5, 6, 8, 9, 10) are carried too, never interpreted.
            header.unknownFields.push_back({id, {data.begin(), data.end()}});
            break;
        }
    }
    if (header.masterSeed.empty() || header.encryptionIV.empty())
        throw KdbxError::malformedHeader("missing seed or IV");

    const auto length = reader.position() - startPosition;
    parsed.raw.assign(start.begin(), start.begin() + static_cast<std::ptrdiff_t>(length));
    return parsed;
}

std::vector<std::uint8_t> serialiseOuterHeader(const OuterHeader& header)
{
    std::vector<std::uint8_t> bytes;
    ByteWriter out(bytes);
    out.u32(signature1);
    out.u32(signature2);
    out.u32(static_cast<std::uint32_t>(header.major) << 16 | header.minor);

    writeField(out, cipherField, header.cipher);
    std::vector<std::uint8_t> compression;
    ByteWriter(compression).u32(header.compressed ? 1 : 0);
    writeField(out, compressionField, compression);
    writeField(out, masterSeedField, header.masterSeed);
    writeField(out, encryptionIVField, header.encryptionIV);
    writeField(out, kdfField, serialiseVariantDictionary(header.kdf));
    if (header.publicCustomData)
        writeField(out, publicCustomDataField, *header.publicCustomData);
    for (const auto& field : header.unknownFields) {
        // An interpreted id here would end the header early or be read back as something else.
        QUILLON_CHECK(!isInterpreted(field.id));
        writeField(out, field.id, field.data);
    }
    static constexpr std::uint8_t endData[] = {0x0D, 0x0A, 0x0D, 0x0A};
    writeField(out, endField, endData);
    return bytes;
}

} // namespace quillon::kdbx
