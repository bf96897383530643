#include "model/History.h"
#include "tests/model/ModelFixture.h"

#include <gmock/gmock.h>

using namespace quillon::model;
using namespace quillon::model::test;
using ::testing::ElementsAreArray;

namespace {

class HistoryTest : public ModelFixture {};

std::vector<std::string> versionTitles(const Entry& e)
{
    std::vector<std::string> out;
    for (const auto& v : e.history())
        out.emplace_back(v.title());
    return out;
}

TEST_F(HistoryTest, anEditStampsTimesAndPushesOneVersion)
{
    const Entry bank = entry("bank");
    const auto created = bank.creationTime();
    advanceClock(90);
    EXPECT_FALSE(editField(bank, "Title", "Bank login")); // unchanged text: nothing happens
    EXPECT_TRUE(bank.history().empty());

    EXPECT_TRUE(editField(bank, "Title", "Bank"));
    ASSERT_EQ(bank.history().size(), 1u);
    const Entry version = bank.history()[0];
    EXPECT_EQ(version.title(), "Bank login");
    EXPECT_EQ(version.uuid(), bank.uuid());
    EXPECT_FALSE(version.element().child("History"));
    EXPECT_EQ(version.lastModificationTime(), readTime("gO8w2w4AAAA="));
    EXPECT_EQ(bank.lastModificationTime(), fixedTime(90));
    EXPECT_EQ(bank.creationTime(), created);
    EXPECT_TRUE(version.isHistoryVersion());
    EXPECT_FALSE(version.parent());

    // Protection rules of the editor.
    editField(bank, "Notes", "secret notes");
    EXPECT_FALSE(bank.notesProtected());
    bank.setField("Notes", "secret notes", true);
    editField(bank, "Notes", "more");
    EXPECT_TRUE(bank.notesProtected());
    editField(bank, "PIN", "1111");
    EXPECT_TRUE(bank.isFieldProtected("PIN"));
    bank.setField("UserName", "alice", true);
    editField(bank, "UserName", "bob");
    EXPECT_FALSE(bank.isFieldProtected("UserName"));
    editField(bank, "Password", "x");
    EXPECT_TRUE(bank.isFieldProtected("Password"));
}

TEST_F(HistoryTest, pruningFollowsTheLimit)
{
    const struct {
        const char* meta;
        std::vector<std::string> kept;
    } rows[] = {
        {"<HistoryMaxItems>2</HistoryMaxItems>", {"one", "two"}},
        {"<HistoryMaxItems>0</HistoryMaxItems>", {}},
        {"<HistoryMaxItems>-1</HistoryMaxItems>", {"zero", "one", "two"}},
        {"<HistoryMaxItems>many</HistoryMaxItems>", {"zero", "one", "two"}},
        {"", {"zero", "one", "two"}},
    };
    for (const auto& row : rows) {
        load(std::string("<KeePassFile><Meta>") + row.meta +
             "</Meta><Root><Group><UUID>@g@</UUID><Entry><UUID>@e@</UUID><Times/>"
             "<String><Key>Title</Key><Value>zero</Value></String></Entry></Group></Root></KeePassFile>");
        const Entry e = entry("e");
        for (const char* title : {"one", "two", "three"})
            editField(e, "Title", title);
        EXPECT_THAT(versionTitles(e), ElementsAreArray(row.kept)) << row.meta;
        EXPECT_TRUE(e.element().child("History")) << row.meta; // even a limit of 0 leaves an empty History
        EXPECT_EQ(e.title(), "three");
    }
}

TEST_F(HistoryTest, restoringKeepsIdentityAndAddsOneVersion)
{
    const Entry bank = entry("bank");
    const std::string uuid(bank.uuid());
    const auto created = bank.creationTime();
    editField(bank, "Title", "Second");
    editField(bank, "UserName", "bob");
    ASSERT_EQ(bank.history().size(), 2u);
    advanceClock(300);

    restoreVersion(bank, bank.history()[0]);
    EXPECT_EQ(bank.title(), "Bank login");
    EXPECT_EQ(bank.userName(), "alice");
    EXPECT_EQ(bank.uuid(), uuid);
    EXPECT_EQ(bank.creationTime(), created);
    EXPECT_EQ(bank.lastModificationTime(), fixedTime(300));
    EXPECT_THAT(versionTitles(bank), ElementsAreArray({"Bank login", "Second", "Second"}));
    EXPECT_EQ(bank.history()[2].userName(), "bob");

    // With a limit of one the version being restored is pruned only after it has been copied.
    doc().setHistoryMaxItems(1);
    restoreVersion(bank, bank.history()[1]);
    EXPECT_EQ(bank.title(), "Second");
    EXPECT_THAT(versionTitles(bank), ElementsAreArray({"Bank login"}));
}


// Text is compared as it would be stored: a paste that differs only by characters XML cannot carry
// makes no version, moves no revision, and a new group's name is filtered where it is made.
TEST_F(HistoryTest, textThatFilteringMakesEqualChangesNothing)
{
    const Entry mail = entry("mail");
    const std::string before = serialise(xml);
    const auto revision = doc().revision();
    EXPECT_FALSE(editField(mail, "Title", std::string(mail.title()) + "\x01\x1f"));
    EXPECT_FALSE(entry("bank").setField("URL", "https://bank.example\x0b", false));
    EXPECT_FALSE(group("work").rename(std::string(group("work").name()) + "\x02"));
    EXPECT_EQ(serialise(xml), before);
    EXPECT_EQ(doc().revision(), revision);
    EXPECT_EQ(doc().newGroup(group("work"), "Ops\x03").name(), "Ops");
}

} // namespace
