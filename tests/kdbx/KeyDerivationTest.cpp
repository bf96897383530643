#include "kdbx/Argon2Kdf.h"
#include "kdbx/CompositeKey.h"
#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxError.h"
#include "kdbx/KeyFile.h"
#include "tests/support/Helpers.h"
#include "tests/support/Peers.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>

#include <string>

using namespace quillon::kdbx;
using quillon::test::bytesOf;
using quillon::test::hex;
using quillon::test::readFile;
using testing::StrEq;
using testing::ThrowsMessage;

namespace {

std::vector<std::uint8_t> repeated(std::uint8_t b, std::size_t n) { return std::vector<std::uint8_t>(n, b); }

std::vector<std::uint8_t> digestOf(ByteView data)
{
    const auto d = sha256(data);
    return {d.begin(), d.end()};
}

// The formats other programs write are read from their own files below; here, the edges between the formats.
TEST(KeyFile, everyFormatGivesItsKey)
{
    const auto key = hex("A7007945D07D54BA28DF64341B4500FC9750DFB1D36ADA2D9C32DC194C7AB01B");
    const std::string keyHex = "A7007945D07D54BA28DF64341B4500FC9750DFB1D36ADA2D9C32DC194C7AB01B";
    const std::string keyBase64 = base64Encode(key);
    const std::string v2 = "<KeyFile>\n<Meta><Version>2.0</Version></Meta>\n<Key><Data Hash=\"00000000\">\n  " +
                           keyHex.substr(0, 32) + "\n\t" + keyHex.substr(32) + " </Data></Key>\n</KeyFile>";
    std::string notHex64(64, 'a');
    notHex64[17] = 'g';
    const std::string brokenXml = "<KeyFile><Key><Data>" + keyBase64 + "</Data></Key>"; // never closed

    struct Row {
        const char* name;
        std::vector<std::uint8_t> file;
        std::vector<std::uint8_t> expected;
    };
    const Row rows[] = {
        {"XML 2.0, hex in groups, Hash not checked", bytesOf(v2), key},
        {"XML 2.0 whose data is only base64", bytesOf("<KeyFile><Meta><Version>2.0</Version></Meta><Key><Data>" +
                                                      keyBase64 + "</Data></Key></KeyFile>"),
         key},
        {"XML data that is neither base64 nor hex", bytesOf("<KeyFile><Key><Data>" + keyHex + "==</Data></Key></KeyFile>"),
         digestOf(bytesOf("<KeyFile><Key><Data>" + keyHex + "==</Data></Key></KeyFile>"))},
        {"XML without Data is hashed", bytesOf("<KeyFile><Key/></KeyFile>"),
         digestOf(bytesOf("<KeyFile><Key/></KeyFile>"))},
        {"XML that does not parse is hashed", bytesOf(brokenXml), digestOf(bytesOf(brokenXml))},
        {"64 bytes with one non-hex digit", bytesOf(notHex64), digestOf(bytesOf(notHex64))},
        {"33 bytes", repeated(7, 33), digestOf(repeated(7, 33))},
        {"empty file", {}, digestOf({})},
    };
    for (const Row& row : rows)
        EXPECT_EQ(bytesOf(keyFileKey(row.file)), row.expected) << row.name;
}

TEST(KeyFile, aGeneratedFileParsesBackAndCarriesItsHash)
{
    const SecureBytes text = generateKeyFile();
    const std::string_view view = text.view();
    const std::vector<std::uint8_t> key = bytesOf(keyFileKey(text.span()));
    ASSERT_EQ(key.size(), 32u);

    const auto hashAt = view.find("Hash=\"");
    ASSERT_NE(hashAt, std::string_view::npos);
    EXPECT_EQ(std::string(view.substr(hashAt + 6, 8)), hexEncode(ByteView(digestOf(key)).first(4), true));

    EXPECT_NE(bytesOf(keyFileKey(generateKeyFile().span())), key);
}

// Key files written by other programs, where the expected key follows from the file itself.
TEST(KeyFile, otherProgramsKeyFiles)
{
    const auto corpus = quillon::test::corpusDir();
    QUILLON_REQUIRE_CORPUS_DIR(corpus);
    const auto v2Key = hex("A7007945D07D54BA28DF64341B4500FC9750DFB1D36ADA2D9C32DC194C7AB01B");
    struct Row {
        const char* path;
        std::vector<std::uint8_t> expected; // empty: SHA-256 of the file; "raw": the file itself
        bool raw = false;
    };
    const Row rows[] = {
        {"repo-keepassxc/FileKeyBinary.key", {}, true},
        {"repo-keepassxc/FileKeyHex.key", hex("0123456789abcdeffedcba98765432100123456789abcdeffedcba9876543210")},
        {"repo-keepassxc/FileKeyXml.key", base64Decode("nhNal+U9p6h1rWAAJ5YrNkMazMTZkIWLi3WC4JQv5jk=").value()},
        {"repo-keepassxc/FileKeyXmlV2.keyx", v2Key},
        {"repo-keepassxc/FileKeyXmlV2HashFail.keyx", v2Key},
        // Not hexadecimal, but every character is base64.
        {"repo-keepassxc/FileKeyXmlV2BrokenHex.keyx",
         base64Decode("X7007945D07D54BA28DF64341B4500FC9750DFB1D36ADA2D9C32DC194C7AB01B").value()},
        {"repo-keepassxc/FileKeyHashed.key", {}},
        {"repo-kdbxweb/Key32.key", {}, true},
        {"repo-kdbxweb/Key64.key", hex("1234567890123456789012345678901234567890123456789012345678901234")},
        {"repo-kdbxweb/KeyV2.keyx", v2Key},
        {"repo-kdbxweb/KeyWithBom.key", base64Decode("eiFL/HpBR0qjVrA/9GfX4HPyF4hNbP4fKyHowERq5jI=").value()},
        {"repo-kdbxweb/demo.key", base64Decode("AtY2GR2pVt6aWz2ugfxfSQWjRId9l0JWe/LEMJWVJ1k=").value()},
        {"repo-kdbxweb/binkey.key", {}},
    };
    for (const Row& row : rows) {
        const auto file = readFile(*corpus / row.path);
        const auto expected = row.raw ? file : row.expected.empty() ? digestOf(file) : row.expected;
        EXPECT_EQ(bytesOf(keyFileKey(file)), expected) << row.path;
    }
}

VariantDictionary argon2Parameters(const Identifier& id)
{
    VariantDictionary kdf;
    kdf.entries["$UUID"] = std::vector<std::uint8_t>(id.begin(), id.end());
    kdf.entries["S"] = bytesOf("somesaltsalt");
    kdf.entries["M"] = std::uint64_t{64 * 1024};
    kdf.entries["I"] = std::uint64_t{2};
    kdf.entries["P"] = std::uint32_t{1};
    return kdf;
}

// Expected outputs from libargon2's own `argon2` command: echo -n password | argon2 somesaltsalt -d|-id -t 2
// -k 64 -p 1 -l 32 -r -v 10|13. "V" 0x10 runs version 0x10; every other value, or none, runs 0x13.
TEST(Argon2, versionRuleAndBothVariants)
{
    const char* d10 = "907b682383b17eeab5d105bd9d25ce1ddda40fad6d26e5e3ce372c3e1fe903cf";
    const char* d13 = "4758cfbbbfafe7e89d2f64a4ab54f46493afa699d65660e64856c3f19855c8ed";
    const char* id10 = "7cddfd1d5d8a0036d67bb30cd8da7cf8ea061d46f31a108513e0e3da0297b770";
    const char* id13 = "3b5780d2fb6a066d86d540ce71944a1431370d562fe2c18116e6b16b5b958a8e";
    struct Row {
        const Identifier* id;
        std::optional<std::uint32_t> v;
        const char* expected;
    };
    const Row rows[] = {
        {&kdfArgon2d, 0x13, d13},  {&kdfArgon2d, std::nullopt, d13}, {&kdfArgon2d, 0x99, d13},
        {&kdfArgon2d, 0x10, d10},  {&kdfArgon2id, 0x13, id13},       {&kdfArgon2id, std::nullopt, id13},
        {&kdfArgon2id, 0x10, id10},
    };
    const SecureBytes password = SecureBytes::fromText("password");
    for (const Row& row : rows) {
        VariantDictionary kdf = argon2Parameters(*row.id);
        if (row.v)
            kdf.entries["V"] = *row.v;
        EXPECT_EQ(bytesOf(transformKey(password, kdf)), hex(row.expected)) << row.expected;
    }
    // "M" and "I" may be 32-bit as well; "K" and "A" of another type or empty mean none.
    VariantDictionary narrow = argon2Parameters(kdfArgon2d);
    narrow.entries["M"] = std::uint32_t{64 * 1024};
    narrow.entries["I"] = std::uint32_t{2};
    narrow.entries["K"] = std::vector<std::uint8_t>{};
    narrow.entries["A"] = std::string("not bytes");
    EXPECT_EQ(bytesOf(transformKey(password, narrow)), hex(d13));
    // A secret, when present, changes the result.
    narrow.entries["K"] = bytesOf("secret");
    EXPECT_NE(bytesOf(transformKey(password, narrow)), hex(d13));
}

TEST(Argon2, parameterErrors)
{
    const std::string unsupported = "Unsupported key derivation function (";
    const std::string tail = "). Quillon supports Argon2id and Argon2d. Switch the database to Argon2id in the app that "
                             "created it, save, and open it again.";
    const Identifier other = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    struct Row {
        const char* name;
        std::function<void(VariantDictionary&)> change;
        std::string message;
    };
    const std::string incomplete = unsupported + "incomplete Argon2 parameters" + tail;
    const Row rows[] = {
        {"empty dictionary", [](auto& k) { k.entries.clear(); }, unsupported + "missing" + tail},
        {"AES-KDF",
         [](auto& k) { k.entries["$UUID"] = std::vector<std::uint8_t>(kdfAesKdf.begin(), kdfAesKdf.end()); },
         unsupported + "AES-KDF" + tail},
        {"other KDF", [&](auto& k) { k.entries["$UUID"] = std::vector<std::uint8_t>(other.begin(), other.end()); },
         unsupported + "AQIDBAUGBwgJCgsMDQ4PEA==" + tail},
        {"no salt", [](auto& k) { k.entries.erase("S"); }, incomplete},
        {"salt as text", [](auto& k) { k.entries["S"] = std::string("salt"); }, incomplete},
        {"no memory", [](auto& k) { k.entries.erase("M"); }, incomplete},
        {"memory signed", [](auto& k) { k.entries["M"] = std::int64_t{65536}; }, incomplete},
        {"no iterations", [](auto& k) { k.entries.erase("I"); }, incomplete},
        {"lanes 64-bit", [](auto& k) { k.entries["P"] = std::uint64_t{1}; }, incomplete},
        {"zero iterations", [](auto& k) { k.entries["I"] = std::uint64_t{0}; }, "Argon2 failed with code -12."},
        {"memory below 8 KiB per lane", [](auto& k) { k.entries["M"] = std::uint64_t{7 * 1024}; },
         "Argon2 failed with code -14."},
        {"salt too short", [](auto& k) { k.entries["S"] = std::vector<std::uint8_t>{1, 2}; },
         "Argon2 failed with code -6."},
    };
    const SecureBytes key = SecureBytes::from(repeated(9, 32));
    for (const Row& row : rows) {
        VariantDictionary kdf = argon2Parameters(kdfArgon2id);
        row.change(kdf);
        EXPECT_THAT([&] { (void)transformKey(key, kdf); }, ThrowsMessage<KdbxError>(StrEq(row.message))) << row.name;
    }
}

} // namespace
