#include "kdbx/Encoding.h"
#include "model/Document.h"
#include "model/Group.h"
#include "model/History.h"
#include "model/RecycleBin.h"
#include "model/Search.h"
#include "tests/support/Helpers.h"

#include <gtest/gtest.h>
#include <pugixml.hpp>

#include <array>
#include <string>

using namespace quillon;
using namespace quillon::model;
using quillon::test::onSmallStack;

namespace {

constexpr std::size_t depth = 100'000;

std::string uuidText(std::size_t n)
{
    std::array<std::uint8_t, 16> b{};
    for (std::size_t i = 0; i < 8; ++i)
        b[i] = static_cast<std::uint8_t>(n >> (8 * i));
    b[15] = 0x5a;
    return kdbx::base64Encode(b);
}

// Groups nested `depth` deep under the top group, an entry every thousand levels and one at the bottom.
std::string nestedXml()
{
    std::string text = "<KeePassFile><Meta/><Root><Group><UUID>" + uuidText(0) + "</UUID><Name>Top</Name>";
    for (std::size_t i = 1; i <= depth; ++i) {
        text += "<Group><UUID>" + uuidText(i) + "</UUID><Name>G</Name><Times/>";
        if (i % 1000 == 0 || i == depth)
            text += "<Entry><UUID>" + uuidText(depth + i) + "</UUID><String><Key>Title</Key><Value>" +
                    (i == depth ? "bottom needle" : "level") + "</Value></String></Entry>";
    }
    for (std::size_t i = 0; i <= depth; ++i)
        text += "</Group>";
    return text + "</Root></KeePassFile>";
}

TEST(DeepNesting, walksSearchAndDeletesWithoutRecursion)
{
    pugi::xml_document xml;
    ASSERT_TRUE(xml.load_string(nestedXml().c_str(), pugi::parse_default | pugi::parse_ws_pcdata));
    Document doc(xml);
    std::size_t found = 0, all = 0, groups = 0, records = 0;
    bool bottomFound = false;
    DeleteResult moved{}, emptied{};
    onSmallStack([&] {
        found = entriesToList(doc, std::nullopt, "needle", SearchScope::everywhere).size();
        all = doc.topGroup()->allEntries().size();
        groups = doc.topGroup()->allGroups().size();
        bottomFound = doc.findEntry(uuidText(2 * depth)).has_value();
        moved = deleteGroup(doc.topGroup()->groups().front());
        emptied = emptyBin(doc);
        records = 0;
        for ([[maybe_unused]] const auto r : doc.root().child("DeletedObjects").children("DeletedObject"))
            ++records;
    });
    EXPECT_EQ(found, 1u);
    EXPECT_EQ(all, depth / 1000);
    EXPECT_EQ(groups, depth);
    EXPECT_TRUE(bottomFound);
    EXPECT_EQ(moved, DeleteResult::movedToBin);
    EXPECT_EQ(emptied, DeleteResult::deletedPermanently);
    EXPECT_EQ(records, depth + depth / 1000);
    EXPECT_EQ(doc.topGroup()->allGroups().size(), 1u); // only the bin is left
}

// An entry whose unknown element, custom field and PreviousParentGroup each hold elements nested `depth`
// deep. Editing copies and removes such subtrees; none of that may recurse once per level.
std::string deepEntryXml()
{
    std::string deep;
    for (std::size_t i = 0; i < depth; ++i)
        deep += "<X>";
    deep += "core";
    for (std::size_t i = 0; i < depth; ++i)
        deep += "</X>";
    return "<KeePassFile><Meta><HistoryMaxItems>1</HistoryMaxItems></Meta><Root><Group><UUID>" + uuidText(0) +
           "</UUID><Name>Top</Name><Group><UUID>" + uuidText(1) + "</UUID><Name>Old</Name></Group><Entry><UUID>" +
           uuidText(2) + "</UUID><Times/><String><Key>Title</Key><Value>zero</Value></String><String><Key>Junk</Key>" +
           "<Value>v</Value>" + deep + "</String><Hostile>" + deep + "</Hostile><PreviousParentGroup>" +
           uuidText(1) + deep + "</PreviousParentGroup></Entry></Group></Root></KeePassFile>";
}

TEST(DeepNesting, editsCopyAndRemoveDeepElementsWithoutRecursion)
{
    pugi::xml_document xml;
    ASSERT_TRUE(xml.load_string(deepEntryXml().c_str(), pugi::parse_default | pugi::parse_ws_pcdata));
    Document doc(xml);
    const Entry entry = *doc.findEntry(uuidText(2));
    bool restored = false;
    onSmallStack([&] {
        editField(entry, "Title", "one");       // a version holding copies of the deep elements
        editField(entry, "Title", "two");       // the limit of one drops the first version
        restoreVersion(entry, entry.history().front()); // replaces the entry's deep elements with the version's
        entry.removeField("Junk");
        restored = restore(entry);              // drops the deep PreviousParentGroup
    });
    EXPECT_EQ(entry.title(), "one");
    ASSERT_EQ(entry.history().size(), 1u);
    EXPECT_EQ(entry.history().front().title(), "two");
    EXPECT_EQ(entry.field("Junk"), std::nullopt);
    EXPECT_TRUE(restored);
    EXPECT_EQ(entry.parent()->name(), "Old");
    EXPECT_FALSE(entry.element().child("PreviousParentGroup"));
    EXPECT_TRUE(entry.element().child("Hostile").child("X"));
}

} // namespace
