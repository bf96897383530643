#include "app/SelfTest.h"

#include "app/Hardening.h"
#include "kdbx/Argon2Kdf.h"
#include "kdbx/ByteReader.h"
#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxFile.h"
#include "kdbx/KdbxTime.h"
#include "kdbx/KdbxError.h"
#include "kdbx/OuterHeader.h"
#include "kdbx/PayloadCipher.h"
#include "kdbx/VariantDictionary.h"

#include <algorithm>
#include <string_view>

namespace quillon::app {
namespace {

using kdbx::ByteView;
using Bytes = std::vector<std::uint8_t>;

ByteView viewOf(std::string_view text) { return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()}; }

template <class Digest>
bool equalsHex(const Digest& digest, std::string_view hex)
{
    return kdbx::hexEncode(ByteView(digest.data(), digest.size())) == hex;
}

kdbx::VariantDictionary sampleDictionary()
{
    kdbx::VariantDictionary d;
    d.entries["$UUID"] = Bytes(kdbx::kdfArgon2id.begin(), kdbx::kdfArgon2id.end());
    d.entries["M"] = std::uint64_t{0x0000000100000002};
    d.entries["P"] = std::uint32_t{4};
    d.entries["flag"] = false;
    d.entries["i32"] = std::int32_t{-7};
    d.entries["i64"] = std::int64_t{-0x100000000};
    d.entries["text"] = std::string("Gr\xC3\xBC\xC3\x9F" "e");
    return d;
}

kdbx::OuterHeader sampleHeader()
{
    kdbx::OuterHeader h;
    h.minor = 1;
    h.cipher.assign(kdbx::cipherChaCha20.begin(), kdbx::cipherChaCha20.end());
    h.compressed = false;
    h.masterSeed = Bytes(32, 0x5E);
    h.encryptionIV = Bytes(12, 0x1F);
    h.kdf = sampleDictionary();
    h.publicCustomData = Bytes{0x00, 0x01, 0x00};
    h.unknownFields = {{200, {1, 2, 3}}, {1, {}}, {10, {0xFF}}};
    return h;
}

Bytes fromHex(std::string_view hex)
{
    auto bytes = kdbx::hexDecode(hex);
    return bytes ? std::move(*bytes) : Bytes{};
}

Bytes counting(std::size_t n)
{
    Bytes bytes(n);
    for (std::size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<std::uint8_t>(i);
    return bytes;
}

// A whole database through save and open, with a key derivation light enough for a start-up check.
std::unique_ptr<kdbx::KdbxFile> smallDatabase(const kdbx::Identifier& cipher)
{
    auto file = kdbx::KdbxFile::newDatabase();
    file->header.cipher.assign(cipher.begin(), cipher.end());
    file->header.kdf.entries["M"] = std::uint64_t{64 * 1024};
    file->header.kdf.entries["I"] = std::uint64_t{1};
    file->header.kdf.entries["P"] = std::uint32_t{1};
    pugi::xml_node entry = file->document.child("KeePassFile").child("Root").child("Group").append_child("Entry");
    entry.append_child("UUID").text().set(kdbx::newUuidText().c_str());
    pugi::xml_node field = entry.append_child("String");
    field.append_child("Key").text().set("Password");
    pugi::xml_node value = field.append_child("Value");
    value.append_attribute("Protected").set_value("True");
    value.text().set("self-test secret");
    return file;
}

kdbx::Credentials passwordCredentials(std::string_view password)
{
    kdbx::Credentials credentials;
    credentials.password = kdbx::SecureBytes::from(viewOf(password));
    return credentials;
}

bool fileRoundTrip(const kdbx::Identifier& cipher)
{
    const auto credentials = passwordCredentials("self-test");
    const auto bytes = smallDatabase(cipher)->save(credentials);
    const auto opened = kdbx::KdbxFile::open(bytes, credentials);
    const auto counts = kdbx::countDocument(opened->document);
    const pugi::xml_node value = opened->document.select_node("//Entry/String/Value").node();
    return counts.entries == 1 && counts.protectedValues == 1 &&
           std::string_view(value.text().get()) == "self-test secret";
}

} // namespace

void addHashChecks(SelfChecks& checks)
{
    checks.push_back({"SHA-256 of \"abc\"", [] {
                          return equalsHex(kdbx::sha256(viewOf("abc")),
                                           "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
                      }});
    // RFC 4231 test cases 1 and 2.
    checks.push_back({"HMAC-SHA-256 RFC 4231 case 1", [] {
                          const Bytes key(20, 0x0b);
                          return equalsHex(kdbx::hmacSha256(key, {viewOf("Hi There")}),
                                           "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
                      }});
    checks.push_back({"HMAC-SHA-256 RFC 4231 case 2", [] {
                          return equalsHex(kdbx::hmacSha256(viewOf("Jefe"), {viewOf("what do ya want "),
                                                                             viewOf("for nothing?")}),
                                           "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
                      }});
}

void addEncodingChecks(SelfChecks& checks)
{
    checks.push_back({"base64 RFC 4648 vectors", [] {
                          constexpr std::pair<std::string_view, std::string_view> vectors[] = {
                              {"", ""},          {"f", "Zg=="},         {"fo", "Zm8="},        {"foo", "Zm9v"},
                              {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
                          };
                          return std::all_of(std::begin(vectors), std::end(vectors), [](const auto& v) {
                              const auto plain = viewOf(v.first);
                              const auto decoded = kdbx::base64Decode(v.second);
                              return kdbx::base64Encode(plain) == v.second && decoded &&
                                     std::equal(decoded->begin(), decoded->end(), plain.begin(), plain.end());
                          });
                      }});
}

void addHeaderChecks(SelfChecks& checks)
{
    checks.push_back({"VariantDictionary with all seven types", [] {
                          const auto d = sampleDictionary();
                          const auto bytes = kdbx::serialiseVariantDictionary(d);
                          return kdbx::parseVariantDictionary(bytes) == d;
                      }});
    checks.push_back({"OuterHeader with unknown fields", [] {
                          const auto h = sampleHeader();
                          const auto bytes = kdbx::serialiseOuterHeader(h);
                          kdbx::ByteReader reader(bytes);
                          const auto parsed = kdbx::parseOuterHeader(reader);
                          return parsed.header == h && parsed.raw == bytes && reader.remaining() == 0;
                      }});
    checks.push_back({"truncated OuterHeader is refused", [] {
                          const auto bytes = kdbx::serialiseOuterHeader(sampleHeader());
                          kdbx::ByteReader reader(ByteView(bytes).first(bytes.size() - 1));
                          try {
                              (void)kdbx::parseOuterHeader(reader);
                          } catch (const kdbx::KdbxError& e) {
                              return e.describe() == "Malformed header: unexpected end of data.";
                          }
                          return false;
                      }});
}

void addCipherChecks(SelfChecks& checks)
{
    // NIST SP 800-38A F.2.5, first block; the padding block follows it.
    checks.push_back({"AES-256-CBC NIST SP 800-38A", [] {
                          const auto key = kdbx::SecureBytes::from(
                              fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4"));
                          const auto iv = fromHex("000102030405060708090a0b0c0d0e0f");
                          const auto plain = fromHex("6bc1bee22e409f96e93d7e117393172a");
                          const auto sealed = kdbx::aes256CbcEncrypt(key, iv, plain);
                          const auto opened = kdbx::aes256CbcDecrypt(key, iv, sealed);
                          return sealed.size() == 32 &&
                                 kdbx::hexEncode(ByteView(sealed).first(16)) == "f58c4c04d6e5f1ba779eabfb5f7bfbd6" &&
                                 std::equal(opened.data(), opened.data() + opened.size(), plain.begin(), plain.end());
                      }});
    // RFC 8439 section 2.4.2.
    checks.push_back({"ChaCha20 RFC 8439", [] {
                          const std::string_view text = "Ladies and Gentlemen of the class of '99: If I could offer "
                                                        "you only one tip for the future, sunscreen would be it.";
                          Bytes data(text.begin(), text.end());
                          kdbx::ChaCha20(counting(32), fromHex("000000000000004a00000000"), 1).apply(data);
                          return kdbx::hexEncode(data) ==
                                 "6e2e359a2568f98041ba0728dd0d6981e97e7aec1d4360c20a27afccfd9fae0b"
                                 "f91b65c5524733ab8f593dabcd62b3571639d624e65152ab8f530c359f0861d8"
                                 "07ca0dbf500d6a6156a38e088a22b65e52bc514d16ccf806818ce91ab7793736"
                                 "5af90bbf74a35be6b40b8eedf2785e42874d";
                      }});
    // RFC 9106 sections 5.1 and 5.3.
    for (const auto& [variant, name, tag] :
         {std::tuple{kdbx::Argon2Variant::argon2d, "Argon2d RFC 9106",
                     "512b391b6f1162975371d30919734294f868e3be3984f3c1a13a4db9fabe4acb"},
          std::tuple{kdbx::Argon2Variant::argon2id, "Argon2id RFC 9106",
                     "0d640df58d78766c08c037a34a8b53c9d01ef0452d75b65eb52520e96b01e659"}}) {
        checks.push_back({name, [variant, expected = std::string(tag)] {
                              const auto out = kdbx::argon2Raw(variant, Bytes(32, 1), Bytes(16, 2), Bytes(8, 3),
                                                               Bytes(12, 4), 3, 32, 4, 0x13);
                              return kdbx::hexEncode(ByteView(out.data(), out.size())) == expected;
                          }});
    }
}

void addFileChecks(SelfChecks& checks)
{
    checks.push_back({"database round trip, AES-256", [] { return fileRoundTrip(kdbx::cipherAes256); }});
    checks.push_back({"database round trip, ChaCha20", [] { return fileRoundTrip(kdbx::cipherChaCha20); }});
    checks.push_back({"wrong password is refused", [] {
                          const auto bytes = smallDatabase(kdbx::cipherAes256)->save(passwordCredentials("right"));
                          try {
                              (void)kdbx::KdbxFile::open(bytes, passwordCredentials("wrong"));
                          } catch (const kdbx::KdbxError& e) {
                              return e.which() == kdbx::KdbxError::Case::wrongCredentials;
                          }
                          return false;
                      }});
}

void addProcessChecks(SelfChecks& checks)
{
#ifdef QUILLON_HARDENED
    checks.push_back({"no core dumps, not dumpable", [] { return isProcessHardened(); }});
#else
    (void)checks;
#endif
}

SelfChecks allSelfChecks()
{
    SelfChecks checks;
    addHashChecks(checks);
    addEncodingChecks(checks);
    addHeaderChecks(checks);
    addCipherChecks(checks);
    addFileChecks(checks);
    addProcessChecks(checks);
    return checks;
}

int runSelfTest(const SelfChecks& checks, std::ostream& out)
{
    int passed = 0;
    int failed = 0;
    for (const auto& check : checks) {
        bool ok = false;
        bool threw = false;
        try {
            ok = check.run();
        } catch (...) {
            threw = true;
        }
        out << (ok ? "  ok    " : threw ? "  ERROR " : "  FAIL  ") << check.name << '\n';
        ++(ok ? passed : failed);
    }
    out << passed << " passed, " << failed << " failed\n";
    out.flush();
    return failed == 0 ? 0 : 1;
}

} // namespace quillon::app
