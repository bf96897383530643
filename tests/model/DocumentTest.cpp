#include "model/Document.h"
#include "model/Group.h"
#include "model/History.h"
#include "tests/model/ModelFixture.h"

#include <gmock/gmock.h>

using namespace quillon::model;
using namespace quillon::model::test;
using ::testing::ElementsAre;

namespace {

std::vector<std::string> titles(const std::vector<Entry>& entries)
{
    std::vector<std::string> out;
    for (const auto& e : entries)
        out.emplace_back(e.title());
    return out;
}

std::vector<std::string> names(const std::vector<Group>& groups)
{
    std::vector<std::string> out;
    for (const auto& g : groups)
        out.emplace_back(g.name());
    return out;
}

class DocumentTest : public ModelFixture {};

TEST_F(DocumentTest, readsFieldsTimesAndStructure)
{
    const Entry bank = entry("bank");
    EXPECT_EQ(bank.title(), "Bank login");
    EXPECT_EQ(bank.password(), "s3cret");
    EXPECT_EQ(bank.field("Nope"), std::nullopt);
    EXPECT_TRUE(bank.isFieldProtected("Password"));
    EXPECT_FALSE(bank.notesProtected());
    EXPECT_EQ(bank.attachmentCount(), 1u);
    EXPECT_EQ(bank.creationTime(), readTime("gO8w2w4AAAA="));
    EXPECT_EQ(bank.expiry(), std::nullopt);
    ASSERT_EQ(bank.customFields().size(), 1u);
    EXPECT_EQ(bank.customFields()[0].name, "PIN");
    EXPECT_EQ(bank.customFields()[0].value, "9876");
    EXPECT_TRUE(bank.customFields()[0].isProtected);
    EXPECT_EQ(bank.parent()->name(), "Root");

    const Group top = *doc().topGroup();
    EXPECT_THAT(names(top.groups()), ElementsAre("Email", "Work"));
    EXPECT_THAT(names(top.allGroups()), ElementsAre("Email", "Work", "Projects"));
    EXPECT_THAT(titles(top.allEntries()), ElementsAre("Bank login", "Mail", "Wiki"));
    EXPECT_THAT(titles(top.entries()), ElementsAre("Bank login"));
    EXPECT_TRUE(group("work").containsOrIs(group("projects")));
    EXPECT_FALSE(group("projects").containsOrIs(group("work")));
    EXPECT_EQ(doc().findGroup("AAAAAAAAAAAAAAAAAAAAAA=="), std::nullopt);
    // A quote in the looked-up text is just text.
    EXPECT_EQ(doc().findGroup("a'b\"c]"), std::nullopt);
    // History versions are not items.
    snapshot(bank);
    EXPECT_EQ(doc().findEntry(bank.uuid())->element(), bank.element());
}

TEST_F(DocumentTest, setFieldWritesFiltersAndTouches)
{
    const Entry mail = entry("mail");
    advanceClock(60);
    mail.setField("Token", "a\x01" "b\tc\xEF\xBF\xBE", true);
    const auto last = mail.element().last_child();
    EXPECT_STREQ(last.name(), "String");
    EXPECT_STREQ(last.child("Key").text().get(), "Token");
    EXPECT_EQ(mail.field("Token"), "ab\tc");
    EXPECT_STREQ(last.child("Value").attribute("Protected").value(), "True");
    EXPECT_EQ(mail.lastModificationTime(), fixedTime(60));

    // Setting again changes only the Value; unprotecting removes the attribute rather than writing False.
    mail.setField("Token", "new", false);
    EXPECT_EQ(mail.element().last_child(), last);
    EXPECT_EQ(mail.field("Token"), "new");
    EXPECT_FALSE(last.child("Value").attribute("Protected"));

    EXPECT_TRUE(mail.removeField("Token"));
    EXPECT_EQ(mail.field("Token"), std::nullopt);
    EXPECT_FALSE(mail.removeField("Token"));
}

TEST_F(DocumentTest, expiryNeedsExpiresTrue)
{
    const Entry mail = entry("mail");
    const Time when = fixedTime(86400);
    mail.setExpiry(when);
    EXPECT_EQ(mail.expiry(), when);
    EXPECT_STREQ(mail.element().child("Times").child("Expires").text().get(), "True");
    mail.setExpiry(std::nullopt);
    EXPECT_EQ(mail.expiry(), std::nullopt);
    // ExpiryTime stays; only the flag goes off. A lower-case flag still counts.
    mail.element().child("Times").child("Expires").text().set("true");
    EXPECT_EQ(mail.expiry(), when);
}

TEST_F(DocumentTest, newItemsHaveTheirChildrenInOrder)
{
    const Group work = group("work");
    const Entry e = doc().newEntry(work, "Fresh");
    std::vector<std::string> children;
    for (const auto c : e.element().children())
        children.emplace_back(c.name());
    EXPECT_THAT(children, ElementsAre("UUID", "Times", "String", "String", "String", "String", "String"));
    EXPECT_THAT(titles(work.entries()), ElementsAre("Fresh"));
    EXPECT_EQ(e.creationTime(), fixedTime());
    EXPECT_EQ(e.lastAccessTime(), fixedTime());
    EXPECT_TRUE(e.isFieldProtected("Password"));
    EXPECT_FALSE(e.isFieldProtected("UserName"));
    EXPECT_EQ(e.uuid().size(), 24u);

    const Group g = doc().newGroup(work, "Sub");
    EXPECT_EQ(work.element().last_child(), g.element());
    EXPECT_EQ(g.creationTime(), fixedTime());
    g.rename("Re\x02named");
    EXPECT_EQ(g.name(), "Renamed");
    EXPECT_EQ(g.lastModificationTime(), fixedTime());
}

TEST_F(DocumentTest, historyLimitHasTwoReadings)
{
    const struct {
        const char* element; // nullptr: no HistoryMaxItems at all
        std::optional<std::size_t> limit;
        std::int64_t setting;
    } rows[] = {
        {"<HistoryMaxItems>10</HistoryMaxItems>", 10, 10},
        {"<HistoryMaxItems>\n 0 \n</HistoryMaxItems>", 0, 0},
        {"<HistoryMaxItems>-1</HistoryMaxItems>", std::nullopt, -1},
        {"<HistoryMaxItems>-5</HistoryMaxItems>", std::nullopt, -5},
        {"<HistoryMaxItems>ten</HistoryMaxItems>", std::nullopt, -1},
        {"<HistoryMaxItems/>", std::nullopt, -1},
        {nullptr, std::nullopt, -1},
    };
    for (const auto& row : rows) {
        load(std::string("<KeePassFile><Meta>") + (row.element ? row.element : "") + "</Meta><Root/></KeePassFile>");
        EXPECT_EQ(doc().historyLimit(), row.limit) << (row.element ? row.element : "missing");
        EXPECT_EQ(doc().historyMaxItems(), row.setting) << (row.element ? row.element : "missing");
    }
    doc().setHistoryMaxItems(7);
    EXPECT_EQ(doc().historyLimit(), 7u);
    EXPECT_STREQ(doc().meta().last_child().name(), "HistoryMaxItems");
}

TEST_F(DocumentTest, unknownElementsSurviveEdits)
{
    const Entry bank = entry("bank");
    const auto keep = [&] {
        std::string out;
        for (const char* name : {"AutoType", "Tags", "CustomData", "Binary", "Unknown"}) {
            std::ostringstream s;
            bank.element().child(name).print(s, "", pugi::format_raw);
            out += s.str();
        }
        std::ostringstream meta;
        doc().meta().child("CustomData").print(meta, "", pugi::format_raw);
        return out + meta.str();
    };
    const std::string before = keep();
    editField(bank, "Title", "Bank");
    editField(bank, "Password", "other");
    bank.setExpiry(fixedTime(5));
    restoreVersion(bank, bank.history().front());
    EXPECT_EQ(keep(), before);
    EXPECT_NE(before.find("flavour=\"odd\""), std::string::npos);
}

} // namespace
