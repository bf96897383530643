// Headers written by the peer programs parse, and serialise back to the very same bytes.
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxError.h"
#include "kdbx/OuterHeader.h"
#include "tests/support/PeerDatabases.h"
#include "tests/support/Peers.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace quillon::kdbx;
using namespace quillon::test;

namespace {

struct Variant {
    const char* name;
    std::string cipher;
    std::string kdf;
    bool password;
    bool keyFile;
};

class PeerHeader : public testing::TestWithParam<Variant> {};

ParsedOuterHeader parseFile(const std::filesystem::path& path)
{
    const auto bytes = readFile(path);
    ByteReader reader(bytes);
    auto parsed = parseOuterHeader(reader);
    // The two integrity values follow directly.
    EXPECT_GE(reader.remaining(), 64u);
    return parsed;
}

void expectRoundTrip(const ParsedOuterHeader& parsed, const Variant& v, const std::string& stage)
{
    EXPECT_EQ(serialiseOuterHeader(parsed.header), parsed.raw) << stage;
    const auto& h = parsed.header;
    EXPECT_EQ(h.major, 4) << stage;
    EXPECT_TRUE(isIdentifier(h.cipher, v.cipher == "chacha20" ? cipherChaCha20 : cipherAes256)) << stage;
    EXPECT_EQ(h.encryptionIV.size(), v.cipher == "chacha20" ? 12u : 16u) << stage;
    EXPECT_EQ(h.masterSeed.size(), 32u) << stage;
    const auto* uuid = h.kdf.get<std::vector<std::uint8_t>>("$UUID");
    ASSERT_TRUE(uuid) << stage;
    EXPECT_TRUE(isIdentifier(*uuid, v.kdf == "argon2id" ? kdfArgon2id : kdfArgon2d)) << stage;
    ASSERT_TRUE(h.kdf.get<std::uint64_t>("M")) << stage;
    EXPECT_EQ(*h.kdf.get<std::uint64_t>("M"), 1024u * 1024u) << stage;
}

TEST_P(PeerHeader, survivesPykeepassAndKeepassxc)
{
    QUILLON_REQUIRE_PEER(pykeepassPython(), "pykeepass");
    QUILLON_REQUIRE_PEER(keepassxcCli(), "keepassxc-cli");
    const Variant& v = GetParam();
    TempDir dir;
    PeerDatabase wanted;
    wanted.cipher = v.cipher;
    wanted.kdf = v.kdf;
    if (!v.password)
        wanted.credentials.password.reset();
    if (v.keyFile) {
        writeFile(dir / "db.key", std::string(64, 'k'));
        wanted.credentials.keyFile = dir / "db.key";
    }
    wanted.groups = {"Mail", "Mail/Work"};
    wanted.entries = {{"Mail/Work", "Office", "ann", "s3cret", "https://example.com", "note"}};
    const auto db = dir / "peer.kdbx";
    const auto made = makePykeepassDatabase(db, wanted);
    ASSERT_EQ(made.exitCode, 0) << made.err;
    expectRoundTrip(parseFile(db), v, "pykeepass");

    const auto added = keepassxcOn("add", db, wanted.credentials, {"Mail/Added"}, {"-u", "bob"});
    ASSERT_EQ(added.exitCode, 0) << added.err;
    const auto afterAdd = parseFile(db);
    expectRoundTrip(afterAdd, v, "keepassxc-cli add");

    const auto grouped = keepassxcOn("mkdir", db, wanted.credentials, {"Mail/Home"});
    ASSERT_EQ(grouped.exitCode, 0) << grouped.err;
    const auto afterMkdir = parseFile(db);
    expectRoundTrip(afterMkdir, v, "keepassxc-cli mkdir");
    EXPECT_NE(afterMkdir.header.masterSeed, afterAdd.header.masterSeed) << "keepassxc-cli did not save again";
}

INSTANTIATE_TEST_SUITE_P(Peers, PeerHeader,
                         testing::Values(Variant{"aesArgon2dPassword", "aes256", "argon2d", true, false},
                                         Variant{"chachaArgon2idPassword", "chacha20", "argon2id", true, false},
                                         Variant{"aesArgon2idPasswordAndKeyFile", "aes256", "argon2id", true, true},
                                         Variant{"chachaArgon2dKeyFileOnly", "chacha20", "argon2d", false, true}),
                         [](const auto& p) { return std::string(p.param.name); });

} // namespace
