// Whole files, both directions: what the peers write opens here, what we write opens there, unchanged.
#include "app/DemoDatabase.h"
#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"
#include "kdbx/KdbxFile.h"
#include "kdbx/KeyFile.h"
#include "tests/support/PeerDatabases.h"
#include "tests/support/Peers.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace quillon;
using quillon::test::field;

namespace {

// One line per entry (history versions excluded), sorted by UUID, every text as hex of its UTF-8 bytes so
// the two sides compare byte for byte: uuid|group path|title|user|password|url|notes|custom|history|attachments.
const char* pykeepassDump = R"PY(
import sys, base64, hashlib
from pykeepass import PyKeePass
path, pw, kf = sys.argv[1], sys.argv[2], sys.argv[3]
kp = PyKeePass(path, password=None if pw == '-' else pw, keyfile=None if kf == '-' else kf)
h = lambda s: (s or '').encode('utf-8').hex()
lines = []
for e in kp.entries:
    standard = ('Title', 'UserName', 'Password', 'URL', 'Notes')
    strings = [(s.findtext('Key'), s.findtext('Value')) for s in e._element.findall('String')]
    custom = ';'.join(sorted(h(k) + '=' + h(v) for k, v in strings if k not in standard))
    att = ';'.join(sorted(h(a.filename) + ':' + hashlib.sha256(a.data).hexdigest() for a in e.attachments))
    lines.append('|'.join([base64.b64encode(e.uuid.bytes).decode(), h('/'.join(p for p in e.group.path if p)),
                           h(e.title), h(e.username), h(e.password), h(e.url), h(e.notes), custom,
                           str(len(e.history)), att]))
print('\n'.join(sorted(lines)))
)PY";

std::string hex(std::string_view s)
{
    return kdbx::hexEncode(kdbx::ByteView(reinterpret_cast<const std::uint8_t*>(s.data()), s.size()));
}

std::string quillonDump(const kdbx::KdbxFile& file)
{
    static const char* standard[] = {"Title", "UserName", "Password", "URL", "Notes"};
    std::vector<std::string> lines;
    const pugi::xml_node top = file.document.child("KeePassFile").child("Root").child("Group");
    for (pugi::xpath_node n : file.document.select_nodes("//Entry[not(ancestor::History)]")) {
        const pugi::xml_node e = n.node();
        std::vector<std::string> names;
        for (pugi::xml_node g = e.parent(); g && g != top; g = g.parent())
            names.insert(names.begin(), g.child_value("Name"));
        std::string path;
        for (const auto& name : names)
            path += (path.empty() ? "" : "/") + name;
        std::vector<std::string> custom;
        for (pugi::xml_node s : e.children("String")) {
            const std::string key = s.child_value("Key");
            if (std::find(std::begin(standard), std::end(standard), key) == std::end(standard))
                custom.push_back(hex(key) + "=" + hex(s.child_value("Value")));
        }
        std::sort(custom.begin(), custom.end());
        std::vector<std::string> attachments;
        for (pugi::xml_node b : e.children("Binary")) {
            const auto ref = b.child("Value").attribute("Ref").as_uint();
            const auto digest = kdbx::sha256(file.inner.binaries.at(ref).data.span());
            attachments.push_back(hex(b.child_value("Key")) + ":" + kdbx::hexEncode(digest));
        }
        std::sort(attachments.begin(), attachments.end());
        auto join = [](const std::vector<std::string>& v) {
            std::string out;
            for (const auto& s : v)
                out += (out.empty() ? "" : ";") + s;
            return out;
        };
        lines.push_back(std::string(e.child_value("UUID")) + "|" + hex(path) + "|" + hex(field(e, "Title")) + "|" +
                        hex(field(e, "UserName")) + "|" + hex(field(e, "Password")) + "|" + hex(field(e, "URL")) +
                        "|" + hex(field(e, "Notes")) + "|" + join(custom) + "|" +
                        std::to_string(e.child("History").select_nodes("Entry").size()) + "|" + join(attachments));
    }
    std::sort(lines.begin(), lines.end());
    std::string out;
    for (const auto& l : lines)
        out += (out.empty() ? "" : "\n") + l;
    return out + "\n";
}

std::string peerDump(const std::filesystem::path& db, const std::string& password, const std::string& keyFile)
{
    const auto r = test::pykeepass(pykeepassDump, {db.string(), password, keyFile});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    return r.out;
}

test::PeerCredentials peerCredentials(const std::string& password, const std::string& keyFile)
{
    test::PeerCredentials c;
    c.password = password == "-" ? std::nullopt : std::optional<std::string>(password);
    if (keyFile != "-")
        c.keyFile = keyFile;
    return c;
}

kdbx::Credentials credentials(const std::string& password, const std::string& keyFile)
{
    kdbx::Credentials c;
    if (password != "-")
        c.password = kdbx::SecureBytes::fromText(password);
    if (keyFile != "-")
        c.keyFile = kdbx::SecureBytes::from(test::readFile(keyFile));
    return c;
}

void expectVerifyIdentical(const std::filesystem::path& db, const std::string& password)
{
    const auto r = test::run({std::string(QUILLON_BINARY_DIR) + "/app/quillon", "--verify", db.string(), password});
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("round-trip: XML identical"), std::string::npos) << r.out;
}

struct Config {
    const char* name;
    kdbx::Identifier cipher;
    kdbx::Identifier kdf;
    bool compressed;
    bool password;
    bool keyFile;
};

class QuillonWrites : public testing::TestWithParam<Config> {};

TEST_P(QuillonWrites, peersReadTheSameContent)
{
    QUILLON_REQUIRE_PEER(test::keepassxcCli(), "keepassxc-cli");
    QUILLON_REQUIRE_PEER(test::pykeepassPython(), "pykeepass");
    const Config& c = GetParam();
    test::TempDir tmp;
    const std::string password = c.password ? "pässword ✓" : "-";
    std::string keyFile = "-";
    if (c.keyFile) {
        keyFile = (tmp / "key.keyx").string();
        test::writeFile(keyFile, kdbx::generateKeyFile().span());
    }
    auto file = app::makeDemoDatabase();
    file->header.cipher.assign(c.cipher.begin(), c.cipher.end());
    file->header.compressed = c.compressed;
    file->header.kdf.entries["$UUID"] = std::vector<std::uint8_t>(c.kdf.begin(), c.kdf.end());
    file->header.kdf.entries["M"] = std::uint64_t{1} << 20;
    file->header.kdf.entries["I"] = std::uint64_t{2};
    const auto db = tmp / "quillon.kdbx";
    test::writeFile(db, file->save(credentials(password, keyFile)));

    EXPECT_EQ(peerDump(db, password, keyFile), quillonDump(*file));

    // KeePassXC's own XML export of our file, compared entry by entry with our document.
    const auto exported = test::keepassxcOn("export", db, peerCredentials(password, keyFile), {}, {"-f", "xml"});
    ASSERT_EQ(exported.exitCode, 0) << exported.err;
    pugi::xml_document theirs;
    ASSERT_TRUE(theirs.load_string(exported.out.c_str()));
    for (pugi::xpath_node n : file->document.select_nodes("//Entry[not(ancestor::History)]")) {
        const std::string uuid = n.node().child_value("UUID");
        const auto match = theirs.select_nodes(("//Entry[UUID='" + uuid + "'][not(ancestor::History)]").c_str());
        ASSERT_EQ(match.size(), 1u) << uuid;
        const pugi::xml_node other = match.first().node();
        for (pugi::xml_node s : n.node().children("String"))
            EXPECT_EQ(field(other, s.child_value("Key")), std::string(s.child_value("Value"))) << s.child_value("Key");
        EXPECT_EQ(other.child("History").select_nodes("Entry").size(), n.node().child("History").select_nodes("Entry").size());
    }
    if (c.password && !c.keyFile)
        expectVerifyIdentical(db, password);
}

INSTANTIATE_TEST_SUITE_P(Interop, QuillonWrites,
                         testing::Values(Config{"aesArgon2idGzipPassword", kdbx::cipherAes256, kdbx::kdfArgon2id, true, true, false},
                                         Config{"chachaArgon2dPlainPassword", kdbx::cipherChaCha20, kdbx::kdfArgon2d, false, true, false},
                                         Config{"aesArgon2dPlainKeyFile", kdbx::cipherAes256, kdbx::kdfArgon2d, false, false, true},
                                         Config{"chachaArgon2idGzipBoth", kdbx::cipherChaCha20, kdbx::kdfArgon2id, true, true, true}),
                         [](const auto& row) { return std::string(row.param.name); });

const char* pykeepassMake = R"PY(
import sys
from pykeepass import create_database
db = create_database(sys.argv[1], password='pw')
work = db.add_group(db.root_group, 'Work')
servers = db.add_group(work, 'Servers')
mail = db.add_entry(work, 'Mail', 'alice', 'first', url='https://mail.example', notes='line one\nline two')
mail.set_custom_property('PIN', '4242')
mail._element.find("String[Key='PIN']/Value").set('Protected', 'True')
mail.set_custom_property('Note é漢字', 'ß visible')
mail.add_attachment(db.add_binary(b'\x00\x01 binary attachment \xff'), 'blob.bin')
mail.save_history()
mail.password = 'second'
db.add_entry(servers, 'Router', 'admin', 'r0uter!', tags=['net'])
db.save()
)PY";

TEST(PeersWrite, quillonReadsWhatPykeepassAndKeepassxcWrote)
{
    QUILLON_REQUIRE_PEER(test::keepassxcCli(), "keepassxc-cli");
    QUILLON_REQUIRE_PEER(test::pykeepassPython(), "pykeepass");
    test::TempDir tmp;
    const auto db = tmp / "peer.kdbx";
    const auto made = test::pykeepass(pykeepassMake, {db.string()});
    ASSERT_EQ(made.exitCode, 0) << made.err;
    expectVerifyIdentical(db, "pw");

    test::writeFile(tmp / "notes.txt", std::string_view("attached by keepassxc\n"));
    const auto key = (tmp / "new.keyx").string();
    const std::vector<std::pair<std::vector<std::string>, std::string>> steps = {
        {{"add", "-q", "-u", "bob", "--url", "https://new.example", "-p", db.string(), "Work/New"}, "pw\nentry-pw\n"},
        {{"edit", "-q", "-t", "Renamed", db.string(), "Work/New"}, "pw\n"},
        {{"attachment-import", "-q", db.string(), "Work/Renamed", "notes.txt", (tmp / "notes.txt").string()}, "pw\n"},
    };
    for (const auto& [args, input] : steps) {
        const auto r = test::keepassxc(args, input);
        ASSERT_EQ(r.exitCode, 0) << args[0] << ": " << r.err;
    }
    expectVerifyIdentical(db, "pw");
    auto opened = kdbx::KdbxFile::open(test::readFile(db), credentials("pw", "-"));
    EXPECT_EQ(quillonDump(*opened), peerDump(db, "pw", "-"));

    // Re-keyed by keepassxc-cli: a new key file, then a new password.
    ASSERT_EQ(test::keepassxc({"db-edit", "-q", "--set-key-file", key, db.string()}, "pw\n").exitCode, 0);
    ASSERT_EQ(test::keepassxc({"db-edit", "-q", "-k", key, "-p", db.string()}, "pw\nnew pw\nnew pw\n").exitCode, 0);
    auto rekeyed = kdbx::KdbxFile::open(test::readFile(db), credentials("new pw", key));
    const std::string dump = quillonDump(*rekeyed);
    EXPECT_EQ(dump, peerDump(db, "new pw", key));
    EXPECT_NE(dump.find("|1|"), std::string::npos) << "history kept";
    EXPECT_EQ(dump, quillonDump(*opened));
    EXPECT_THROW(kdbx::KdbxFile::open(test::readFile(db), credentials("new pw", "-")), kdbx::KdbxError);
}

TEST(PeersWrite, keepassxcCreatedKdbx3IsRefusedWithTheConversionMessage)
{
    QUILLON_REQUIRE_PEER(test::keepassxcCli(), "keepassxc-cli");
    test::TempDir tmp;
    const auto db = tmp / "kx.kdbx";
    const auto made = test::keepassxc({"db-create", "-q", "-p", db.string()}, "pw\npw\n");
    ASSERT_EQ(made.exitCode, 0) << made.err;
    const auto r = test::run({std::string(QUILLON_BINARY_DIR) + "/app/quillon", "--verify", db.string(), "pw"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out.rfind("failed: This is a KDBX 3.1 database, and Quillon opens KDBX 4 only.", 0), 0u) << r.out;
}

} // namespace
