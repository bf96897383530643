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

class DocumentTest : public ModelFixture {};

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
        {"<HistoryMaxItems>ten</HistoryMaxItems>", std::nullopt, -1},
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
