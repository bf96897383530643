// kdbx/InnerHeader.h: the fields before the XML inside the decrypted payload: stream cipher, attachments.
#pragma once

#include "kdbx/ByteReader.h"
#include "kdbx/OuterHeader.h"
#include "kdbx/SecureBytes.h"

#include <cstdint>
#include <vector>

namespace quillon::kdbx {

// The only inner stream cipher KDBX 4 files use (ChaCha20).
inline constexpr std::uint32_t innerStreamChaCha20 = 3;

struct InnerBinary {
    std::uint8_t flags = 0; // carried as read, not interpreted
    SecureBytes data;       // attachments are user data: kept in wiped memory
};

struct InnerHeader {
    std::uint32_t streamID = innerStreamChaCha20;
    SecureBytes streamKey;
    std::vector<InnerBinary> binaries;  // entries refer to them by position
    std::vector<HeaderField> unknownFields;
};

// Reads up to and including the end field; the reader is left at the first byte of the XML.
InnerHeader parseInnerHeader(ByteReader& reader);
void serialiseInnerHeader(const InnerHeader& inner, SecureBytes& out);

} // namespace quillon::kdbx
