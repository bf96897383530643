// kdbx/KdbxFile.h: a decoded KDBX 4 database, opened from and saved to bytes.
#pragma once

#include "kdbx/Argon2Kdf.h"
#include "kdbx/CompositeKey.h"
#include "kdbx/Crypto.h"
#include "kdbx/InnerHeader.h"
#include "kdbx/OuterHeader.h"
#include "kdbx/SecureBytes.h"

#include <pugixml.hpp>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace quillon::kdbx {

// What a save put into the payload, by size and SHA-256: enough to prove that a written file decrypts to exactly
// those bytes without building a second document. Kept in memory only.
struct PayloadDigests {
    std::uint64_t innerHeaderSize = 0;
    Digest256 innerHeader{};
    std::uint64_t xmlSize = 0;
    Digest256 xml{};
};

// A whole encoded file (encrypted: nothing secret) and the digests of the payload inside it.
struct EncodedFile {
    std::vector<std::uint8_t> bytes;
    PayloadDigests digests;
};

// The codec knows nothing of paths: reading and writing files belongs to the file layer.
class KdbxFile {
    // The payload the document was parsed from in place; text nodes point into it until edited, so it
    // is declared before the document and outlives it.
    SecureBytes parseBuffer_;
    // The size of the XML last read or written: the next save reserves about that much at once, instead
    // of growing (and copying, and wiping) its buffer a dozen times.
    std::size_t xmlSizeHint_ = 0;
    // The size of the file last read or written, which the next save's file is reserved at.
    std::size_t fileSizeHint_ = 0;

public:
    OuterHeader header;
    InnerHeader inner;
    // The decrypted document; protected values are held as plain text in their Value elements.
    pugi::xml_document document;

    // Throws KdbxError (or DecompressionError for a payload zlib refuses); nothing is returned on failure.
    // Setting the cancel flag from another thread abandons the key derivation: open throws Cancelled.
    static std::unique_ptr<KdbxFile> open(ByteView fileBytes, const Credentials& credentials,
                                          const std::atomic<bool>* cancel = nullptr);
    // The same, giving up the file's bytes as soon as they are decrypted, so that they do not sit beside the
    // document while it is built. The vector is empty afterwards, whether or not the open succeeded.
    static std::unique_ptr<KdbxFile> open(std::vector<std::uint8_t>&& fileBytes, const Credentials& credentials,
                                          const std::atomic<bool>* cancel = nullptr);
    // Draws a fresh seed, IV, Argon2 salt and inner stream key into the headers, so every save differs, and
    // encodes the document into a whole file. The document is only read. A document without its KeePassFile
    // element is refused (malformedXML): no reader would open it.
    EncodedFile encode(const Credentials& credentials);
    // The same, handing the file to out in pieces (a block or so each) as they are produced, so that the whole
    // file is never held; returns the digests of the payload written.
    PayloadDigests encodeTo(const Credentials& credentials, const std::function<void(ByteView)>& out);
    std::vector<std::uint8_t> save(const Credentials& credentials) { return encode(credentials).bytes; }
    // Proves that fileBytes open with the credentials (header digest, key derivation, header and block codes)
    // and decrypt and inflate to exactly the payload that digests describe. Runs as a stream, in a few hundred
    // KiB whatever the size of the file (WrittenFileCheck takes it in pieces). Throws what open throws, or
    // writtenFileDiffers.
    static void verify(ByteView fileBytes, const Credentials& credentials, const PayloadDigests& digests);
    // Encrypts a finished payload (inner header and XML) into a whole file under the header's cipher,
    // compression and key-derivation settings, as they stand.
    static std::vector<std::uint8_t> seal(const OuterHeader& header, const Credentials& credentials,
                                          SecureBytes payload);
    // An empty database: AES-256, Argon2id 64 MiB / 10 iterations / 2 lanes, compressed.
    static std::unique_ptr<KdbxFile> newDatabase();

    KdbxFile() = default;

private:
    template <class Decrypted>
    static std::unique_ptr<KdbxFile> decode(ByteView fileBytes, const Credentials& credentials,
                                            const std::atomic<bool>* cancel, Decrypted&& decrypted);

public:
    KdbxFile(const KdbxFile&) = delete;
    KdbxFile& operator=(const KdbxFile&) = delete;
};

// How pugixml reads and writes the document: whitespace kept, declaration kept, raw output with
// self-closing empty elements. An element's first text is kept in the element itself rather than in a
// child node of its own, which saves a node per field; code that asks whether an element has text uses
// xml_text, never first_child().
inline constexpr unsigned xmlParseOptions =
    pugi::parse_default | pugi::parse_ws_pcdata | pugi::parse_declaration | pugi::parse_embed_pcdata;
inline constexpr unsigned xmlFormatOptions = pugi::format_raw;

// Counts what the verification report and `stats` show, in one walk: every Entry (history copies included),
// every Value marked Protected="True", every Group, and the Entry elements inside a History.
struct DocumentCounts {
    std::size_t entries = 0;
    std::size_t protectedValues = 0;
    std::size_t groups = 0;
    std::size_t historyVersions = 0;
};
DocumentCounts countDocument(const pugi::xml_document& document);

// Visits every Value element marked Protected="True" below root, in document order, without recursion.
void forEachProtectedValue(const pugi::xml_node& root, const std::function<void(pugi::xml_node)>& visit);

// Serialises a node as raw XML text into wiped memory.
SecureBytes serialiseXml(const pugi::xml_node& node);

// Reads the header's SHA-256 and HMAC that follow the outer header and gives the keys the credentials derive.
// The digest is checked first, so a damaged header is never blamed on the password: headerCorrupt, then
// wrongCredentials when the HMAC differs.
DerivedKeys checkedKeys(ByteReader& reader, const ParsedOuterHeader& parsed, const Credentials& credentials,
                        const std::atomic<bool>* cancel = nullptr);

} // namespace quillon::kdbx
