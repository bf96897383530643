#include "kdbx/Encoding.h"
#include "kdbx/Gzip.h"
#include "kdbx/KdbxError.h"
#include "kdbx/KdbxFile.h"
#include "kdbx/KeyFile.h"
#include "kdbx/Random.h"
#include "kdbx/WrittenFileCheck.h"
#include "tests/support/TestDb.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <string>

using namespace quillon::kdbx;
using quillon::test::passwordOnly;
using quillon::test::TestDbOptions;
using quillon::test::tinyDatabase;
using quillon::test::tinyFile;
using testing::StartsWith;

namespace {

std::string rootText(const KdbxFile& file) { return std::string(serialiseXml(file.document.document_element()).view()); }

std::string openError(ByteView bytes, const Credentials& credentials)
{
    try {
        KdbxFile::open(bytes, credentials);
    } catch (const std::exception& e) {
        return e.what();
    }
    return "opened";
}

TEST(KdbxFile, everySaveDrawsFreshSecretsYetOpensToTheSameDocument)
{
    const Credentials key = passwordOnly("correct horse");
    auto file = tinyDatabase();
    const std::string before = rootText(*file);
    const auto first = file->save(key);
    const auto seed = file->header.masterSeed;
    const auto iv = file->header.encryptionIV;
    const auto salt = *file->header.kdf.get<std::vector<std::uint8_t>>("S");
    const SecureBytes stream = file->inner.streamKey.copy();
    const auto second = file->save(key);
    EXPECT_NE(first, second);
    EXPECT_NE(seed, file->header.masterSeed);
    EXPECT_NE(iv, file->header.encryptionIV);
    EXPECT_NE(salt, *file->header.kdf.get<std::vector<std::uint8_t>>("S"));
    EXPECT_NE(stream.view(), file->inner.streamKey.view());
    // Saving hands the document back with plain values.
    EXPECT_EQ(rootText(*file), before);
    EXPECT_EQ(rootText(*KdbxFile::open(first, key)), before);
    EXPECT_EQ(rootText(*KdbxFile::open(second, key)), before);

    // Handing the bytes over gives the same document and leaves the caller nothing, opened or not.
    auto given = first;
    EXPECT_EQ(rootText(*KdbxFile::open(std::move(given), key)), before);
    EXPECT_TRUE(given.empty());
    given = second;
    EXPECT_THROW(KdbxFile::open(std::move(given), passwordOnly("wrong")), KdbxError);
    EXPECT_TRUE(given.empty());
}

TEST(KdbxFile, keepsWhatItDoesNotInterpret)
{
    const Credentials key = passwordOnly("pw");
    auto file = tinyDatabase();
    file->header.minor = 1;
    file->header.unknownFields = {{9, {1, 2, 3}}, {200, {}}};
    file->header.publicCustomData = std::vector<std::uint8_t>{0x00, 0x01, 0x42};
    file->inner.unknownFields = {{7, {4, 5}}, {250, {6}}};
    file->inner.binaries.push_back({1, SecureBytes::fromText("first attachment")});
    file->inner.binaries.push_back({0, SecureBytes::fromText(std::string(3000, 'z'))});
    file->inner.binaries.push_back({0x80, SecureBytes()});
    quillon::test::setDocument(*file, R"(<?xml version="1.0" encoding="utf-8" standalone="yes"?>
<KeePassFile><Meta><Generator>X</Generator><CustomData><Item><Key>k</Key><Value>v</Value></Item></CustomData></Meta>
<Root><Group><UUID>AAAAAAAAAAAAAAAAAAAAAA==</UUID><Name>Root</Name><Future a="1" b="2"><Deep>  text
  </Deep></Future><Entry><UUID>AQIDBAUGBwgJCgsMDQ4PEA==</UUID><String><Key>Notes</Key><Value Protected="True">é漢字🔑 and &lt;xml&gt;</Value></String>
<String><Key>Empty</Key><Value Protected="True"/></String><AutoType><Enabled>True</Enabled></AutoType>
<Binary><Key>a.txt</Key><Value Ref="0"/></Binary><Tags>x;y</Tags></Entry></Group></Root></KeePassFile>)");
    const std::string before = rootText(*file);
    auto back = KdbxFile::open(file->save(key), key);
    EXPECT_EQ(rootText(*back), before);
    EXPECT_EQ(back->header.minor, 1);
    EXPECT_EQ(back->header.unknownFields, file->header.unknownFields);
    EXPECT_EQ(back->header.publicCustomData, file->header.publicCustomData);
    EXPECT_EQ(back->inner.unknownFields, file->inner.unknownFields);
    ASSERT_EQ(back->inner.binaries.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(back->inner.binaries[i].flags, file->inner.binaries[i].flags);
        EXPECT_EQ(back->inner.binaries[i].data.view(), file->inner.binaries[i].data.view());
    }
    EXPECT_EQ(countDocument(back->document).protectedValues, 2u);
}

TEST(KdbxFile, errorsComeInTheirFixedOrder)
{
    const Credentials right = passwordOnly("right");
    const Credentials wrong = passwordOnly("wrong");
    const auto file = tinyFile(right);
    EXPECT_EQ(openError(file, wrong), "Wrong password or key file.");

    // A damaged header is reported as damage even with the wrong password: its digest is checked first.
    auto damaged = file;
    damaged[20] ^= 1;
    EXPECT_EQ(openError(damaged, wrong), "The header failed its integrity check.");

    ByteReader reader(file);
    const std::size_t headerSize = parseOuterHeader(reader).raw.size();
    auto badMac = file;
    badMac[headerSize + 32] ^= 1;
    EXPECT_EQ(openError(badMac, right), "Wrong password or key file.");

    // An unknown cipher is only named once the key has been proven right.
    const auto twofish = quillon::test::withHeader(file, right, [](OuterHeader& h) {
        h.cipher = {0xad, 0x68, 0xf2, 0x9f, 0x57, 0x6f, 0x4b, 0xb9, 0xa3, 0x6a, 0xd4, 0x7a, 0xf9, 0x65, 0x34, 0x6c};
    });
    EXPECT_EQ(openError(twofish, right), "Unsupported cipher rWjyn1dvS7mjatR6+WU0bA==.");
    EXPECT_EQ(openError(twofish, wrong), "Wrong password or key file.");

    auto block = file;
    block[headerSize + 64 + 36] ^= 1;
    EXPECT_EQ(openError(block, right), "Data block 0 failed its integrity check.");
}

TEST(KdbxFile, truncationAnywhereIsUnexpectedEnd)
{
    const Credentials key = passwordOnly("pw");
    const auto file = tinyFile(key);
    for (std::size_t cut = 0; cut < file.size(); ++cut)
        ASSERT_EQ(openError(ByteView(file).first(cut), key), "Malformed header: unexpected end of data.")
            << "cut at " << cut;
}

struct InnerCase {
    const char* name;
    std::string payload; // inner header and XML, before compression
    bool compressed;
    const char* expected;
};

std::string field(std::uint8_t id, const std::string& data)
{
    std::string f(1, static_cast<char>(id));
    const auto n = static_cast<std::uint32_t>(data.size());
    for (int s = 0; s < 32; s += 8)
        f.push_back(static_cast<char>((n >> s) & 0xFF));
    return f + data;
}

const std::string streamId3 = field(1, std::string("\x03\0\0\0", 4));
const std::string aKey = field(2, std::string(64, 'k'));
const std::string end = field(0, "");
const std::string goodXml = "<KeePassFile><Root/></KeePassFile>";

class InnerPayload : public testing::TestWithParam<InnerCase> {};

TEST_P(InnerPayload, isRefusedWithItsMessage)
{
    const Credentials key = passwordOnly("pw");
    auto file = tinyDatabase({cipherAes256, kdfArgon2id, false});
    SecureBytes payload = SecureBytes::fromText(GetParam().payload);
    auto bytes = KdbxFile::seal(file->header, key, std::move(payload));
    // A payload that claims compression it does not have.
    if (GetParam().compressed)
        bytes = quillon::test::withHeader(bytes, key, [](OuterHeader& h) { h.compressed = true; });
    EXPECT_EQ(openError(bytes, key), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    KdbxFile, InnerPayload,
    testing::Values(
        InnerCase{"salsa20", field(1, std::string("\x02\0\0\0", 4)) + aKey + end + "<a><Value Protected=\"True\">AA==</Value></a>", false,
                  "Malformed inner header: unsupported inner stream 2."},
        InnerCase{"missingKey", streamId3 + end + goodXml, false, "Malformed inner header: missing stream key."},
        InnerCase{"shortStreamId", field(1, std::string("\x03\0\0", 3)) + aKey + end + goodXml, false,
                  "Malformed inner header: stream id."},
        InnerCase{"emptyBinary", streamId3 + aKey + field(3, "") + end + goodXml, false,
                  "Malformed inner header: binary."},
        InnerCase{"truncatedField", streamId3 + aKey + std::string("\x03\xff\0\0\0", 5), false,
                  "Malformed header: unexpected end of data."},
        InnerCase{"brokenXml", streamId3 + aKey + end + "<KeePassFile><Root>", false, "Malformed XML: could not parse."},
        InnerCase{"notBase64", streamId3 + aKey + end + "<a><Value Protected=\"True\">not base64!</Value></a>", false,
                  "Malformed XML: a protected value is not base64."},
        InnerCase{"notGzip", streamId3 + aKey + end + goodXml, true, "Malformed inner header: not gzip."}),
    [](const auto& row) { return std::string(row.param.name); });


// For each cipher, key derivation and with or without compression, a file whose payload spans several blocks and gzip
// slices opens to the same document; the check after a save, reading the written file as a stream, proves it holds
// what was encoded, and nothing else does.
TEST(KdbxFile, roundTripsAndVerifyProvesAFileHoldsExactlyWhatWasEncoded)
{
    const Credentials key = passwordOnly("pw");
    for (const Identifier& cipher : {cipherAes256, cipherChaCha20})
        for (bool compressed : {true, false}) {
            const Identifier& kdf = compressed ? kdfArgon2d : kdfArgon2id;
            SCOPED_TRACE(std::string(isIdentifier(cipher, cipherAes256) ? "AES" : "ChaCha20") +
                         (compressed ? ", Argon2d, compressed" : ", Argon2id"));
            auto file = tinyDatabase({cipher, kdf, compressed});
            // An attachment of incompressible bytes, so the inner header alone crosses blocks and slices.
            file->inner.binaries.push_back({0, SecureBytes::from(randomBytes((std::size_t{5} << 20) + 12345))});
            const EncodedFile encoded = file->encode(key);
            ASSERT_GT(encoded.bytes.size(), std::size_t{5} << 20);
            const auto back = KdbxFile::open(encoded.bytes, key);
            EXPECT_EQ(rootText(*back), rootText(*file));
            EXPECT_TRUE(isIdentifier(back->header.cipher, cipher));
            EXPECT_TRUE(isIdentifier(*back->header.kdf.get<std::vector<std::uint8_t>>("$UUID"), kdf));
            EXPECT_EQ(back->header.compressed, compressed);
            EXPECT_EQ(back->header.encryptionIV.size(), isIdentifier(cipher, cipherChaCha20) ? 12u : 16u);
            EXPECT_EQ(back->inner.binaries.back().data.view(), file->inner.binaries.back().data.view());
            EXPECT_NO_THROW({
                WrittenFileCheck check(key, encoded.digests);
                const ByteView bytes(encoded.bytes);
                for (std::size_t at = 0; at < bytes.size(); at += 4093) // pieces across every boundary
                    check.write(bytes.subspan(at, std::min<std::size_t>(4093, bytes.size() - at)));
                check.finish();
            });

            const auto refusedWith = [&](ByteView bytes, const Credentials& credentials, const PayloadDigests& d) {
                try {
                    KdbxFile::verify(bytes, credentials, d);
                } catch (const std::exception& e) {
                    return std::string(e.what());
                }
                return std::string("verified");
            };
            const std::string differs = KdbxError::writtenFileDiffers().describe();
            const EncodedFile again = file->encode(key); // same document, fresh stream key and seeds
            EXPECT_EQ(refusedWith(encoded.bytes, key, again.digests), differs);
            PayloadDigests shifted = encoded.digests;
            ++shifted.innerHeaderSize;
            --shifted.xmlSize;
            EXPECT_EQ(refusedWith(encoded.bytes, key, shifted), differs);
            PayloadDigests longer = encoded.digests;
            ++longer.xmlSize;
            EXPECT_EQ(refusedWith(encoded.bytes, key, longer), differs);
            EXPECT_EQ(refusedWith(encoded.bytes, passwordOnly("other"), encoded.digests),
                      KdbxError::wrongCredentials().describe());
            auto trailing = encoded.bytes;
            trailing.push_back(0);
            EXPECT_EQ(refusedWith(trailing, key, encoded.digests), differs);
            auto flipped = encoded.bytes;
            flipped[flipped.size() - 100] ^= 1;
            EXPECT_THAT(refusedWith(flipped, key, encoded.digests), StartsWith("Data block "));
        }
}


// The save writes the document itself rather than through pugixml: every kind of node and every character that
// needs escaping comes back as it was, protected values included, and the document is not touched meanwhile.
// (Comments and processing instructions are not read, so they cannot be there.)
TEST(KdbxFile, savedTextReadsBackAsTheSameDocument)
{
    const Credentials key = passwordOnly("pw");
    auto file = tinyDatabase();
    quillon::test::setDocument(*file, "<?xml version=\"1.0\" standalone=\"no\"?>"
                                      "<KeePassFile><Meta a=\"q&quot;&amp;&lt;&gt;'&#9;&#10;&#13;&#1; ü\"/>"
                                      "<Root><Group><Name>&amp;&lt;&gt;\"'\t\n\r&#31; ü</Name>"
                                      "<Mixed>before<Inner x=\"1\">in</Inner>after<Empty/></Mixed>"
                                      "<Data><![CDATA[a]]]]><![CDATA[>b<&]]></Data>"
                                      "<String><Key>Password</Key>"
                                      "<Value Protected=\"True\">&lt;&amp;&#2;\t ü</Value></String>"
                                      "<String><Key>Empty</Key><Value Protected=\"True\"></Value></String>"
                                      "<String><Key>Long</Key><Value Protected=\"True\">" +
                                          std::string(200000, 'x') + "</Value></String>"
                                      "<Notes>" + std::string(100000, 'y') + "&amp;</Notes>"
                                      "</Group></Root></KeePassFile>");
    const std::string before = rootText(*file);
    const auto bytes = file->save(key);
    const auto firstDifference = [&](const std::string& after) {
        return std::mismatch(before.begin(), before.end(), after.begin(), after.end()).first - before.begin();
    };
    EXPECT_EQ(firstDifference(rootText(*file)), static_cast<std::ptrdiff_t>(before.size()));
    const auto back = KdbxFile::open(bytes, key);
    EXPECT_EQ(firstDifference(rootText(*back)), static_cast<std::ptrdiff_t>(before.size()));
    EXPECT_EQ(std::string(back->document.first_child().name()), "xml");
    EXPECT_STREQ(back->document.first_child().attribute("standalone").value(), "yes");
}

} // namespace
