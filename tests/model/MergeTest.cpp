// Comparing and merging two versions of a database: the rules one by one, then properties over random edit
// scripts.
#include "model/Attachments.h"
#include "model/Diff.h"
#include "model/History.h"
#include "model/Merge.h"
#include "model/Moves.h"
#include "model/RecycleBin.h"
#include "tests/model/EditScripts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

namespace quillon::model::test {
namespace {

MergeSummary mergeInto(Copy& mine, const Copy& theirs, const Copy* ancestor)
{
    const DocumentSide theirSide{theirs.doc()};
    if (!ancestor)
        return merge(mine.doc(), nullptr, theirSide, nullptr);
    const DocumentSide ancestorSide{ancestor->doc()};
    return merge(mine.doc(), nullptr, theirSide, &ancestorSide);
}

std::set<std::uint64_t> versionDigests(const ItemIndex& index, pugi::xml_node entry)
{
    std::set<std::uint64_t> out{index.entryDigest(entry)};
    for (const auto v : entry.child("History").children("Entry"))
        out.insert(index.entryDigest(v));
    return out;
}

// What a database holds, whatever the order of siblings and fields: each group and entry with its parent and
// content, each entry's history versions, and which UUIDs carry deletion records. The bin is "BIN" whatever
// its UUID.
std::string canonical(const Copy& copy)
{
    const ItemIndex index(DocumentSide{copy.doc()});
    auto name = [&](const std::string& uuid) { return uuid == index.bin && !uuid.empty() ? std::string("BIN") : uuid; };
    std::vector<std::string> lines;
    for (const auto& [uuid, r] : index.groups)
        lines.push_back("G " + name(uuid) + " in " + name(r.parent) + " " + std::to_string(r.digest));
    for (const auto& [uuid, r] : index.entries) {
        std::vector<std::string> history;
        for (const auto v : r.element.child("History").children("Entry")) {
            const auto key = versionKey(index, v);
            history.push_back(std::to_string(key.modified) + ":" + std::to_string(key.digest));
        }
        std::sort(history.begin(), history.end());
        std::string line = "E " + uuid + " in " + name(r.parent) + " " + std::to_string(r.digest) + " h";
        for (const auto& h : history)
            line += " " + h;
        lines.push_back(line);
    }
    for (const auto& [uuid, when] : index.deletions)
        lines.push_back("D " + uuid);
    std::sort(lines.begin(), lines.end());
    std::string out;
    for (const auto& l : lines)
        out += l + "\n";
    return out;
}

TEST(Diff, namesEachChangeAndShowsProtectedTextOnlyWhenAsked)
{
    TickingClock clock;
    Copy before(baseXml, clock);
    auto mail = before.newGroup(before.top(), "mail");
    auto work = before.newGroup(before.top(), "work");
    before.newEntry(before.top(), "bank");
    before.entry("bank").setField("Password", "old-secret", true);
    before.newEntry(mail, "inbox");
    before.newEntry(mail, "gone");
    before.newEntry(work, "wiki");
    Copy after(before);
    ASSERT_TRUE(diff(DocumentSide{before.doc()}, DocumentSide{after.doc()}).empty());

    std::vector<kdbx::InnerBinary> pool;
    pool.push_back({0, kdbx::SecureBytes::fromText("attached")});
    editField(after.entry("bank"), "UserName", "alice");
    editField(after.entry("bank"), "Password", "new-secret");
    after.entry("bank").setField("otp", "otpauth://totp/x?secret=JBSWY3DPEHPK3PXP", true);
    after.entry("bank").setExpiry(Time(std::chrono::seconds(2'000'000'000)));
    setAttachment(after.entry("bank"), "a.txt", 0);
    moveEntry(after.entry("inbox"), after.group("work"));
    deletePermanently(after.entry("gone"));
    after.group("work").rename("Job");
    after.newEntry(after.group("mail"), "new");
    after.doc().setMetaText("DatabaseName", "Renamed");

    const auto d = diff(DocumentSide{before.doc()}, DocumentSide{after.doc(), &pool});
    ASSERT_EQ(d.groups.size(), 1u);
    EXPECT_TRUE(d.groups[0].renamed);
    EXPECT_EQ(d.groups[0].oldName, "work");
    EXPECT_EQ(d.groups[0].name, "Job");
    ASSERT_EQ(d.settings.size(), 1u);
    EXPECT_EQ(d.settings[0].name, "DatabaseName");
    EXPECT_EQ(d.settings[0].after, "Renamed");

    std::map<std::string, const EntryChange*> byTitle;
    for (const auto& e : d.entries)
        byTitle[e.title] = &e;
    ASSERT_EQ(d.entries.size(), 4u);
    EXPECT_EQ(byTitle.at("new")->change, ItemChange::added);
    EXPECT_EQ(byTitle.at("new")->path, "mail");
    const auto& gone = *byTitle.at("gone");
    EXPECT_EQ(gone.change, ItemChange::removed);
    EXPECT_TRUE(gone.deletedAt.has_value());
    const auto& inbox = *byTitle.at("inbox");
    EXPECT_TRUE(inbox.moved);
    EXPECT_EQ(inbox.movedFrom, "mail");
    EXPECT_EQ(inbox.path, "Job");
    EXPECT_TRUE(inbox.fields.empty());

    const auto& b = *byTitle.at("bank");
    EXPECT_TRUE(b.oneTimeChanged);
    EXPECT_TRUE(b.expiryChanged);
    EXPECT_EQ(b.attachmentsAdded, std::vector<std::string>{"a.txt"});
    EXPECT_EQ(b.historyAdded, 1u); // the first version is the state before, not new
    ASSERT_EQ(b.fields.size(), 2u);
    for (const auto& f : b.fields) {
        if (f.name == "UserName") {
            EXPECT_FALSE(f.isProtected);
            ASSERT_TRUE(f.after);
            EXPECT_EQ(f.after->view(), "alice");
        } else {
            EXPECT_EQ(f.name, "Password");
            EXPECT_TRUE(f.isProtected);
            EXPECT_FALSE(f.before || f.after);
        }
    }
    const auto revealed = diff(DocumentSide{before.doc()}, DocumentSide{after.doc(), &pool}, {true});
    for (const auto& e : revealed.entries)
        for (const auto& f : e.fields)
            if (f.name == "Password") {
                EXPECT_EQ(f.before->view(), "old-secret");
                EXPECT_EQ(f.after->view(), "new-secret");
            }
}

TEST(Merge, oneSidedChangesAreTakenAndAConflictKeepsBothVersions)
{
    TickingClock clock;
    Copy ancestor(baseXml, clock);
    for (const auto* tag : {"e1", "e2", "e3"})
        ancestor.newEntry(ancestor.top(), tag);
    Copy mine(ancestor);
    Copy theirs(ancestor);
    editField(mine.entry("e1"), "Password", "mine");
    editField(theirs.entry("e2"), "UserName", "theirs");
    editField(theirs.entry("e1"), "Password", "theirs"); // later: current
    editField(mine.entry("e3"), "Notes", "same");
    editField(theirs.entry("e3"), "Notes", "same");

    const auto summary = mergeInto(mine, theirs, &ancestor);
    EXPECT_EQ(summary.conflicts, 1u);
    EXPECT_EQ(summary.entriesUpdated, 1u);
    EXPECT_EQ(mine.entry("e1").password(), "theirs");
    std::vector<std::string> passwords;
    for (const auto& v : mine.entry("e1").history())
        passwords.emplace_back(v.password());
    EXPECT_EQ(passwords, (std::vector<std::string>{"", "mine"}));
    EXPECT_EQ(mine.entry("e2").userName(), "theirs");
    EXPECT_EQ(mine.entry("e3").notes(), "same");
    EXPECT_EQ(mine.entry("e3").history().size(), 1u);
}

TEST(Merge, deletionsWinOverUnchangedItemsButNotOverLaterChanges)
{
    TickingClock clock;
    Copy ancestor(baseXml, clock);
    auto g = ancestor.newGroup(ancestor.top(), "g");
    for (const auto* tag : {"plain", "editedLater", "editedBefore"})
        ancestor.newEntry(ancestor.top(), tag);
    ancestor.newEntry(g, "inG");
    Copy mine(ancestor);
    Copy theirs(ancestor);
    editField(theirs.entry("editedBefore"), "Notes", "early");
    deletePermanently(mine.entry("plain"));
    deletePermanently(mine.entry("editedLater"));
    deletePermanently(mine.entry("editedBefore"));
    deletePermanently(theirs.group("g"));
    editField(theirs.entry("editedLater"), "Notes", "late");

    const auto summary = mergeInto(mine, theirs, &ancestor);
    EXPECT_FALSE(mine.has("plain"));
    EXPECT_FALSE(mine.has("editedBefore"));
    EXPECT_FALSE(mine.has("inG"));
    EXPECT_FALSE(mine.doc().findGroup(uuidOf("g")));
    ASSERT_TRUE(mine.has("editedLater"));
    EXPECT_EQ(mine.entry("editedLater").notes(), "late");
    EXPECT_EQ(summary.entriesKept, 1u);
    // Both sides' records: ours for the entries, theirs for the group and its entry.
    const ItemIndex index(DocumentSide{mine.doc()});
    for (const auto* tag : {"plain", "editedLater", "editedBefore", "g", "inG"})
        EXPECT_TRUE(index.deletions.contains(uuidOf(tag))) << tag;
}

TEST(Merge, movesAndEditsBothApplyAndOrphansLandInTheBin)
{
    TickingClock clock;
    Copy ancestor(baseXml, clock);
    ancestor.newGroup(ancestor.top(), "a");
    ancestor.newGroup(ancestor.top(), "doomed");
    ancestor.newEntry(ancestor.top(), "e1");
    ancestor.newEntry(ancestor.top(), "e2");
    Copy mine(ancestor);
    Copy theirs(ancestor);
    moveEntry(mine.entry("e1"), mine.group("a"));
    editField(theirs.entry("e1"), "UserName", "edited");
    moveEntry(mine.entry("e2"), mine.group("doomed"));
    mine.newEntry(mine.group("doomed"), "new");
    deletePermanently(theirs.group("doomed"));

    const auto summary = mergeInto(mine, theirs, &ancestor);
    EXPECT_EQ(mine.entry("e1").parent()->uuid(), uuidOf("a"));
    EXPECT_EQ(mine.entry("e1").userName(), "edited");
    EXPECT_EQ(mine.entry("e2").parent()->uuid(), uuidOf("bin"));
    EXPECT_EQ(mine.entry("new").parent()->uuid(), uuidOf("bin"));
    EXPECT_FALSE(mine.doc().findGroup(uuidOf("doomed")));
    EXPECT_EQ(summary.intoBin, 2u);
}

TEST(Merge, historiesJoinByTimeWithoutDuplicatesWithinTheLimit)
{
    TickingClock clock;
    Copy ancestor(baseXml, clock);
    ancestor.doc().setHistoryMaxItems(4);
    ancestor.newEntry(ancestor.top(), "e");
    editField(ancestor.entry("e"), "Notes", "0");
    Copy mine(ancestor);
    Copy theirs(ancestor);
    editField(mine.entry("e"), "Notes", "m1");
    editField(theirs.entry("e"), "Notes", "t1");
    editField(mine.entry("e"), "Notes", "m2");
    editField(theirs.entry("e"), "Notes", "t2");
    editField(theirs.entry("e"), "Notes", "t3");

    mergeInto(mine, theirs, &ancestor);
    std::vector<std::string> notes;
    for (const auto& v : mine.entry("e").history())
        notes.emplace_back(v.notes());
    EXPECT_EQ(mine.entry("e").notes(), "t3");
    EXPECT_EQ(notes, (std::vector<std::string>{"m1", "t1", "m2", "t2"}));
}

TEST(Merge, theirNewBinBecomesOursWhenWeHadNone)
{
    TickingClock clock;
    std::string noBin = baseXml;
    noBin.replace(noBin.find("<RecycleBinUUID>@bin@</RecycleBinUUID>"), 38, "");
    Copy ancestor(noBin, clock);
    deletePermanently(ancestor.group("bin"));
    ancestor.newEntry(ancestor.top(), "e");
    Copy mine(ancestor);
    Copy theirs(ancestor);
    ASSERT_EQ(deleteEntry(theirs.entry("e")), DeleteResult::movedToBin);

    mergeInto(mine, theirs, &ancestor);
    const auto bin = findBin(mine.doc());
    ASSERT_TRUE(bin);
    EXPECT_EQ(mine.entry("e").parent()->uuid(), bin->uuid());
    EXPECT_EQ(canonical(mine), canonical(theirs));
}

TEST(Merge, withoutAncestorTheLaterVersionWinsAndDeletionRecordsDecide)
{
    TickingClock clock;
    Copy base(baseXml, clock);
    base.newEntry(base.top(), "shared");
    base.newEntry(base.top(), "deletedThere");
    Copy mine(base);
    Copy theirs(base);
    editField(theirs.entry("shared"), "URL", "https://later.example");
    mine.newEntry(mine.top(), "onlyMine");
    theirs.newEntry(theirs.top(), "onlyTheirs");
    deletePermanently(theirs.entry("deletedThere"));

    mergeInto(mine, theirs, nullptr);
    EXPECT_EQ(mine.entry("shared").url(), "https://later.example");
    EXPECT_TRUE(mine.has("onlyMine"));
    EXPECT_TRUE(mine.has("onlyTheirs"));
    EXPECT_FALSE(mine.has("deletedThere"));
}

// Random scripts never edit two copies in the same second; here both change an entry at the same instant, and the
// tie must go the same way whichever copy is mine.
TEST(Merge, aTieInTimeGoesTheSameWayFromEitherSide)
{
    TickingClock clock;
    Copy ancestor(baseXml, clock);
    ancestor.newEntry(ancestor.top(), "e");
    Copy mine(ancestor);
    Copy theirs(ancestor);
    editField(mine.entry("e"), "Notes", "mine");
    editField(theirs.entry("e"), "Notes", "theirs");
    const auto modified = [](const Copy& c) {
        return c.entry("e").element().child("Times").child("LastModificationTime");
    };
    modified(theirs).text().set(modified(mine).text().get());

    Copy result(mine);
    mergeInto(result, theirs, &ancestor);
    Copy swapped(theirs);
    mergeInto(swapped, mine, &ancestor);
    EXPECT_EQ(canonical(result), canonical(swapped));
}

TEST(Merge, propertiesHoldOverRandomEditScripts)
{
    for (std::uint32_t seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        TickingClock clock;
        const auto copies = editApart(seed, clock);
        const Copy& ancestor = *copies.ancestor;
        const Copy& mine = *copies.mine;
        const Copy& theirs = *copies.theirs;

        {
            Copy self(mine);
            const auto summary = mergeInto(self, Copy(mine), &mine);
            ASSERT_EQ(self.text(), mine.text());
            ASSERT_FALSE(summary.changed());
        }
        {
            Copy fromAncestor(ancestor);
            mergeInto(fromAncestor, theirs, &ancestor);
            ASSERT_EQ(canonical(fromAncestor), canonical(theirs));
            Copy untouched(mine);
            mergeInto(untouched, ancestor, &ancestor);
            ASSERT_EQ(canonical(untouched), canonical(mine));
        }
        Copy result(mine);
        mergeInto(result, theirs, &ancestor);
        Copy swapped(theirs);
        mergeInto(swapped, mine, &ancestor);
        ASSERT_EQ(canonical(result), canonical(swapped));

        const ItemIndex merged(DocumentSide{result.doc()});
        for (const auto* side : {&mine, &theirs}) {
            const ItemIndex index(DocumentSide{side->doc()});
            for (const auto& [uuid, record] : index.entries) {
                const auto it = merged.entries.find(uuid);
                if (it == merged.entries.end()) {
                    ASSERT_TRUE(merged.deletions.contains(uuid)) << "lost without a record: " << uuid;
                    continue;
                }
                const auto kept = versionDigests(merged, it->second.element);
                for (const auto d : versionDigests(index, record.element))
                    ASSERT_TRUE(kept.contains(d)) << "a version of " << uuid << " was lost";
            }
        }
    }
}

} // namespace
} // namespace quillon::model::test
