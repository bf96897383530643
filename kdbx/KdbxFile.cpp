#include "kdbx/KdbxFile.h"

#include "kdbx/Argon2Kdf.h"
#include "kdbx/BlockStream.h"
#include "kdbx/ByteWriter.h"
#include "kdbx/Encoding.h"
#include "kdbx/Gzip.h"
#include "kdbx/KdbxError.h"
#include "kdbx/KdbxTime.h"
#include "kdbx/PayloadCipher.h"
#include "kdbx/Random.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

namespace quillon::kdbx {
namespace {

constexpr std::size_t masterSeedSize = 32;
constexpr std::size_t saltSize = 32;
constexpr std::size_t streamKeySize = 64;

class SecureWriter final : public pugi::xml_writer {
public:
    explicit SecureWriter(SecureBytes& out) : out_(out) {}
    void write(const void* data, std::size_t size) override
    {
        out_.append(ByteView(static_cast<const std::uint8_t*>(data), size));
    }

private:
    SecureBytes& out_;
};

// What pugixml's detection could take for UTF-16 or UTF-32: a byte-order mark of either, or a zero byte
// among the first four.
bool mayBeWideText(ByteView text) noexcept
{
    const ByteView head = text.first(std::min<std::size_t>(text.size(), 4));
    if (head.size() >= 2 && ((head[0] == 0xFE && head[1] == 0xFF) || (head[0] == 0xFF && head[1] == 0xFE)))
        return true;
    return std::find(head.begin(), head.end(), std::uint8_t{0}) != head.end();
}

bool isProtectedValue(const pugi::xml_node& node)
{
    if (std::strcmp(node.name(), "Value") != 0)
        return false;
    const pugi::xml_attribute a = node.attribute("Protected");
    return a && std::strcmp(a.value(), "True") == 0;
}

// Every element in document order, without recursion: a hostile file may nest deeply.
template <class Visit>
void forEachElement(const pugi::xml_node& root, Visit&& visit)
{
    pugi::xml_node node = root.first_child();
    while (node) {
        if (node.type() == pugi::node_element) {
            visit(node);
            if (node.first_child()) {
                node = node.first_child();
                continue;
            }
        }
        while (node && !node.next_sibling() && node != root)
            node = node.parent();
        if (!node || node == root)
            break;
        node = node.next_sibling();
    }
}

// The inner stream cipher: SHA-512 of the stream key gives the ChaCha20 key and nonce.
ChaCha20 innerStream(const InnerHeader& inner)
{
    if (inner.streamID != innerStreamChaCha20)
        throw KdbxError::malformedInner("unsupported inner stream " + std::to_string(inner.streamID));
    SecureBytes digest = sha512Secret({inner.streamKey.span()});
    return ChaCha20(digest.span().first(32), digest.span().subspan(32, 12));
}

void unprotect(pugi::xml_document& document, const InnerHeader& inner)
{
    ChaCha20 stream = innerStream(inner);
    SecureBytes plain;
    forEachElement(document, [&](pugi::xml_node node) {
        if (!isProtectedValue(node))
            return;
        plain.wipe();
        if (!base64DecodeInto(node.text().get(), plain))
            throw KdbxError::malformedXML("a protected value is not base64");
        stream.apply(plain.span());
        // Plain text is never longer than its base64, so pugixml rewrites it in place when it can.
        if (!plain.empty() || node.text())
            node.text().set(plain.view().data(), plain.size());
    });
}

// Replaces plain values with their protected form and puts them back when it goes out of scope,
// whether or not the save got through.
class ProtectedValues {
public:
    ProtectedValues(pugi::xml_document& document, const InnerHeader& inner)
    {
        ChaCha20 stream = innerStream(inner);
        SecureBytes cipher;
        try {
            forEachElement(document, [&](pugi::xml_node node) {
                if (!isProtectedValue(node))
                    return;
                saved_.push_back({node, SecureBytes::fromText(node.text().get())});
                cipher = saved_.back().plain.copy();
                stream.apply(cipher.span());
                const std::string encoded = base64Encode(cipher.span());
                if (!encoded.empty() || node.text())
                    node.text().set(encoded.c_str());
            });
        } catch (...) {
            restore();
            throw;
        }
    }
    ~ProtectedValues() { restore(); }
    ProtectedValues(const ProtectedValues&) = delete;
    ProtectedValues& operator=(const ProtectedValues&) = delete;

private:
    void restore() noexcept
    {
        for (Saved& s : saved_) {
            if (!s.plain.empty() || s.node.text())
                s.node.text().set(s.plain.view().data(), s.plain.size());
        }
        saved_.clear();
    }
    struct Saved {
        pugi::xml_node node;
        SecureBytes plain;
    };
    std::vector<Saved> saved_;
};

DerivedKeys keysFor(const OuterHeader& header, const Credentials& credentials,
                    const std::atomic<bool>* cancel = nullptr)
{
    SecureBytes composite = compositeKey(credentials);
    SecureBytes transformed = transformKey(composite, header.kdf, cancel);
    return deriveKeys(header.masterSeed, transformed);
}


// The declaration says what the writer wrote: XML 1.0, UTF-8, standalone.
void normaliseDeclaration(pugi::xml_document& document)
{
    pugi::xml_node decl = document.first_child();
    if (!decl || decl.type() != pugi::node_declaration)
        decl = document.prepend_child(pugi::node_declaration);
    for (const char* name : {"version", "encoding", "standalone"})
        if (!decl.attribute(name))
            decl.append_attribute(name);
    decl.attribute("version").set_value("1.0");
    decl.attribute("encoding").set_value("utf-8");
    decl.attribute("standalone").set_value("yes");
}

} // namespace

std::unique_ptr<KdbxFile> KdbxFile::open(ByteView fileBytes, const Credentials& credentials,
                                         const std::atomic<bool>* cancel)
{
    return decode(fileBytes, credentials, cancel, [] {});
}

std::unique_ptr<KdbxFile> KdbxFile::open(std::vector<std::uint8_t>&& fileBytes, const Credentials& credentials,
                                         const std::atomic<bool>* cancel)
{
    std::vector<std::uint8_t> bytes = std::move(fileBytes);
    return decode(bytes, credentials, cancel, [&bytes] { std::vector<std::uint8_t>().swap(bytes); });
}

template <class Decrypted>
std::unique_ptr<KdbxFile> KdbxFile::decode(ByteView fileBytes, const Credentials& credentials,
                                           const std::atomic<bool>* cancel, Decrypted&& decrypted)
{
    ByteReader reader(fileBytes);
    ParsedOuterHeader parsed = parseOuterHeader(reader);
    // The header's own digest comes first, so a damaged header is never blamed on the password.
    const ByteView storedDigest = reader.bytes(32);
    const Digest256 digest = headerDigest(parsed.raw);
    if (!constantTimeEqual(storedDigest, digest))
        throw KdbxError::headerCorrupt();

    const DerivedKeys keys = keysFor(parsed.header, credentials, cancel);
    const ByteView storedHmac = reader.bytes(32);
    if (!constantTimeEqual(storedHmac, headerHmac(parsed.raw, keys.hmacBaseKey)))
        throw KdbxError::wrongCredentials();

    SecureBytes payload = decryptPayload(reader, parsed.header, keys);
    decrypted(); // fileBytes is not read again
    if (parsed.header.compressed)
        payload = gunzip(payload.span());

    auto file = std::make_unique<KdbxFile>();
    ByteReader inner(payload.span());
    file->inner = parseInnerHeader(inner);
    // The XML is parsed where it lies, behind the inner header: no second copy of the document. The
    // inner header's bytes (attachments included) have been copied out, so they are wiped here.
    std::size_t xmlOffset = inner.position();
    secureWipe(payload.data(), xmlOffset);
    if (mayBeWideText(payload.span().subspan(xmlOffset))) {
        // pugixml reads UTF-16 and UTF-32 text in whole code units, so such a document must start on an
        // aligned address: the start of the buffer. (KDBX writers write UTF-8; this is for odd files.)
        const std::size_t length = payload.size() - xmlOffset;
        std::memmove(payload.data(), payload.data() + xmlOffset, length);
        payload.resizeUninitialised(length);
        xmlOffset = 0;
    }
    file->xmlSizeHint_ = payload.size() - xmlOffset;
    file->parseBuffer_ = std::move(payload);
    const pugi::xml_parse_result result =
        file->document.load_buffer_inplace(file->parseBuffer_.data() + xmlOffset, file->parseBuffer_.size() - xmlOffset,
                                           xmlParseOptions, pugi::encoding_auto);
    if (!result)
        throw KdbxError::malformedXML("could not parse");
    unprotect(file->document, file->inner);
    file->header = std::move(parsed.header);
    return file;
}

std::vector<std::uint8_t> KdbxFile::save(const Credentials& credentials)
{
    const bool chacha = isIdentifier(header.cipher, cipherChaCha20);
    if (!chacha && !isIdentifier(header.cipher, cipherAes256))
        throw KdbxError::unsupportedCipher("write");
    header.masterSeed = randomBytes(masterSeedSize);
    header.encryptionIV = randomBytes(chacha ? 12 : 16);
    header.kdf.entries["S"] = randomBytes(saltSize);
    inner.streamKey = randomSecret(streamKeySize);

    SecureBytes payload;
    serialiseInnerHeader(inner, payload);
    const std::size_t xmlStart = payload.size();
    payload.reserve(xmlStart + xmlSizeHint_ + xmlSizeHint_ / 8 + 4096);
    {
        ProtectedValues protectedValues(document, inner);
        normaliseDeclaration(document);
        SecureWriter writer(payload);
        document.save(writer, "", xmlFormatOptions, pugi::encoding_utf8);
    }
    xmlSizeHint_ = payload.size() - xmlStart;
    return seal(header, credentials, std::move(payload));
}

std::vector<std::uint8_t> KdbxFile::seal(const OuterHeader& header, const Credentials& credentials, SecureBytes payload)
{
    const bool chacha = isIdentifier(header.cipher, cipherChaCha20);
    if (!chacha && !isIdentifier(header.cipher, cipherAes256))
        throw KdbxError::unsupportedCipher("write");
    if (header.compressed) {
        std::vector<std::uint8_t> packed = gzip(payload.span());
        payload = SecureBytes::from(packed);
        secureWipe(packed.data(), packed.size());
    }

    const DerivedKeys keys = keysFor(header, credentials);
    std::vector<std::uint8_t> aesCiphertext;
    ByteView ciphertext;
    if (chacha) {
        // ChaCha20 encrypts in place: the buffer holds ciphertext from here on.
        ChaCha20(keys.masterKey.span(), header.encryptionIV).apply(payload.span());
        ciphertext = payload.span();
    } else {
        aesCiphertext = aes256CbcEncrypt(keys.masterKey, header.encryptionIV, payload.span());
        payload.wipe();
        ciphertext = aesCiphertext;
    }

    std::vector<std::uint8_t> out = serialiseOuterHeader(header);
    const Digest256 digest = headerDigest(out);
    const Digest256 mac = headerHmac(out, keys.hmacBaseKey);
    out.insert(out.end(), digest.begin(), digest.end());
    out.insert(out.end(), mac.begin(), mac.end());
    out.reserve(out.size() + ciphertext.size() + (ciphertext.size() / (1 << 20) + 2) * 36);
    writeBlockStream(out, ciphertext, keys.hmacBaseKey);
    return out;
}

std::unique_ptr<KdbxFile> KdbxFile::newDatabase()
{
    auto file = std::make_unique<KdbxFile>();
    OuterHeader& h = file->header;
    h.major = 4;
    h.minor = 0;
    h.cipher.assign(cipherAes256.begin(), cipherAes256.end());
    h.compressed = true;
    h.masterSeed = randomBytes(masterSeedSize);
    h.encryptionIV = randomBytes(16);
    h.kdf.entries = {
        {"$UUID", std::vector<std::uint8_t>(kdfArgon2id.begin(), kdfArgon2id.end())},
        {"S", randomBytes(saltSize)},
        {"V", std::uint32_t{0x13}},
        {"M", std::uint64_t{64} << 20},
        {"I", std::uint64_t{10}},
        {"P", std::uint32_t{2}},
    };
    file->inner.streamID = innerStreamChaCha20;
    file->inner.streamKey = randomSecret(streamKeySize);

    const std::string now = encodeKdbxTime(kdbxSeconds(std::chrono::system_clock::now()));
    const std::string text =
        "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"yes\"?>\n"
        "<KeePassFile><Meta><Generator>Quillon</Generator><DatabaseName>Vault</DatabaseName><DatabaseNameChanged>" +
        now +
        "</DatabaseNameChanged><RecycleBinEnabled>True</RecycleBinEnabled><HistoryMaxItems>-1</HistoryMaxItems>"
        "<HistoryMaxSize>-1</HistoryMaxSize></Meta><Root><Group><UUID>" +
        newUuidText() + "</UUID><Name>Root</Name><Times><CreationTime>" + now +
        "</CreationTime><LastModificationTime>" + now +
        "</LastModificationTime></Times></Group></Root></KeePassFile>";
    QUILLON_CHECK(file->document.load_buffer(text.data(), text.size(), xmlParseOptions, pugi::encoding_utf8));
    return file;
}

DocumentCounts countDocument(const pugi::xml_document& document)
{
    DocumentCounts counts;
    forEachElement(document, [&](pugi::xml_node node) {
        if (std::strcmp(node.name(), "Entry") == 0)
            ++counts.entries;
        else if (isProtectedValue(node))
            ++counts.protectedValues;
    });
    return counts;
}

void forEachProtectedValue(const pugi::xml_node& root, const std::function<void(pugi::xml_node)>& visit)
{
    forEachElement(root, [&](pugi::xml_node node) {
        if (isProtectedValue(node))
            visit(node);
    });
}

SecureBytes serialiseXml(const pugi::xml_node& node)
{
    SecureBytes out;
    SecureWriter writer(out);
    node.print(writer, "", xmlFormatOptions, pugi::encoding_utf8);
    return out;
}

} // namespace quillon::kdbx
