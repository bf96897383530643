#include "model/History.h"
#include "model/Moves.h"
#include "model/RecycleBin.h"
#include "model/Search.h"
#include "model/SearchIndex.h"
#include "tests/model/ModelFixture.h"

#include <gmock/gmock.h>

#include <functional>
#include <map>

using namespace quillon::model;
using namespace quillon::model::test;
using ::testing::ElementsAreArray;

namespace {

std::vector<std::string> termsOf(std::string_view text)
{
    std::vector<std::string> out;
    for (const auto& t : parseQuery(text, SearchScope::title).terms)
        out.emplace_back(t.view());
    return out;
}

TEST(SearchQuery, parsingSplitsQuotesAndLowerCases)
{
    const struct {
        const char* text;
        std::vector<std::string> terms;
    } rows[] = {
        {"", {}},
        {"   \t ", {}},
        {"one two", {"one", "two"}},
        {"  One   TWO  ", {"one", "two"}},
        {"\"New York\" city", {"new york", "city"}},
        {"ab\"c d\"", {"abc d"}},     // an opening quote does not end the term before it
        {"\"open ended", {"open ended"}},
        {"\"\" x", {"x"}},
        {"\"a\"\"b\"", {"a", "b"}},
        {"ÉCOLE Straße 漢字", {"école", "straße", "漢字"}},
        {"ÀÖ ẞ ΣΑΣ", {"àö", "ß", "σασ"}},
    };
    for (const auto& row : rows)
        EXPECT_THAT(termsOf(row.text), ElementsAreArray(row.terms)) << row.text;
    EXPECT_EQ(parseQuery("x", SearchScope::notes).scope, SearchScope::notes);
}

constexpr const char* searchXml = R"(<KeePassFile><Meta/><Root><Group><UUID>@root@</UUID><Name>Root</Name>
<Entry><UUID>@paris@</UUID>
  <String><Key>Title</Key><Value>Café de Paris</Value></String>
  <String><Key>UserName</Key><Value>JEAN</Value></String>
  <String><Key>Password</Key><Value Protected="True">hunter2</Value></String>
  <String><Key>URL</Key><Value>https://example.fr</Value></String>
  <String><Key>Notes</Key><Value>Große Straße 5</Value></String>
  <String><Key>Recovery</Key><Value Protected="True">tulip-key</Value></String>
  <String><Key>Floor</Key><Value>third</Value></String>
  <History><Entry><UUID>@paris@</UUID><String><Key>Title</Key><Value>Ancient name</Value></String></Entry></History>
</Entry>
<Entry><UUID>@tokyo@</UUID>
  <String><Key>Title</Key><Value>東京 漢字 Office</Value></String>
  <String><Key>UserName</Key><Value>new york</Value></String>
  <String><Key>Notes</Key><Value>york new</Value></String>
</Entry>
<Group><UUID>@hidden@</UUID><Name>Hidden</Name><EnableSearching>FALSE</EnableSearching>
  <Entry><UUID>@secret@</UUID><String><Key>Title</Key><Value>Hidden office</Value></String></Entry>
  <Group><UUID>@inherit@</UUID><Name>Inherits</Name><EnableSearching>null</EnableSearching>
    <Entry><UUID>@deep@</UUID><String><Key>Title</Key><Value>Deep office</Value></String></Entry>
  </Group>
  <Group><UUID>@again@</UUID><Name>Again</Name><EnableSearching>true</EnableSearching>
    <Entry><UUID>@visible@</UUID><String><Key>Title</Key><Value>Visible office</Value></String></Entry>
  </Group>
</Group>
</Group></Root></KeePassFile>)";

class SearchTest : public ModelFixture {
protected:
    SearchTest() : ModelFixture(searchXml) {}

    std::vector<std::string> hits(std::string_view text, SearchScope scope)
    {
        std::vector<std::string> out;
        for (const auto& e : entriesToList(doc(), doc().topGroup(), text, scope))
            out.emplace_back(e.title());
        return out;
    }
};

TEST_F(SearchTest, hitsMatchTheTable)
{
    using S = SearchScope;
    const std::string paris = "Café de Paris", tokyo = "東京 漢字 Office";
    const struct {
        const char* text;
        SearchScope scope;
        std::vector<std::string> expected;
    } rows[] = {
        {"café", S::everywhere, {paris}},
        {"CAFÉ PARIS", S::everywhere, {paris}},
        {"jean", S::everywhere, {paris}},
        {"paris jean", S::everywhere, {paris}},
        {"jean paris", S::username, {}},
        {"straße", S::everywhere, {paris}},
        {"STRASSE", S::everywhere, {}},      // lower-casing does not fold ß into ss
        {"große", S::notes, {paris}},
        {"große", S::title, {}},
        {"漢字", S::everywhere, {tokyo}},
        {"東京 office", S::title, {tokyo}},
        {"york new", S::everywhere, {tokyo}},
        {"\"new york\"", S::username, {tokyo}},
        {"\"new york\"", S::notes, {}},
        {"example.fr", S::url, {paris}},
        {"example.fr", S::title, {}},
        // Password text only under the password scope.
        {"hunter2", S::everywhere, {}},
        {"hunter2", S::password, {paris}},
        // A protected custom field: name under everywhere, value under password only.
        {"recovery", S::everywhere, {paris}},
        {"tulip", S::everywhere, {}},
        {"tulip", S::password, {paris}},
        {"floor third", S::everywhere, {paris}},
        {"\"floor third\"", S::everywhere, {paris}}, // a custom field's name and value join with a space
        {"third", S::notes, {}},
        {"ancient", S::everywhere, {}},             // only in history
        {"office", S::everywhere, {tokyo, "Visible office"}},
        {"deep", S::everywhere, {}},
        {"hidden", S::everywhere, {}},
    };
    for (const auto& row : rows)
        EXPECT_THAT(hits(row.text, row.scope), ElementsAreArray(row.expected))
            << row.text << " scope " << static_cast<int>(row.scope);
}

TEST_F(SearchTest, noTermsListTheSelectedGroupOnly)
{
    EXPECT_THAT(hits("   ", SearchScope::everywhere), ElementsAreArray({"Café de Paris", "東京 漢字 Office"}));
    EXPECT_TRUE(entriesToList(doc(), std::nullopt, "", SearchScope::everywhere).empty());
    const auto hidden = doc().findGroup(uuidOf("hidden"));
    EXPECT_EQ(entriesToList(doc(), hidden, "\"\"", SearchScope::title).size(), 1u);
}

TEST_F(SearchTest, theBinIsPassedByUnlessItIsMarkedSearchable)
{
    deleteEntry(entry("paris"));
    EXPECT_TRUE(hits("café", SearchScope::everywhere).empty());
    // A file whose bin lacks EnableSearching has it searched like any other group.
    auto bin = findBin(doc())->element();
    bin.remove_child("EnableSearching");
    EXPECT_THAT(hits("café", SearchScope::everywhere), ElementsAreArray({"Café de Paris"}));
}

TEST_F(SearchTest, matchesWithoutTermsAndLowerCasing)
{
    EXPECT_TRUE(matches(entry("tokyo"), {}, SearchScope::password));
    quillon::kdbx::SecureBytes out;
    appendLowerCase("ÉÀ İ Ω\xFF", out);
    EXPECT_EQ(out.view(), "éà i ω\xFF");

    // ASCII goes eight bytes at a time: every byte value around 'A' and 'Z', at every offset in a word,
    // and runs broken by other text.
    std::string ascii, lower;
    for (int shift = 0; shift < 9; ++shift) {
        for (int c = 0x01; c < 0x80; ++c) {
            ascii.push_back(static_cast<char>(c));
            lower.push_back(static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c));
        }
        ascii += "Straße" + std::string(static_cast<std::size_t>(shift), 'Q');
        lower += "straße" + std::string(static_cast<std::size_t>(shift), 'q');
    }
    quillon::kdbx::SecureBytes all;
    appendLowerCase(ascii, all);
    EXPECT_EQ(all.view(), lower);
}

// Large trees are gathered in parts on several threads: the hits must be the same, in document order, as
// matching entry by entry, across every boundary between parts and with unsearchable groups between.
TEST_F(SearchTest, aLargeTreeGivesTheHitsOfMatchingEachEntry)
{
    std::vector<Group> groups{*doc().topGroup(), group("hidden")};
    for (int g = 0; g < 6; ++g)
        groups.push_back(doc().newGroup(*doc().topGroup(), "bulk group " + std::to_string(g)));
    for (int i = 0; i < 5000; ++i) {
        const auto e = doc().newEntry(groups[static_cast<std::size_t>(i) % groups.size()], "Bulk " + std::to_string(i));
        e.setField("Notes", i % 7 == 0 ? "Ünïcode NEEDLE 漢字" : std::string(120, 'n'), false);
        e.setField("Password", i % 11 == 0 ? "needle" : "haystack", true);
    }
    const std::pair<const char*, SearchScope> queries[] = {
        {"needle", SearchScope::everywhere}, {"needle", SearchScope::password}, {"ünïcode 漢字", SearchScope::notes},
        {"bulk 49", SearchScope::title},     {"\"k 1\"", SearchScope::everywhere}};
    const auto searchable = doc().topGroup()->searchableEntries();
    SearchIndex index(doc());
    for (const auto& [text, scope] : queries) {
        const auto terms = parseQuery(text, scope).terms;
        std::vector<pugi::xml_node> wanted;
        for (const auto& e : searchable)
            if (matches(e, terms, scope))
                wanted.push_back(e.element());
        ASSERT_GT(wanted.size(), 10u) << text;
        for (const auto& found : {entriesToList(doc(), std::nullopt, text, scope),
                                  index.entriesToList(std::nullopt, text, scope)}) {
            std::vector<pugi::xml_node> got;
            for (const auto& e : found)
                got.push_back(e.element());
            EXPECT_EQ(got, wanted) << text;
        }
    }
}

// Field names are told apart by their first bytes; names that only start like a standard field's are custom.
constexpr const char* lookalikeXml = R"(<KeePassFile><Meta/><Root><Group><UUID>@root@</UUID><Name>Root</Name>
<Entry><UUID>@near@</UUID>
  <String><Key>Title</Key><Value>First</Value></String>
  <String><Key>Title</Key><Value>Second</Value></String>
  <String><Key>Titles</Key><Value>alpha</Value></String>
  <String><Key>U</Key><Value>bravo</Value></String>
  <String><Key>UserNames</Key><Value>kilo</Value></String>
  <String><Key>Passwords</Key><Value>charlie</Value></String>
  <String><Key>Note</Key><Value>delta</Value></String>
  <String><Value Protected="True">echo</Value><Key>Password</Key></String>
  <String><Key>URL</Key><Value>https://foxtrot.example</Value></String>
</Entry>
</Group></Root></KeePassFile>)";

class LookalikeFieldTest : public ModelFixture {
protected:
    LookalikeFieldTest() : ModelFixture(lookalikeXml) {}

    bool hit(std::string_view text, SearchScope scope)
    {
        return !entriesToList(doc(), std::nullopt, text, scope).empty();
    }
};

TEST_F(LookalikeFieldTest, onlyExactNamesAreStandardFields)
{
    using S = SearchScope;
    EXPECT_TRUE(hit("\"titles alpha\"", S::everywhere));
    EXPECT_TRUE(hit("\"u bravo\"", S::everywhere));
    EXPECT_TRUE(hit("\"usernames kilo\"", S::everywhere));
    EXPECT_TRUE(hit("\"passwords charlie\"", S::everywhere));
    EXPECT_TRUE(hit("\"note delta\"", S::everywhere));
    EXPECT_FALSE(hit("charlie", S::password));
    EXPECT_FALSE(hit("kilo", S::username));
    EXPECT_TRUE(hit("first", S::title));
    EXPECT_FALSE(hit("second", S::everywhere)); // a repeated standard field is not read
    // Key after Value within the String still names the field.
    EXPECT_TRUE(hit("echo", S::password));
    EXPECT_FALSE(hit("echo", S::everywhere));
    EXPECT_TRUE(hit("foxtrot", S::url));
}

} // namespace

namespace {

// The index must list exactly what a walk of the live tree lists, before and after changes.
TEST_F(SearchTest, indexAgreesWithTheLiveTreeAcrossChanges)
{
    // Enough other text that the changes below are carried by the index, not gathered afresh.
    for (int i = 0; i < 50; ++i)
        doc().newEntry(*doc().topGroup(), "filler").setField("Notes", std::string(200, 'x'), false);
    // The window's index, which changes scope with the user, and one index per scope, which only ever
    // refreshes: both must agree with the live tree.
    SearchIndex index(doc());
    std::map<SearchScope, SearchIndex> perScope;
    const auto same = [&](std::string_view text, SearchScope scope) {
        const auto live = entriesToList(doc(), doc().topGroup(), text, scope);
        const auto own = perScope.try_emplace(scope, doc()).first->second.entriesToList(doc().topGroup(), text, scope);
        ASSERT_EQ(live.size(), own.size()) << text;
        for (std::size_t i = 0; i < live.size(); ++i)
            EXPECT_EQ(live[i].element(), own[i].element()) << text;
        const auto cached = index.entriesToList(doc().topGroup(), text, scope);
        ASSERT_EQ(live.size(), cached.size()) << text;
        for (std::size_t i = 0; i < live.size(); ++i)
            EXPECT_EQ(live[i].element(), cached[i].element()) << text;
    };
    const std::pair<const char*, SearchScope> queries[] = {
        {"office", SearchScope::everywhere}, {"hunter2", SearchScope::password}, {"café", SearchScope::everywhere},
        {"", SearchScope::title},            {"york", SearchScope::notes},       {"tulip", SearchScope::password},
    };
    const std::function<void()> changes[] = {
        [] {},
        [&] { entry("tokyo").setField("Title", "Café office", false); },
        [&] { deleteEntry(entry("paris")); },
        [&] { restore(entry("paris")); },
        [&] { reorder(entry("tokyo"), entry("paris")); },
        [&] { doc().newEntry(*doc().topGroup(), "new office"); },
        [&] { entry("paris").removeField("Password"); },
        // Changes inside single entries, which the index picks up entry by entry.
        [&] { editField(entry("paris"), "Password", "Swordfish"); },
        [&] { editField(entry("tokyo"), "Notes", "Office in Osaka"); },
        [&] { restoreVersion(entry("paris"), entry("paris").history().front()); },
        [&] { entry("paris").history().front().setField("Title", "office in history", false); },
        [&] { group("hidden").entries().front().setField("Notes", "office hidden", false); },
        [&] {
            for (int i = 0; i < 20; ++i)
                entry("tokyo").setField("UserName", i % 2 ? "tulip office" : "new york", false);
        },
        [&] { doc().topGroup()->rename("Top office"); },
        // Moves and filing into and out of the bin, alone and after edits still waiting to be gathered.
        [&] { moveEntry(entry("tokyo"), group("hidden")); },
        [&] { moveEntry(entry("tokyo"), *doc().topGroup()); },
        [&] {
            entry("tokyo").setField("Title", "Office moved", false);
            moveEntry(entry("tokyo"), doc().topGroup()->groups().front());
        },
        [&] {
            editField(entry("paris"), "Notes", "office to the bin");
            deleteEntry(entry("paris"));
        },
        [&] { restore(entry("paris")); },
        [&] { deleteGroup(doc().topGroup()->groups().front()); },
        [&] { restore(findBin(doc())->groups().front()); },
        [&] {
            deleteEntry(entry("paris"));
            emptyBin(doc());
        },
    };
    for (const auto& change : changes) {
        change();
        for (const auto& [text, scope] : queries)
            same(text, scope);
    }
    index.clear();
    same("office", SearchScope::everywhere);
}

} // namespace
