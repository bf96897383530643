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
#include <future>
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

// Inline, stopping at the first differing byte: these tests run for every element of the document.
bool hasName(const pugi::xml_node& node, std::string_view name) noexcept
{
    const char* n = node.name();
    for (const char c : name) {
        if (*n != c)
            return false;
        ++n;
    }
    return *n == '\0';
}

bool isProtectedValue(const pugi::xml_node& node)
{
    if (!hasName(node, "Value"))
        return false;
    const pugi::xml_attribute a = node.attribute("Protected");
    return a && std::strcmp(a.value(), "True") == 0;
}

// Every element in document order, without recursion: a hostile file may nest deeply. Each node's links are
// read once: in pugixml's compact mode every step decodes a pointer.
template <class Visit>
void forEachElement(const pugi::xml_node& root, Visit&& visit)
{
    pugi::xml_node node = root.first_child();
    while (node) {
        if (node.type() == pugi::node_element) {
            visit(node);
            if (const pugi::xml_node child = node.first_child()) {
                node = child;
                continue;
            }
        }
        for (;;) {
            if (const pugi::xml_node next = node.next_sibling()) {
                node = next;
                break;
            }
            node = node.parent();
            if (!node || node == root)
                return;
        }
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
// whether or not the save got through. The plain texts wait in one wiped buffer rather than one
// allocation each: a large database has hundreds of thousands of them.
class ProtectedValues {
public:
    ProtectedValues(pugi::xml_document& document, const InnerHeader& inner)
    {
        ChaCha20 stream = innerStream(inner);
        SecureBytes cipher;
        std::string encoded; // ciphertext: nothing secret
        try {
            forEachElement(document, [&](pugi::xml_node node) {
                if (!isProtectedValue(node))
                    return;
                pugi::xml_text text = node.text();
                const std::string_view value = text.get();
                saved_.push_back({node, plain_.size(), value.size()});
                plain_.append(value);
                cipher.resizeUninitialised(0);
                cipher.append(value);
                stream.apply(cipher.span());
                base64EncodeInto(cipher.span(), encoded);
                if (!encoded.empty() || text)
                    text.set(encoded.c_str(), encoded.size());
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
        const std::string_view plain = plain_.view();
        for (const Saved& s : saved_) {
            pugi::xml_text text = s.node.text();
            if (s.size != 0 || text)
                text.set(plain.data() + s.offset, s.size);
        }
        saved_.clear();
        plain_.wipe();
    }
    struct Saved {
        pugi::xml_node node;
        std::size_t offset;
        std::size_t size;
    };
    SecureBytes plain_;
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

// Hands pugixml's output to the compressor as it is produced.
class GzipSink final : public pugi::xml_writer {
public:
    explicit GzipSink(GzipWriter& out) : out_(out) {}
    void write(const void* data, std::size_t size) override
    {
        out_.write(ByteView(static_cast<const std::uint8_t*>(data), size));
    }

private:
    GzipWriter& out_;
};

// Encrypts a finished body (the payload, compressed when the header says so) and frames it: the outer
// header, its digest and HMAC, then the block stream.
std::vector<std::uint8_t> frame(const OuterHeader& header, const DerivedKeys& keys, SecureBytes body)
{
    std::vector<std::uint8_t> aesCiphertext;
    ByteView ciphertext;
    if (isIdentifier(header.cipher, cipherChaCha20)) {
        // ChaCha20 encrypts in place: the buffer holds ciphertext from here on.
        ChaCha20(keys.masterKey.span(), header.encryptionIV).apply(body.span());
        ciphertext = body.span();
    } else {
        aesCiphertext = aes256CbcEncrypt(keys.masterKey, header.encryptionIV, body.span());
        body.wipe();
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

    // The key derivation needs only the fresh seed and salt, so it runs while the document is written out
    // (deferred to get() when no thread can be had). Leaving early by an exception waits for it: the future
    // of std::async joins.
    auto keys = std::async(std::launch::async | std::launch::deferred,
                           [this, &credentials] { return keysFor(header, credentials); });

    SecureBytes body;
    serialiseInnerHeader(inner, body);
    const std::size_t innerSize = body.size();
    GzipWriter packed;
    if (header.compressed) {
        packed.write(body.span());
        body.wipe();
    } else {
        body.reserve(innerSize + xmlSizeHint_ + xmlSizeHint_ / 8 + 4096);
    }
    {
        ProtectedValues protectedValues(document, inner);
        normaliseDeclaration(document);
        if (header.compressed) {
            GzipSink sink(packed);
            document.save(sink, "", xmlFormatOptions, pugi::encoding_utf8);
        } else {
            SecureWriter writer(body);
            document.save(writer, "", xmlFormatOptions, pugi::encoding_utf8);
        }
    }
    if (header.compressed) {
        xmlSizeHint_ = packed.size() - innerSize;
        body = packed.finish();
    } else {
        xmlSizeHint_ = body.size() - innerSize;
    }
    return frame(header, keys.get(), std::move(body));
}

std::vector<std::uint8_t> KdbxFile::seal(const OuterHeader& header, const Credentials& credentials, SecureBytes payload)
{
    if (!isIdentifier(header.cipher, cipherChaCha20) && !isIdentifier(header.cipher, cipherAes256))
        throw KdbxError::unsupportedCipher("write");
    if (header.compressed) {
        GzipWriter packed;
        packed.write(payload.span());
        payload.wipe();
        payload = packed.finish();
    }
    return frame(header, keysFor(header, credentials), std::move(payload));
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
        if (hasName(node, "Entry")) {
            ++counts.entries;
            if (hasName(node.parent(), "History"))
                ++counts.historyVersions;
        } else if (hasName(node, "Group")) {
            ++counts.groups;
        } else if (isProtectedValue(node)) {
            ++counts.protectedValues;
        }
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
