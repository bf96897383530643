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
#include "kdbx/WrittenFileCheck.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <future>
#include <optional>
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

// Writes the document as pugixml's raw format does, except that each protected value goes out in its protected
// form (the inner stream's ciphertext in base64), in document order, which is the order readers decrypt them in.
// The document is only read, so it needs no protecting walk and no restoring one, and no second copy of any
// value. The text reaches the sink in pieces, through one wiped buffer.
class DocumentWriter {
public:
    DocumentWriter(ChaCha20& stream, const std::function<void(ByteView)>& sink)
        : stream_(stream), sink_(sink), buffer_(capacity)
    {
    }

    void write(const pugi::xml_document& document)
    {
        put(declaration);
        pugi::xml_node node = document.first_child();
        if (node && node.type() == pugi::node_declaration)
            node = node.next_sibling();
        // Without recursion, as pugixml does: a hostile file may nest deeply.
        while (node) {
            if (node.type() == pugi::node_element && start(node)) {
                node = node.first_child();
                continue;
            }
            if (node.type() == pugi::node_pcdata)
                escaped(node.value(), pcdataSpecial);
            else if (node.type() != pugi::node_element)
                other(node);
            for (;;) {
                if (const pugi::xml_node next = node.next_sibling()) {
                    node = next;
                    break;
                }
                node = node.parent();
                if (!node || node.type() == pugi::node_document)
                    return flush();
                end(node);
            }
        }
        flush();
    }

private:
    static constexpr std::size_t capacity = std::size_t{64} << 10;
    static constexpr std::string_view declaration = "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"yes\"?>";
    // pugixml's escaping: in text, control characters other than tab and line ends, &, < and >; in attribute
    // values every control character, &, < and the quote.
    static constexpr std::string_view pcdataSpecial = "&<>";
    static constexpr std::string_view attributeSpecial = "&<\"";

    static const char* nameOf(const pugi::xml_node& node)
    {
        return *node.name() ? node.name() : ":anonymous";
    }

    // The start tag, and the element's own text; true when its children follow.
    bool start(const pugi::xml_node& node)
    {
        const char* name = nameOf(node);
        put('<');
        put(name);
        for (const pugi::xml_attribute& a : node.attributes()) {
            put(' ');
            put(*a.name() ? a.name() : ":anonymous");
            put("=\"");
            escaped(a.value(), attributeSpecial, true);
            put('"');
        }
        if (isProtectedValue(node)) {
            // Only its text, as a reader takes it.
            protect(node.text().get());
            if (encoded_.empty()) {
                put("/>");
            } else {
                put('>');
                put(encoded_);
                closeTag(name);
            }
            return false;
        }
        const char* value = node.value();
        if (*value == '\0') {
            if (!node.first_child()) {
                put("/>");
                return false;
            }
            put('>');
            return true;
        }
        put('>');
        escaped(value, pcdataSpecial);
        if (node.first_child())
            return true;
        closeTag(name);
        return false;
    }

    void end(const pugi::xml_node& node) { closeTag(nameOf(node)); }

    void closeTag(const char* name)
    {
        put("</");
        put(name);
        put('>');
    }

    void protect(std::string_view plain)
    {
        cipher_.resizeUninitialised(0);
        cipher_.append(plain);
        stream_.apply(cipher_.span());
        base64EncodeInto(cipher_.span(), encoded_);
    }

    // CDATA, comments and the rest, which KDBX writers do not make: as pugixml prints them.
    void other(const pugi::xml_node& node)
    {
        struct Forward final : pugi::xml_writer {
            DocumentWriter& out;
            explicit Forward(DocumentWriter& o) : out(o) {}
            void write(const void* data, std::size_t size) override
            {
                out.put(std::string_view(static_cast<const char*>(data), size));
            }
        } forward(*this);
        node.print(forward, "", xmlFormatOptions, pugi::encoding_utf8);
    }

    void escaped(const char* text, std::string_view special, bool attribute = false)
    {
        const char* run = text;
        for (const char* p = text;; ++p) {
            const auto c = static_cast<unsigned char>(*p);
            const bool control = c < 32 && (attribute || (c != '\t' && c != '\n' && c != '\r'));
            if (c != 0 && !control && special.find(static_cast<char>(c)) == std::string_view::npos)
                continue;
            put(std::string_view(run, static_cast<std::size_t>(p - run)));
            if (c == 0)
                return;
            run = p + 1;
            switch (c) {
            case '&': put("&amp;"); break;
            case '<': put("&lt;"); break;
            case '>': put("&gt;"); break;
            case '"': put("&quot;"); break;
            default: {
                const char escape[] = {'&', '#', static_cast<char>('0' + c / 10), static_cast<char>('0' + c % 10), ';'};
                put(std::string_view(escape, sizeof escape));
            }
            }
        }
    }

    void put(char c) { put(std::string_view(&c, 1)); }
    void put(std::string_view text)
    {
        if (text.size() > capacity - used_) {
            flush();
            if (text.size() > capacity) {
                // A long text goes out where it lies.
                sink_(ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
                return;
            }
        }
        std::memcpy(buffer_.data() + used_, text.data(), text.size());
        used_ += text.size();
    }
    void flush()
    {
        if (used_ != 0)
            sink_(buffer_.span().first(used_));
        used_ = 0;
    }

    ChaCha20& stream_;
    const std::function<void(ByteView)>& sink_;
    SecureBytes buffer_;
    std::size_t used_ = 0;
    SecureBytes cipher_;
    std::string encoded_; // ciphertext: nothing secret
};

DerivedKeys keysFor(const OuterHeader& header, const Credentials& credentials,
                    const std::atomic<bool>* cancel = nullptr)
{
    SecureBytes composite = compositeKey(credentials);
    SecureBytes transformed = transformKey(composite, header.kdf, cancel);
    return deriveKeys(header.masterSeed, transformed);
}


// Hands the XML on as it is produced (to the compressor, or to the payload buffer), taking its digest on the way.
class XmlSink {
public:
    explicit XmlSink(std::function<void(ByteView)> next) : next_(std::move(next)) {}
    void operator()(ByteView piece)
    {
        digest_.update(piece);
        size_ += piece.size();
        next_(piece);
    }
    std::uint64_t size() const noexcept { return size_; }
    Digest256 finish() { return digest_.finish(); }

private:
    std::function<void(ByteView)> next_;
    Sha256 digest_;
    std::uint64_t size_ = 0;
};

// Encrypts a body (the payload, compressed when the header says so) as it is handed over, and frames it: the
// outer header, its digest and HMAC, then the block stream, handed on to out a block at a time.
class Framer {
public:
    Framer(const OuterHeader& header, const DerivedKeys& keys, const std::function<void(ByteView)>& out)
        : encryptor_(header, keys.masterKey), blocks_(out, keys.hmacBaseKey)
    {
        std::vector<std::uint8_t> head = serialiseOuterHeader(header);
        const Digest256 digest = headerDigest(head);
        const Digest256 mac = headerHmac(head, keys.hmacBaseKey);
        head.insert(head.end(), digest.begin(), digest.end());
        head.insert(head.end(), mac.begin(), mac.end());
        out(head);
    }
    void write(ByteView body)
    {
        while (!body.empty()) {
            const ByteView piece = body.first(std::min(body.size(), pieceSize));
            blocks_.write(ByteView(cipher_.data(), encryptor_.update(piece, cipher_.data())));
            body = body.subspan(piece.size());
        }
    }
    void finish()
    {
        blocks_.write(ByteView(cipher_.data(), encryptor_.finish(cipher_.data())));
        blocks_.finish();
    }

private:
    static constexpr std::size_t pieceSize = std::size_t{64} << 10;
    PayloadEncryptor encryptor_;
    BlockStreamWriter blocks_;
    std::vector<std::uint8_t> cipher_ = std::vector<std::uint8_t>(pieceSize + 16); // ciphertext: nothing secret
};

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

DerivedKeys checkedKeys(ByteReader& reader, const ParsedOuterHeader& parsed, const Credentials& credentials,
                        const std::atomic<bool>* cancel)
{
    if (!constantTimeEqual(reader.bytes(32), headerDigest(parsed.raw)))
        throw KdbxError::headerCorrupt();
    DerivedKeys keys = keysFor(parsed.header, credentials, cancel);
    if (!constantTimeEqual(reader.bytes(32), headerHmac(parsed.raw, keys.hmacBaseKey)))
        throw KdbxError::wrongCredentials();
    return keys;
}

template <class Decrypted>
std::unique_ptr<KdbxFile> KdbxFile::decode(ByteView fileBytes, const Credentials& credentials,
                                           const std::atomic<bool>* cancel, Decrypted&& decrypted)
{
    ByteReader reader(fileBytes);
    ParsedOuterHeader parsed = parseOuterHeader(reader);
    const DerivedKeys keys = checkedKeys(reader, parsed, credentials, cancel);

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
    file->fileSizeHint_ = fileBytes.size();
    file->parseBuffer_ = std::move(payload);
    const pugi::xml_parse_result result =
        file->document.load_buffer_inplace(file->parseBuffer_.data() + xmlOffset, file->parseBuffer_.size() - xmlOffset,
                                           xmlParseOptions, pugi::encoding_auto);
    if (!result)
        throw KdbxError::malformedXML("could not parse");
    unprotect(file->document, file->inner);
    // Refused here as the writer refuses it, so that whatever opens can be saved again.
    if (!hasName(file->document.document_element(), "KeePassFile"))
        throw KdbxError::malformedXML("no KeePassFile element");
    file->header = std::move(parsed.header);
    return file;
}

EncodedFile KdbxFile::encode(const Credentials& credentials)
{
    EncodedFile encoded;
    // A quarter more than the last file costs nothing until it is written to, and spares copies of the whole
    // file when this one is larger.
    encoded.bytes.reserve(fileSizeHint_ + fileSizeHint_ / 4 + 4096);
    encoded.digests = encodeTo(credentials, [&encoded](ByteView piece) {
        encoded.bytes.insert(encoded.bytes.end(), piece.begin(), piece.end());
    });
    return encoded;
}

PayloadDigests KdbxFile::encodeTo(const Credentials& credentials, const std::function<void(ByteView)>& out)
{
    const bool chacha = isIdentifier(header.cipher, cipherChaCha20);
    if (!chacha && !isIdentifier(header.cipher, cipherAes256))
        throw KdbxError::unsupportedCipher("write");
    if (!hasName(document.document_element(), "KeePassFile"))
        throw KdbxError::malformedXML("no KeePassFile element");
    header.masterSeed = randomBytes(masterSeedSize);
    header.encryptionIV = randomBytes(chacha ? 12 : 16);
    header.kdf.entries["S"] = randomBytes(saltSize);
    inner.streamKey = randomSecret(streamKeySize);

    // The key derivation needs only the fresh seed and salt, so it runs while the document is written out
    // (deferred to get() when no thread can be had). Leaving early by an exception waits for it: the future
    // of std::async joins.
    auto keys = std::async(std::launch::async | std::launch::deferred,
                           [this, &credentials] { return keysFor(header, credentials); });

    PayloadDigests digests;
    SecureBytes body;
    serialiseInnerHeader(inner, body);
    const std::size_t innerSize = body.size();
    digests.innerHeaderSize = innerSize;
    sha256({body.span()}, digests.innerHeader);
    GzipWriter packed;
    if (header.compressed) {
        packed.write(body.span());
        body.wipe();
    } else {
        body.reserve(innerSize + xmlSizeHint_ + xmlSizeHint_ / 8 + 4096);
    }
    // Once the keys are there, compressed slices are encrypted and framed as soon as they are deflated, so the
    // compressed body never waits whole beside the file being framed.
    std::uint64_t written = 0;
    const std::function<void(ByteView)> counted = [&](ByteView piece) {
        written += piece.size();
        out(piece);
    };
    std::optional<Framer> framer;
    const auto frameReady = [&] {
        if (!framer && keys.wait_for(std::chrono::seconds(0)) == std::future_status::ready)
            framer.emplace(header, keys.get(), counted);
        if (framer)
            packed.drainReady([&framer](ByteView piece) { framer->write(piece); });
    };
    XmlSink sink(header.compressed ? std::function<void(ByteView)>([&](ByteView piece) {
        packed.write(piece);
        frameReady();
    })
                                   : std::function<void(ByteView)>([&body](ByteView piece) { body.append(piece); }));
    {
        ChaCha20 stream = innerStream(inner);
        const std::function<void(ByteView)> xml = [&sink](ByteView piece) { sink(piece); };
        DocumentWriter(stream, xml).write(document);
    }
    digests.xmlSize = sink.size();
    digests.xml = sink.finish();
    xmlSizeHint_ = static_cast<std::size_t>(sink.size());

    if (header.compressed) {
        packed.close();
        if (!framer)
            framer.emplace(header, keys.get(), counted);
        packed.drain([&framer](ByteView piece) { framer->write(piece); });
    } else {
        framer.emplace(header, keys.get(), counted);
        framer->write(body.span());
        body.wipe();
    }
    framer->finish();
    fileSizeHint_ = static_cast<std::size_t>(written);
    return digests;
}

void KdbxFile::verify(ByteView fileBytes, const Credentials& credentials, const PayloadDigests& digests)
{
    WrittenFileCheck check(credentials, digests);
    check.write(fileBytes);
    check.finish();
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
    std::vector<std::uint8_t> bytes;
    bytes.reserve(payload.size() + payload.size() / 64 + 4096);
    const std::function<void(ByteView)> out = [&bytes](ByteView piece) {
        bytes.insert(bytes.end(), piece.begin(), piece.end());
    };
    Framer framer(header, keysFor(header, credentials), out);
    framer.write(payload.span());
    payload.wipe();
    framer.finish();
    return bytes;
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
