// Files edited by the model and saved here, read back by keepassxc-cli: the edits, their history, what
// the model left alone, and deletions that another program's merge (kdbxweb's) must honour.
#include "kdbx/KdbxFile.h"
#include "model/Document.h"
#include "model/Group.h"
#include "model/History.h"
#include "model/Moves.h"
#include "model/RecycleBin.h"
#include "tests/support/PeerDatabases.h"
#include "tests/support/Peers.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <sstream>
#include <utility>
#include <string>
#include <vector>

using namespace quillon;

namespace {

const test::PeerCredentials peer; // the helpers' default password
const std::string password = *peer.password;

std::optional<model::Entry> entryTitled(model::Document& doc, std::string_view title)
{
    for (const auto& e : doc.topGroup()->allEntries())
        if (e.title() == title)
            return e;
    return std::nullopt;
}

std::optional<model::Group> groupNamed(model::Document& doc, std::string_view name)
{
    for (const auto& g : doc.topGroup()->allGroups())
        if (g.name() == name)
            return g;
    return std::nullopt;
}

std::string field(pugi::xml_node entry, std::string_view key) { return test::field(entry, key, "(missing)"); }

// KeePassXC's own reading of the file, as plain XML.
void exportXml(const std::filesystem::path& db, pugi::xml_document& out)
{
    const auto exported = test::keepassxcOn("export", db, peer, {}, {"-f", "xml"});
    ASSERT_EQ(exported.exitCode, 0) << exported.err;
    ASSERT_TRUE(out.load_string(exported.out.c_str()));
}

// The titles of the entries and the names of the groups in KeePassXC's export, history versions left out.
std::vector<std::string> namesIn(const pugi::xml_document& xml)
{
    std::vector<std::string> names;
    for (const auto& n : xml.select_nodes("//Group/Name | //Entry[not(ancestor::History)]/String[Key='Title']/Value"))
        names.emplace_back(n.node().child_value());
    std::sort(names.begin(), names.end());
    return names;
}

// Tags, an auto-type sequence and a CustomData item: elements the model reads nothing of.
const char* decorate = R"PY(
import sys
from lxml import etree
from pykeepass import PyKeePass
kp = PyKeePass(sys.argv[1], password=sys.argv[2])
e = kp.find_entries(title='Mail', first=True)
e.tags = ['work', 'mail']
e.autotype_sequence = '{USERNAME}{TAB}{TAB}{PASSWORD}{ENTER}'
item = etree.SubElement(etree.SubElement(e._element, 'CustomData'), 'Item')
etree.SubElement(item, 'Key').text = 'peer.key'
etree.SubElement(item, 'Value').text = 'peer value'
kp.save()
)PY";

TEST(ModelInterop, keepassxcSeesEditsHistoryAndUntouchedElements)
{
    QUILLON_REQUIRE_PEER(test::keepassxcCli(), "keepassxc-cli");
    QUILLON_REQUIRE_PEER(test::pykeepassPython(), "pykeepass");
    test::TempDir tmp;
    const auto db = tmp / "edited.kdbx";
    test::PeerDatabase wanted;
    wanted.groups = {"Email", "Old"};
    wanted.entries = {{"Email", "Mail", "alice", "old-pw", "https://mail.example", "first notes", {{"Account", "A-1"}}},
                    {"", "Bank", "bob", "bank-pw", "https://bank.example", ""},
                    {"Old", "Stale", "carol", "stale-pw", "", ""}};
    const auto made = test::makePykeepassDatabase(db, wanted);
    ASSERT_EQ(made.exitCode, 0) << made.err;
    const auto decorated = test::pykeepass(decorate, {db.string(), password});
    ASSERT_EQ(decorated.exitCode, 0) << decorated.err;

    const auto file = kdbx::KdbxFile::open(test::readFile(db), test::passwordOnly(password));
    model::Document doc(file->document);
    auto mail = entryTitled(doc, "Mail");
    auto bank = entryTitled(doc, "Bank");
    auto stale = entryTitled(doc, "Stale");
    auto email = groupNamed(doc, "Email");
    ASSERT_TRUE(mail && bank && stale && email);
    const std::string mailUuid(mail->uuid());
    EXPECT_TRUE(model::editField(*mail, "Title", "Webmail"));
    EXPECT_TRUE(model::editField(*mail, "Password", "new-pw ✓"));
    EXPECT_FALSE(model::editField(*mail, "Password", "new-pw ✓"));
    doc.newEntry(*email, "Added ✓").setField("UserName", "dave", false);
    EXPECT_EQ(model::moveEntry(*bank, *email), model::MoveResult::moved);
    EXPECT_EQ(model::deleteEntry(*stale), model::DeleteResult::movedToBin);
    test::writeFile(db, file->save(test::passwordOnly(password)));

    pugi::xml_document theirs;
    ASSERT_NO_FATAL_FAILURE(exportXml(db, theirs));
    EXPECT_EQ(namesIn(theirs), (std::vector<std::string>{"Added ✓", "Bank", "Email", "Old", "Recycle Bin", "Root",
                                                         "Stale", "Webmail"}));
    EXPECT_TRUE(theirs.select_node("//Group[Name='Email']/Entry/String[Key='Password' and Value='bank-pw']"));
    EXPECT_TRUE(theirs.select_node("//Group[Name='Recycle Bin']/Entry/String[Key='UserName' and Value='carol']"));
    const auto found = theirs.select_nodes(("//Entry[UUID='" + mailUuid + "'][not(ancestor::History)]").c_str());
    ASSERT_EQ(found.size(), 1u);
    const auto entry = found.first().node();
    EXPECT_EQ(field(entry, "Title"), "Webmail");
    EXPECT_EQ(field(entry, "Password"), "new-pw ✓");
    EXPECT_EQ(field(entry, "UserName"), "alice");
    EXPECT_EQ(field(entry, "Account"), "A-1");
    // Oldest first: the state before the title edit, then the one before the password edit.
    std::vector<pugi::xml_node> versions;
    for (const auto v : entry.child("History").children("Entry"))
        versions.push_back(v);
    ASSERT_EQ(versions.size(), 2u);
    EXPECT_EQ(field(versions[0], "Title"), "Mail");
    EXPECT_EQ(field(versions[0], "Password"), "old-pw");
    EXPECT_EQ(field(versions[1], "Title"), "Webmail");
    EXPECT_EQ(field(versions[1], "Password"), "old-pw");
    for (const auto v : versions) {
        EXPECT_EQ(std::string(v.child_value("UUID")), mailUuid);
        EXPECT_FALSE(v.child("History"));
        EXPECT_EQ(std::string(v.child("AutoType").child_value("DefaultSequence")), "{USERNAME}{TAB}{TAB}{PASSWORD}{ENTER}");
    }
    const std::string tags = entry.child_value("Tags");
    EXPECT_NE(tags.find("work"), std::string::npos) << tags;
    EXPECT_NE(tags.find("mail"), std::string::npos) << tags;
    EXPECT_EQ(std::string(entry.child("AutoType").child_value("DefaultSequence")), "{USERNAME}{TAB}{TAB}{PASSWORD}{ENTER}");
    EXPECT_EQ(std::string(entry.select_node("CustomData/Item[Key='peer.key']/Value").node().child_value()), "peer value");
}

// A pykeepass database of which the model deletes the group Old (with Old/Inner, Alpha and Beta) and the
// entry Delta for good, through the bin; the file before the deletion is kept as the older copy.
struct Deletion {
    std::filesystem::path db, older;
    std::vector<std::string> removed; // UUIDs, sorted
};

void deleteForGood(const test::TempDir& tmp, Deletion& out)
{
    out.db = tmp / "deleted.kdbx";
    out.older = tmp / "older.kdbx";
    test::PeerDatabase wanted;
    wanted.groups = {"Old", "Old/Inner", "Keep"};
    wanted.entries = {{"Old", "Alpha", "a", "pa", "", ""},
                    {"Old/Inner", "Beta", "b", "pb", "", ""},
                    {"Keep", "Gamma", "c", "pc", "", ""},
                    {"", "Delta", "d", "pd", "", ""}};
    const auto made = test::makePykeepassDatabase(out.db, wanted);
    ASSERT_EQ(made.exitCode, 0) << made.err;
    std::filesystem::copy_file(out.db, out.older);

    const auto file = kdbx::KdbxFile::open(test::readFile(out.db), test::passwordOnly(password));
    model::Document doc(file->document);
    auto old = groupNamed(doc, "Old");
    auto delta = entryTitled(doc, "Delta");
    ASSERT_TRUE(old && delta);
    out.removed = {std::string(old->uuid()), std::string(delta->uuid())};
    for (const auto& g : old->allGroups())
        out.removed.emplace_back(g.uuid());
    for (const auto& e : old->allEntries())
        out.removed.emplace_back(e.uuid());
    ASSERT_EQ(out.removed.size(), 5u);
    std::sort(out.removed.begin(), out.removed.end());
    EXPECT_EQ(model::deleteGroup(*old), model::DeleteResult::movedToBin);
    EXPECT_EQ(model::deleteEntry(*delta), model::DeleteResult::movedToBin);
    EXPECT_EQ(model::emptyBin(doc), model::DeleteResult::deletedPermanently);
    test::writeFile(out.db, file->save(test::passwordOnly(password)));
}

// Groups and entries that the model deletes for good are gone for keepassxc-cli, and KeePassXC reads
// their deletion records as records (it writes them back in its own export). keepassxc-cli 2.7's merge
// applies no deletion records at all, not even its own, so its merge is not the check: kdbxweb's is, below.
TEST(ModelInterop, keepassxcReadsDeletionRecords)
{
    QUILLON_REQUIRE_PEER(test::keepassxcCli(), "keepassxc-cli");
    QUILLON_REQUIRE_PEER(test::pykeepassPython(), "pykeepass");
    test::TempDir tmp;
    Deletion d;
    ASSERT_NO_FATAL_FAILURE(deleteForGood(tmp, d));

    pugi::xml_document theirs;
    ASSERT_NO_FATAL_FAILURE(exportXml(d.db, theirs));
    EXPECT_EQ(namesIn(theirs), (std::vector<std::string>{"Gamma", "Keep", "Recycle Bin", "Root"}));
    std::vector<std::string> recorded;
    for (const auto record : theirs.child("KeePassFile").child("Root").child("DeletedObjects").children("DeletedObject")) {
        recorded.emplace_back(record.child_value("UUID"));
        EXPECT_TRUE(record.child("DeletionTime"));
    }
    std::sort(recorded.begin(), recorded.end());
    EXPECT_EQ(recorded, d.removed);
}

// Merges the second file into the first with kdbxweb and lists what is left: "item <path>" lines (groups
// end in "/"), then "deleted <uuid>" for each deletion record of the merged file.
const char* kdbxwebMerge = R"JS(
const fs = require('fs');
const kdbxweb = require('kdbxweb');
const { argon2d, argon2id } = require('hash-wasm');
kdbxweb.CryptoEngine.setArgon2Impl(async (password, salt, memory, iterations, length, parallelism, type) => {
  const out = await (type === 2 ? argon2id : argon2d)({ password: new Uint8Array(password),
      salt: new Uint8Array(salt), parallelism, iterations, memorySize: memory, hashLength: length,
      outputType: 'binary' });
  return out.buffer.slice(out.byteOffset, out.byteOffset + out.byteLength);
});
const [into, from, password] = process.argv.slice(1);
const load = (p) => kdbxweb.Kdbx.load(new Uint8Array(fs.readFileSync(p)).buffer,
    new kdbxweb.Credentials(kdbxweb.ProtectedValue.fromString(password)));
(async () => {
  const db = await load(into);
  db.merge(await load(from));
  // What a merge leaves is what the saved file holds: read it back.
  const merged = await kdbxweb.Kdbx.load(await db.save(), db.credentials);
  const walk = (g, path) => {
    for (const e of g.entries) console.log('item ' + path + e.fields.get('Title'));
    for (const c of g.groups) { console.log('item ' + path + c.name + '/'); walk(c, path + c.name + '/'); }
  };
  walk(merged.getDefaultGroup(), '');
  for (const d of merged.deletedObjects) console.log('deleted ' + d.uuid.id);
})().catch((e) => { console.error(String(e)); process.exit(1); });
)JS";

// The point of deletion records: another program that merges an older copy of the database, in either
// direction, must not bring back what was deleted, and keeps the records.
TEST(ModelInterop, kdbxwebMergeOfAnOlderCopyKeepsDeletedItemsGone)
{
    QUILLON_REQUIRE_PEER(test::kdbxwebModules(), "kdbxweb (scripts/install-deps)");
    QUILLON_REQUIRE_PEER(test::pykeepassPython(), "pykeepass");
    test::TempDir tmp;
    Deletion d;
    ASSERT_NO_FATAL_FAILURE(deleteForGood(tmp, d));

    for (const auto& [into, from] : {std::pair{d.db, d.older}, std::pair{d.older, d.db}}) {
        SCOPED_TRACE(into.filename().string() + " <- " + from.filename().string());
        const auto merged = test::kdbxweb(kdbxwebMerge, {into.string(), from.string(), password});
        ASSERT_EQ(merged.exitCode, 0) << merged.err;
        std::vector<std::string> items, records;
        std::istringstream lines(merged.out);
        for (std::string line; std::getline(lines, line);) {
            if (line.starts_with("item "))
                items.push_back(line.substr(5));
            else if (line.starts_with("deleted "))
                records.push_back(line.substr(8));
        }
        std::sort(items.begin(), items.end());
        EXPECT_EQ(items, (std::vector<std::string>{"Keep/", "Keep/Gamma", "Recycle Bin/"}));
        std::sort(records.begin(), records.end());
        EXPECT_EQ(records, d.removed);
    }
}

} // namespace
