#include "model/History.h"
#include "model/Moves.h"
#include "model/RecycleBin.h"
#include "tests/model/ModelFixture.h"

#include <gmock/gmock.h>

using namespace quillon::model;
using namespace quillon::model::test;
using ::testing::ElementsAre;

namespace {

class MovesTest : public ModelFixture {};

std::vector<std::string> childNames(const Group& g)
{
    std::vector<std::string> out;
    for (const auto c : g.element().children())
        if (std::string_view(c.name()) == "Group")
            out.emplace_back(Group(c, g.document()).name());
        else if (std::string_view(c.name()) == "Entry")
            out.emplace_back(Entry(c, g.document()).title());
    return out;
}

TEST_F(MovesTest, refusedGroupMovesChangeNothing)
{
    const Group top = *doc().topGroup();
    const struct {
        const char* name;
        Group group;
        Group target;
    } rows[] = {
        {"into itself", group("work"), group("work")},
        {"into its child", group("work"), group("projects")},
        {"top group", top, group("email")},
        {"top group into itself", top, top},
    };
    const std::string before = serialise(xml);
    const auto revision = doc().revision();
    for (const auto& row : rows) {
        EXPECT_FALSE(canMoveGroup(row.group, row.target)) << row.name;
        EXPECT_EQ(moveGroup(row.group, row.target), MoveResult::refused) << row.name;
        EXPECT_EQ(serialise(xml), before) << row.name;
    }
    // A before sibling from elsewhere is refused as well, and so is a move or reorder to where it is.
    EXPECT_EQ(moveGroup(group("email"), group("work"), group("work")), MoveResult::refused);
    EXPECT_FALSE(reorder(group("email"), group("email").element().next_sibling("Group")
                                             ? std::optional(doc().group(group("email").element().next_sibling("Group")))
                                             : std::nullopt));
    EXPECT_EQ(serialise(xml), before);
    EXPECT_EQ(doc().revision(), revision);
}

TEST_F(MovesTest, movesKeepIdentityAndStampLocation)
{
    const Entry mail = entry("mail");
    const std::string uuid(mail.uuid());
    editField(mail, "Title", "Mailbox");
    advanceClock(30);
    EXPECT_EQ(moveEntry(mail, group("email")), MoveResult::refused); // already there
    EXPECT_EQ(mail.locationChanged(), std::nullopt);
    EXPECT_EQ(moveEntry(mail, group("projects")), MoveResult::moved);
    EXPECT_EQ(mail.parent()->name(), "Projects");
    EXPECT_EQ(mail.uuid(), uuid);
    EXPECT_EQ(mail.history().size(), 1u);
    EXPECT_EQ(mail.locationChanged(), fixedTime(30));
    EXPECT_EQ(mail.lastModificationTime(), fixedTime()); // a move is not an edit

    // A group goes ahead of the given sibling; within its own parent no LocationChanged is stamped.
    const Group top = *doc().topGroup();
    EXPECT_EQ(moveGroup(group("projects"), top, group("email")), MoveResult::moved);
    EXPECT_THAT(childNames(top), ElementsAre("Bank login", "Projects", "Email", "Work"));
    EXPECT_EQ(group("projects").locationChanged(), fixedTime(30));
    advanceClock(30);
    EXPECT_EQ(moveGroup(group("projects"), top), MoveResult::moved);
    EXPECT_THAT(childNames(top), ElementsAre("Bank login", "Email", "Work", "Projects"));
    EXPECT_EQ(group("projects").locationChanged(), fixedTime(30));
}

TEST_F(MovesTest, reorderStaysAmongSiblings)
{
    const Group top = *doc().topGroup();
    const Entry extra = doc().newEntry(top, "Extra");
    const std::string times = [&] {
        std::ostringstream s;
        extra.element().child("Times").print(s, "", pugi::format_raw);
        return s.str();
    }();
    advanceClock(10);
    EXPECT_TRUE(reorder(extra, entry("bank")));
    EXPECT_THAT(childNames(top), ElementsAre("Extra", "Bank login", "Email", "Work"));
    EXPECT_FALSE(reorder(extra, entry("mail")));       // sibling from another group
    EXPECT_FALSE(reorder(extra, extra));
    EXPECT_THAT(childNames(top), ElementsAre("Extra", "Bank login", "Email", "Work"));
    EXPECT_TRUE(reorder(group("email"), std::nullopt));
    EXPECT_THAT(childNames(top), ElementsAre("Extra", "Bank login", "Work", "Email"));
    EXPECT_TRUE(reorder(group("email"), group("work")));
    EXPECT_THAT(childNames(top), ElementsAre("Extra", "Bank login", "Email", "Work"));
    std::ostringstream after;
    extra.element().child("Times").print(after, "", pugi::format_raw);
    EXPECT_EQ(after.str(), times);
}

TEST_F(MovesTest, droppingOnTheBin)
{
    const Group bin = *findOrMakeBin(doc());
    EXPECT_FALSE(canMoveGroup(bin, group("work")));   // the bin stays where it is
    EXPECT_TRUE(canMoveGroup(bin, *doc().topGroup())); // but can be reordered

    EXPECT_FALSE(moveDeletesPermanently(entry("mail"), bin));
    EXPECT_EQ(moveEntry(entry("mail"), bin), MoveResult::movedToBin);
    EXPECT_TRUE(isInsideBin(entry("mail")));
    EXPECT_EQ(entry("mail").previousParentGroup(), uuidOf("email"));
    // Moving within the bin never deletes.
    const Group sub = doc().newGroup(bin, "Sub");
    EXPECT_EQ(moveEntry(entry("mail"), sub), MoveResult::moved);
    EXPECT_EQ(moveEntry(entry("mail"), bin), MoveResult::moved);
    EXPECT_FALSE(doc().root().child("DeletedObjects"));

    EXPECT_EQ(moveGroup(group("work"), bin), MoveResult::movedToBin);
    EXPECT_EQ(group("work").parent()->element(), bin.element());
    EXPECT_EQ(group("work").previousParentGroup(), uuidOf("root"));

    // With the bin turned off, the same drop deletes for good, and says so before and after.
    doc().setMetaText("RecycleBinEnabled", "False");
    const Entry bank = entry("bank");
    EXPECT_TRUE(moveDeletesPermanently(bank, bin));
    EXPECT_EQ(moveEntry(bank, bin), MoveResult::deletedPermanently);
    EXPECT_TRUE(doc().root().child("DeletedObjects"));
}

} // namespace
