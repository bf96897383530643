// Writes the seed corpora of every harness into the given folder, one subfolder per harness, all made by
// our own writers at run time (no binary blobs in the repository).
#include "fuzz/FuzzDatabase.h"
#include "kdbx/Argon2Kdf.h"
#include "kdbx/Gzip.h"
#include "kdbx/KdbxFile.h"
#include "kdbx/KdbxTime.h"
#include "kdbx/KeyFile.h"
#include "kdbx/Encoding.h"
#include "kdbx/PayloadCipher.h"
#include "kdbx/Random.h"
#include "kdbx/VariantDictionary.h"
#include "tools/OtpAuthUri.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

using namespace quillon;
using namespace quillon::kdbx;

namespace {

std::filesystem::path root;

void write(const std::string& harness, const std::string& name, ByteView bytes)
{
    const auto dir = root / harness;
    std::filesystem::create_directories(dir);
    std::ofstream(dir / name, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

void write(const std::string& harness, const std::string& name, std::string_view text)
{
    write(harness, name, ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

// A small database with what the codec must carry: entries with protected and plain values, history,
// an attachment, an unknown inner field and unknown XML.
std::unique_ptr<KdbxFile> sampleDatabase()
{
    auto file = KdbxFile::newDatabase();
    file->header = fuzz::fuzzHeader();
    pugi::xml_node group = file->document.child("KeePassFile").child("Root").child("Group");
    for (int i = 0; i < 3; ++i) {
        pugi::xml_node entry = group.append_child("Entry");
        entry.append_child("UUID").text().set(newUuidText().c_str());
        for (auto [key, value, isProtected] :
             {std::tuple{"Title", "Entry", false}, {"Password", "pässwörd", true}, {"otp", "otpauth://totp/x?secret=JBSWY3DP", true}}) {
            pugi::xml_node s = entry.append_child("String");
            s.append_child("Key").text().set(key);
            pugi::xml_node v = s.append_child("Value");
            if (isProtected)
                v.append_attribute("Protected").set_value("True");
            v.text().set(value);
        }
        entry.append_child("Binary").append_child("Value").append_attribute("Ref").set_value("0");
        entry.append_child("History").append_copy(entry.child("String"));
        entry.append_child("Unknown").append_attribute("x").set_value("kept");
    }
    file->inner.binaries.push_back({1, SecureBytes::fromText("attachment")});
    file->inner.unknownFields.push_back({9, {1, 2, 3}});
    return file;
}

// The payload our writer produced, decrypted again with the fuzz password: inner header and XML.
SecureBytes payloadOf(const std::vector<std::uint8_t>& fileBytes)
{
    ByteReader reader(fileBytes);
    const ParsedOuterHeader parsed = parseOuterHeader(reader);
    reader.skip(64);
    const DerivedKeys keys =
        deriveKeys(parsed.header.masterSeed, transformKey(compositeKey(fuzz::fuzzCredentials()), parsed.header.kdf));
    SecureBytes payload = decryptPayload(reader, parsed.header, keys);
    return payload;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTPUT-FOLDER\n", argv[0]);
        return 2;
    }
    root = argv[1];
    const Credentials credentials = fuzz::fuzzCredentials();

    auto file = sampleDatabase();
    const std::vector<std::uint8_t> plainFile = file->save(credentials);
    write("inner_xml", "sample", payloadOf(plainFile).span());
    write("inner_xml", "new", payloadOf(KdbxFile::newDatabase()->save(credentials)).span());

    write("outer_header", "aes-plain", plainFile);
    file->header.cipher.assign(cipherChaCha20.begin(), cipherChaCha20.end());
    file->header.compressed = true;
    write("outer_header", "chacha-gzip", file->save(credentials));
    write("outer_header", "kdf", serialiseVariantDictionary(file->header.kdf));
    VariantDictionary everyType;
    everyType.entries = {{"u32", std::uint32_t{7}}, {"u64", std::uint64_t{1} << 40}, {"b", true},
                         {"i32", std::int32_t{-3}},  {"i64", std::int64_t{-1}},        {"s", std::string("text")},
                         {"y", std::vector<std::uint8_t>{1, 2}}};
    write("outer_header", "every-type", serialiseVariantDictionary(everyType));

    const SecureBytes payload = payloadOf(plainFile);
    write("gzip", "payload", gzip(payload.span()));
    write("gzip", "empty", gzip({}));
    write("gzip", "zeros", gzip(std::vector<std::uint8_t>(100000, 0)));

    write("key_file", "xml-v2", generateKeyFile().span());
    const std::vector<std::uint8_t> raw = randomBytes(32);
    write("key_file", "raw-32", raw);
    write("key_file", "hex-64", hexEncode(raw));
    write("key_file", "xml-v1",
          "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<KeyFile><Meta><Version>1.00</Version></Meta><Key><Data>" +
              base64Encode(raw) + "</Data></Key></KeyFile>");
    write("key_file", "other", "any other file is hashed");

    tools::TOTP totp;
    totp.secret = SecureBytes::fromText("12345678901234567890");
    totp.issuer = "Example Co";
    totp.account = "alice@example.com";
    write("otpauth", "default", tools::formatOtp(totp).span());
    totp.digits = 8;
    totp.period = 60;
    totp.algorithm = tools::Algorithm::sha512;
    write("otpauth", "sha512", tools::formatOtp(totp).span());
    totp.steam = true;
    totp.digits = 5;
    write("otpauth", "steam", tools::formatOtp(totp).span());
    write("otpauth", "bare", "JBSW Y3DP EHPK 3PXP");
    return 0;
}
