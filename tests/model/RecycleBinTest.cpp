#include "model/History.h"
#include "model/Moves.h"
#include "model/RecycleBin.h"
#include "tests/model/ModelFixture.h"

#include <gmock/gmock.h>

using namespace quillon::model;
using namespace quillon::model::test;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAreArray;

namespace {

class RecycleBinTest : public ModelFixture {
protected:
    // (UUID, DeletionTime) of every deletion record, in order.
    std::vector<std::pair<std::string, std::optional<Time>>> records() const
    {
        std::vector<std::pair<std::string, std::optional<Time>>> out;
        for (const auto r : doc().root().child("DeletedObjects").children("DeletedObject")) {
            EXPECT_STREQ(r.first_child().name(), "UUID");
            out.emplace_back(r.child("UUID").text().get(), readTime(r.child("DeletionTime").text().get()));
        }
        return out;
    }
};

TEST_F(RecycleBinTest, firstDeleteMakesTheBin)
{
    EXPECT_EQ(findBin(doc()), std::nullopt);
    advanceClock(5);
    EXPECT_EQ(deleteEntry(entry("mail")), DeleteResult::movedToBin);
    const auto bin = findBin(doc());
    ASSERT_TRUE(bin);
    EXPECT_EQ(bin->name(), "Recycle Bin");
    EXPECT_EQ(bin->iconId(), 43);
    EXPECT_EQ(bin->enableSearching(), false);
    EXPECT_STREQ(bin->element().child("EnableAutoType").text().get(), "False");
    EXPECT_EQ(bin->parent()->element(), doc().topGroup()->element());
    EXPECT_EQ(bin->element().parent().last_child(), bin->element());
    EXPECT_EQ(doc().metaText("RecycleBinUUID"), bin->uuid());
    EXPECT_EQ(readTime(*doc().metaText("RecycleBinChanged")), fixedTime(5));

    const Entry mail = entry("mail");
    EXPECT_EQ(mail.parent()->element(), bin->element());
    EXPECT_EQ(mail.previousParentGroup(), uuidOf("email"));
    EXPECT_EQ(mail.locationChanged(), fixedTime(5));
    EXPECT_TRUE(records().empty());

    // A second delete removes it for good with one record.
    advanceClock(5);
    EXPECT_EQ(deleteEntry(mail), DeleteResult::deletedPermanently);
    EXPECT_EQ(doc().findEntry(uuidOf("mail")), std::nullopt);
    EXPECT_THAT(records(), ElementsAre(std::pair{uuidOf("mail"), std::optional(fixedTime(10))}));
}

TEST_F(RecycleBinTest, binOffInAnyCaseDeletesAtOnce)
{
    for (const char* off : {"False", "FALSE", "false"}) {
        load(sampleXml);
        doc().setMetaText("RecycleBinEnabled", off);
        EXPECT_FALSE(isBinEnabled(doc()));
        EXPECT_EQ(deleteEntry(entry("bank")), DeleteResult::deletedPermanently) << off;
        EXPECT_EQ(deleteGroup(group("email")), DeleteResult::deletedPermanently) << off;
        EXPECT_EQ(findBin(doc()), std::nullopt) << off;
        EXPECT_EQ(records().size(), 3u) << off;
    }
    for (const char* on : {"True", "no", ""}) {
        load(sampleXml);
        doc().setMetaText("RecycleBinEnabled", on);
        EXPECT_TRUE(isBinEnabled(doc())) << on;
    }
}

TEST_F(RecycleBinTest, aGroupDeletedForGoodRecordsEveryItemButNoVersions)
{
    editField(entry("wiki"), "Title", "Wiki 2"); // a version with the same UUID
    doc().newEntry(group("work"), "Direct");
    EXPECT_EQ(deleteGroup(group("work")), DeleteResult::movedToBin);
    EXPECT_TRUE(records().empty());
    const Group work = group("work");
    std::vector<std::string> expected{std::string(work.uuid()), uuidOf("projects"), uuidOf("wiki")};
    expected.emplace_back(work.entries()[0].uuid());

    EXPECT_EQ(deleteGroup(work), DeleteResult::deletedPermanently);
    std::vector<std::string> recorded;
    for (const auto& [uuid, when] : records()) {
        recorded.push_back(uuid);
        EXPECT_EQ(when, fixedTime());
    }
    EXPECT_THAT(recorded, UnorderedElementsAreArray(expected));
    EXPECT_EQ(doc().findGroup(uuidOf("projects")), std::nullopt);
}

TEST_F(RecycleBinTest, refusalsLeaveTheTreeAlone)
{
    const Group bin = *findOrMakeBin(doc());
    const Group holder = doc().newGroup(group("work"), "Holder");
    EXPECT_EQ(moveGroup(bin, holder), MoveResult::refused); // the bin cannot be moved by a drop...
    // ...but a file may still have it below another group.
    holder.element().append_move(bin.element());
    const std::string before = serialise(xml);
    const struct {
        Group group;
        DeleteResult result;
        std::string_view text;
    } rows[] = {
        {*doc().topGroup(), DeleteResult::refusedTopGroup, "The top-level group can't be deleted."},
        {group("work"), DeleteResult::refusedHoldsBin, "That group holds the Recycle Bin, so it can't be deleted."},
        {holder, DeleteResult::refusedHoldsBin, "That group holds the Recycle Bin, so it can't be deleted."},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(deleteGroup(row.group), row.result) << row.text;
        EXPECT_EQ(refusalText(row.result), row.text);
        EXPECT_EQ(serialise(xml), before) << row.text;
    }
    EXPECT_EQ(emptyBin(doc()), DeleteResult::refusedAlreadyEmpty);
    EXPECT_EQ(refusalText(DeleteResult::refusedAlreadyEmpty), "The Recycle Bin is already empty.");
    EXPECT_EQ(serialise(xml), before);
    EXPECT_EQ(refusalText(DeleteResult::movedToBin), "");
}

TEST_F(RecycleBinTest, emptyingTheBinKeepsItAndOrphansNothing)
{
    deleteEntry(entry("bank"));
    deleteGroup(group("work"));
    const Group bin = *findBin(doc());
    EXPECT_EQ(emptyBin(doc()), DeleteResult::deletedPermanently);
    EXPECT_EQ(findBin(doc())->element(), bin.element());
    EXPECT_FALSE(bin.element().child("Entry"));
    EXPECT_FALSE(bin.element().child("Group"));
    for (const char* tag : {"bank", "wiki"})
        EXPECT_EQ(doc().findEntry(uuidOf(tag)), std::nullopt) << tag;
    EXPECT_EQ(records().size(), 4u); // bank, work, projects, wiki
    // Nothing left anywhere refers to a removed item.
    const std::string text = serialise(xml);
    EXPECT_EQ(text.find("Bank login"), std::string::npos);
    EXPECT_EQ(text.find("Wiki"), std::string::npos);
    // Deleting the bin group itself also only empties it.
    deleteEntry(entry("mail"));
    EXPECT_EQ(deleteGroup(bin), DeleteResult::deletedPermanently);
    EXPECT_EQ(findBin(doc())->element(), bin.element());
    EXPECT_EQ(records().size(), 5u);
}

TEST_F(RecycleBinTest, restoreGoesBackOrToTheTop)
{
    const Group top = *doc().topGroup();
    deleteEntry(entry("mail"));
    advanceClock(7);
    EXPECT_TRUE(restore(entry("mail")));
    EXPECT_EQ(entry("mail").parent()->name(), "Email");
    EXPECT_FALSE(entry("mail").element().child("PreviousParentGroup"));
    EXPECT_EQ(entry("mail").locationChanged(), fixedTime(7));

    // Previous group gone.
    deleteEntry(entry("mail"));
    deletePermanently(group("email"));
    EXPECT_TRUE(restore(entry("mail")));
    EXPECT_EQ(entry("mail").parent()->element(), top.element());

    // Previous group itself in the bin.
    deleteEntry(entry("wiki"));
    deleteGroup(group("projects"));
    EXPECT_TRUE(restore(entry("wiki")));
    EXPECT_EQ(entry("wiki").parent()->element(), top.element());

    // A group goes back to its own previous parent; the top group has nowhere to go.
    EXPECT_TRUE(restore(group("projects")));
    EXPECT_EQ(group("projects").parent()->name(), "Work");
    EXPECT_FALSE(restore(top));
}

} // namespace
