// kdbx/OuterHeader.h: the KDBX 4 outer header, read and written with unknown fields kept in order.
#pragma once

#include "kdbx/ByteReader.h"
#include "kdbx/Crypto.h"
#include "kdbx/Identifiers.h"
#include "kdbx/VariantDictionary.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace quillon::kdbx {

struct HeaderField {
    std::uint8_t id = 0;
    std::vector<std::uint8_t> data;
    bool operator==(const HeaderField&) const = default;
};

struct OuterHeader {
    std::uint16_t major = 4;
    std::uint16_t minor = 0;
    std::vector<std::uint8_t> cipher{cipherAes256.begin(), cipherAes256.end()};
    bool compressed = true;
    std::vector<std::uint8_t> masterSeed;
    std::vector<std::uint8_t> encryptionIV;
    VariantDictionary kdf;
    std::optional<std::vector<std::uint8_t>> publicCustomData;
    std::vector<HeaderField> unknownFields;
    bool operator==(const OuterHeader&) const = default;
};

struct ParsedOuterHeader {
    OuterHeader header;
    // The bytes the header occupied, first signature byte through the end field's data: the
    // integrity values after the header are computed over exactly these.
    std::vector<std::uint8_t> raw;
};

// Leaves the reader just after the end field.
ParsedOuterHeader parseOuterHeader(ByteReader& reader);
std::vector<std::uint8_t> serialiseOuterHeader(const OuterHeader& header);

inline Digest256 headerDigest(ByteView raw) { return sha256(raw); }

} // namespace quillon::kdbx
