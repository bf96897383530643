#include "app/SelfTest.h"

#include "app/Hardening.h"
#include "kdbx/ByteReader.h"
#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxError.h"
#include "kdbx/OuterHeader.h"
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
