// quillon-cli against the peers: it reads databases that pykeepass made and keepassxc-cli changed, and what
// it writes opens in both with the content, credentials and settings it was given.
#include "tests/support/CliRunner.h"
#include "tests/support/PeerDatabases.h"
#include "tests/support/Peers.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

namespace quillon::test {
namespace {

using testing::HasSubstr;

const std::string password = "password";
const std::string stdinPassword = password + "\n";

// Prints what pykeepass reads: the cipher and history limit, the groups, then each entry as
// "path|user|password|attachments|history versions".
const char* const readScript = R"(
import sys
from pykeepass import PyKeePass
kw = {'password': sys.argv[2] if sys.argv[2] != '-' else None}
if len(sys.argv) > 3:
    kw['keyfile'] = sys.argv[3]
kp = PyKeePass(sys.argv[1], **kw)
print(kp.kdbx.header.value.dynamic_header.cipher_id.data, kp.tree.find('Meta/HistoryMaxItems').text)
print(sorted('/'.join(g.path) for g in kp.groups if g.path))
for e in sorted(kp.entries, key=lambda e: '/'.join(e.path)):
    atts = ','.join('%s=%s' % (a.filename, a.data.decode()) for a in e.attachments)
    print('%s|%s|%s|%s|%d' % ('/'.join(e.path), e.username, e.password, atts, len(e.history)))
)";

ProcessResult cli(const std::vector<std::string>& args, const std::string& input = stdinPassword)
{
    return runCli(args, input);
}

TEST(CliInterop, readsWhatPykeepassMadeAndKeepassxcChanged)
{
    QUILLON_REQUIRE_PEER(pykeepassPython(), "pykeepass");
    QUILLON_REQUIRE_PEER(keepassxcCli(), "keepassxc-cli");

    TempDir dir;
    const auto db = (dir / "peer.kdbx").string();
    PeerDatabase wanted;
    wanted.cipher = "chacha20";
    wanted.groups = {"Web", "Web/Mail"};
    wanted.entries = {
        {"Web", "Forum", "alice", "forum-secret", "https://forum.example", "quiet notes"},
        {"Web/Mail", "Inbox", "al", "mail-secret", "", ""},
        {"", "Bank", "bob", "bank-secret", "", "", {{"otp", "otpauth://totp/Bank:bob?secret=JBSWY3DPEHPK3PXP"}}},
    };
    const auto made = makePykeepassDatabase(dir / "peer.kdbx", wanted);
    ASSERT_EQ(made.exitCode, 0) << made.err;
    writeFile(dir / "note.txt", std::string_view("attached by keepassxc"));
    for (const auto& change : {
             keepassxcOn("add", db, wanted.credentials, {"Web/Shop"}, {"-u", "carol", "-p"},
                         "shop-secret\nshop-secret\n"),
             keepassxcOn("mkdir", db, wanted.credentials, {"Servers"}),
             keepassxcOn("edit", db, wanted.credentials, {"Web/Forum"}, {"-u", "alice2"}),
             keepassxcOn("attachment-import", db, wanted.credentials, {"Bank", "note.txt", (dir / "note.txt").string()}),
         })
        ASSERT_EQ(change.exitCode, 0) << change.err;

    // What the peers wrote reads back whole through quillon-cli's own words.
    const auto shown = cli({"show", "--password-stdin", "--show-protected", db, "Web/Forum"});
    ASSERT_EQ(shown.exitCode, 0) << shown.err;
    EXPECT_THAT(shown.out, HasSubstr("UserName: alice2\nPassword: forum-secret\nURL: https://forum.example\n"));
    EXPECT_THAT(shown.out, HasSubstr("History: 1 version\n"));
    EXPECT_EQ(cli({"ls", "-R", "--password-stdin", db}).out, "Web/\n  Mail/\n    Inbox\n  Forum\n  Shop\nServers/\nBank\n");

    // Both read the clock; a step boundary between the two runs gets one more try.
    std::string ours, theirs;
    for (int attempt = 0; attempt < 2 && (ours.empty() || ours != theirs); ++attempt) {
        ours = cli({"totp", "--password-stdin", db, "Bank"}).out;
        theirs = keepassxcOn("show", db, wanted.credentials, {"Bank"}, {"-t"}).out;
    }
    EXPECT_EQ(ours.size(), 7u);
    EXPECT_EQ(ours, theirs);

    // Changes to the peers' file, read back by both.
    for (const auto& step : {
             cli({"edit", "--password-stdin", "-p", "--url", "https://forum.example/new", db, "Web/Forum"},
                 stdinPassword + "forum-2\n"),
             cli({"add", "--password-stdin", "-u", "dave", db, "Servers/db1"}),
             cli({"mkdir", "--password-stdin", db, "Servers/Old"}),
             cli({"mv", "--password-stdin", db, "Web/Shop", "Servers/Old"}),
             cli({"rm", "--password-stdin", db, "Web/Mail/"}),
             cli({"attachment-import", "--password-stdin", db, "Servers/db1", "n.txt", (dir / "note.txt").string()}),
             cli({"db-edit", "--password-stdin", "--kdf", "argon2id", "--iterations", "1", db}),
         })
        ASSERT_EQ(step.exitCode, 0) << step.err;
    const auto forum = keepassxcOn("show", db, wanted.credentials, {"Web/Forum"}, {"-s", "-a", "Password", "-a", "URL"});
    EXPECT_EQ(forum.out, "forum-2\nhttps://forum.example/new\n");
    const auto kdf = keepassxcOn("db-info", db, wanted.credentials);
    EXPECT_THAT(kdf.out, HasSubstr("KDF: Argon2id (1 rounds, 1024 KB)\n"));
    const auto read = pykeepass(readScript, {db, password});
    ASSERT_EQ(read.exitCode, 0) << read.err;
    EXPECT_THAT(read.out, HasSubstr("\n['Recycle Bin', 'Recycle Bin/Mail', 'Servers', 'Servers/Old', 'Web']\n"));
    EXPECT_THAT(read.out, HasSubstr("\nRecycle Bin/Mail/Inbox|al|mail-secret||0\n"));
    EXPECT_THAT(read.out, HasSubstr("\nServers/Old/Shop|carol|shop-secret||0\n"));
    // pykeepass reads an empty password as None.
    EXPECT_THAT(read.out, HasSubstr("\nServers/db1|dave|None|n.txt=attached by keepassxc|1\n"));
    EXPECT_THAT(read.out, HasSubstr("\nWeb/Forum|alice2|forum-2||2\n"));
}

TEST(CliInterop, whatQuillonWritesOpensInKeepassxcAndPykeepass)
{
    QUILLON_REQUIRE_PEER(pykeepassPython(), "pykeepass");
    QUILLON_REQUIRE_PEER(keepassxcCli(), "keepassxc-cli");

    TempDir dir;
    const auto db = (dir / "ours.kdbx").string();
    const auto created = cli({"create", "--password-stdin", "--cipher", "chacha20", "--kdf", "argon2id", "--memory",
                              "8", "--iterations", "3", "--parallelism", "2", db});
    ASSERT_EQ(created.exitCode, 0) << created.err;
    const auto again = cli({"create", "--password-stdin", db});
    EXPECT_EQ(again.exitCode, 1);
    EXPECT_THAT(again.err, HasSubstr("already exists"));

    writeFile(dir / "doc.txt", std::string_view("our attachment"));
    for (const auto& step : {
             cli({"mkdir", "--password-stdin", db, "Web"}),
             cli({"mkdir", "--password-stdin", db, "Old"}),
             cli({"add", "--password-stdin", "-u", "alice", "--url", "https://a.example", "-p", db, "Web/Site"},
                 stdinPassword + "site-secret\n"),
             cli({"add", "--password-stdin", "-g", "-L", "32", db, "Gone"}),
             cli({"edit", "--password-stdin", "--notes", "two words", "-p", db, "Web/Site"},
                 stdinPassword + "site-secret-2\n"),
             cli({"attachment-import", "--password-stdin", db, "Web/Site", "doc.txt", (dir / "doc.txt").string()}),
             cli({"mv", "--password-stdin", db, "Web/Site", "Old"}),
             cli({"rm", "--password-stdin", db, "Gone"}),
         })
        ASSERT_EQ(step.exitCode, 0) << step.err;

    const auto info = keepassxcOn("db-info", db, {});
    ASSERT_EQ(info.exitCode, 0) << info.err;
    EXPECT_THAT(info.out, HasSubstr("Cipher: ChaCha20 256-bit\n"));
    EXPECT_THAT(info.out, HasSubstr("KDF: Argon2id (3 rounds, 8192 KB)\n"));
    const auto shown = keepassxcOn("show", db, {}, {"Old/Site"}, {"-s", "-a", "Password", "-a", "Notes"});
    EXPECT_EQ(shown.out, "site-secret-2\ntwo words\n");
    const auto exported = keepassxcOn("attachment-export", db, {}, {"Old/Site", "doc.txt", "--stdout"});
    EXPECT_EQ(exported.out, "our attachment");

    const auto read = pykeepass(readScript, {db, password});
    ASSERT_EQ(read.exitCode, 0) << read.err;
    EXPECT_THAT(read.out, testing::StartsWith("chacha20 "));
    EXPECT_THAT(read.out, HasSubstr("\n['Old', 'Recycle Bin', 'Web']\n"));
    // One version from the edit, one from the attachment.
    EXPECT_THAT(read.out, HasSubstr("Old/Site|alice|site-secret-2|doc.txt=our attachment|2\n"));
    EXPECT_THAT(read.out, HasSubstr("\nRecycle Bin/Gone|"));

    // New credentials and settings; the old password no longer opens it, the new pair does, in both.
    const auto key = (dir / "new.keyx").string();
    ASSERT_EQ(cli({"keyfile-create", key}, {}).exitCode, 0);
    const auto edited = cli({"db-edit", "--password-stdin", "--set-password", "--set-key-file", key, "--cipher",
                             "aes256", "--kdf", "argon2d", "--memory", "9", "--history-max-items", "1", db},
                            stdinPassword + "changed\n");
    ASSERT_EQ(edited.exitCode, 0) << edited.err;
    EXPECT_EQ(keepassxcOn("ls", db, {}).exitCode, 1);
    const PeerCredentials both{"changed", key};
    const auto newInfo = keepassxcOn("db-info", db, both);
    ASSERT_EQ(newInfo.exitCode, 0) << newInfo.err;
    EXPECT_THAT(newInfo.out, HasSubstr("Cipher: AES 256-bit\n"));
    EXPECT_THAT(newInfo.out, HasSubstr("KDF: Argon2d (3 rounds, 9216 KB)\n"));
    // The new history limit applies from the entry's next change on.
    const auto reread = pykeepass(readScript, {db, "changed", key});
    ASSERT_EQ(reread.exitCode, 0) << reread.err;
    EXPECT_THAT(reread.out, testing::StartsWith("aes256 1\n"));
    EXPECT_THAT(reread.out, HasSubstr("Old/Site|alice|site-secret-2|doc.txt=our attachment|2\n"));
    const auto later = cli({"edit", "--password-stdin", "-k", key, "--notes", "three", db, "Old/Site"}, "changed\n");
    ASSERT_EQ(later.exitCode, 0) << later.err;
    EXPECT_THAT(pykeepass(readScript, {db, "changed", key}).out,
                HasSubstr("Old/Site|alice|site-secret-2|doc.txt=our attachment|1\n"));

    // A key file alone, as keepassxc-cli opens it with --no-password.
    const auto keyOnly = (dir / "keyonly.kdbx").string();
    ASSERT_EQ(cli({"create", "--no-password", "-k", key, "--memory", "8", "--iterations", "1", keyOnly}, {}).exitCode,
              0);
    ASSERT_EQ(cli({"mkdir", "--no-password", "-k", key, keyOnly, "Only"}, {}).exitCode, 0);
    const auto keyLs = keepassxcOn("ls", keyOnly, {std::nullopt, key});
    ASSERT_EQ(keyLs.exitCode, 0) << keyLs.err;
    EXPECT_THAT(keyLs.out, HasSubstr("Only/"));
    EXPECT_EQ(pykeepass(readScript, {keyOnly, "-", key}).exitCode, 0);
}

} // namespace
} // namespace quillon::test
