// tests/model/EditScripts.h: copies of one database on a shared ticking clock, and random edits of the kinds a user
// makes, for the merge's properties and its comparison with other programs.
#pragma once

#include "model/History.h"
#include "model/Moves.h"
#include "model/RecycleBin.h"
#include "tests/model/ModelFixture.h"

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace quillon::model::test {

// Every reading is one second later than the last, for every copy, so edits on either side are ordered in time.
struct TickingClock {
    std::int64_t seconds = fixedUnixSeconds;
    kdbx::SystemTime operator()() { return kdbx::SystemTime(std::chrono::seconds(++seconds)); }
};

inline const char* const baseXml = R"(<?xml version="1.0" encoding="utf-8" standalone="yes"?>
<KeePassFile><Meta><DatabaseName>Base</DatabaseName><HistoryMaxItems>-1</HistoryMaxItems><RecycleBinEnabled>True</RecycleBinEnabled><RecycleBinUUID>@bin@</RecycleBinUUID></Meta>
<Root><Group><UUID>@top@</UUID><Name>Root</Name><Times><CreationTime>AAAAAAAAAAA=</CreationTime><LastModificationTime>AAAAAAAAAAA=</LastModificationTime></Times>
<Group><UUID>@bin@</UUID><Name>Recycle Bin</Name><Times><CreationTime>AAAAAAAAAAA=</CreationTime><LastModificationTime>AAAAAAAAAAA=</LastModificationTime></Times><IconID>43</IconID><EnableSearching>False</EnableSearching></Group>
</Group></Root></KeePassFile>)";

// One copy of a database: its tree viewed through a document on the shared clock.
class Copy {
public:
    Copy(const std::string& text, TickingClock& clock) : clock_(&clock)
    {
        const auto result = xml_.load_string(expandUuids(text).c_str(), parseFlags);
        EXPECT_TRUE(result) << result.description();
        view();
    }
    Copy(const Copy& from) : clock_(from.clock_)
    {
        xml_.reset(from.xml_);
        view();
    }
    Copy& operator=(const Copy&) = delete;

    Document& doc() const { return *doc_; }
    Group top() const { return *doc_->topGroup(); }
    Group group(std::string_view tag) const { return *doc_->findGroup(uuidOf(tag)); }
    Entry entry(std::string_view tag) const { return *doc_->findEntry(uuidOf(tag)); }
    bool has(std::string_view tag) const { return doc_->findEntry(uuidOf(tag)).has_value(); }
    std::string text() const { return serialise(xml_); }
    const pugi::xml_document& xml() const { return xml_; }

    Group newGroup(const Group& parent, const std::string& tag)
    {
        auto g = doc_->newGroup(parent, tag);
        g.element().child("UUID").text().set(uuidOf(tag).c_str());
        return g;
    }
    Entry newEntry(const Group& parent, const std::string& tag)
    {
        auto e = doc_->newEntry(parent, tag);
        e.element().child("UUID").text().set(uuidOf(tag).c_str());
        return e;
    }

private:
    void view()
    {
        doc_ = std::make_unique<Document>(xml_, [clock = clock_] { return (*clock)(); });
    }
    TickingClock* clock_;
    pugi::xml_document xml_;
    std::unique_ptr<Document> doc_;
};

template <class T>
const T& pick(const std::vector<T>& items, std::mt19937& rng)
{
    return items[std::uniform_int_distribution<std::size_t>(0, items.size() - 1)(rng)];
}

// One random edit of the kinds a user makes: fields (from a small set of values, so that both sides sometimes
// agree), new entries and groups, moves, renames, deletions to the bin and for good.
inline void randomEdit(Copy& copy, std::mt19937& rng, int& counter)
{
    static const std::vector<std::string> fields = {"Title", "UserName", "Password", "Notes"};
    static const std::vector<std::string> values = {"a", "b", "c", "d", "e", "f"};
    auto& doc = copy.doc();
    const auto top = copy.top();
    const auto bin = findBin(doc);
    std::vector<Group> groups{top};
    for (const auto& g : top.allGroups())
        if (!bin || !g.sameItem(*bin))
            groups.push_back(g);
    const auto entries = top.allEntries();
    const int kind = std::uniform_int_distribution<int>(0, 11)(rng);
    if (entries.empty() || kind >= 9) {
        const auto& parent = pick(groups, rng);
        if (kind == 11 && groups.size() > 1) {
            const auto& g = pick(groups, rng);
            if (!g.sameItem(top)) {
                switch (rng() % 4) {
                case 0:
                    g.rename(pick(values, rng));
                    break;
                case 1:
                    deleteGroup(g);
                    break;
                case 2:
                    deletePermanently(g);
                    break;
                default:
                    moveGroup(g, top);
                }
                return;
            }
        }
        if (kind == 10 || entries.empty()) {
            auto e = copy.newEntry(parent, "e" + std::to_string(++counter));
            editField(e, "UserName", pick(values, rng));
        } else {
            copy.newGroup(parent, "g" + std::to_string(++counter));
        }
        return;
    }
    const auto& entry = pick(entries, rng);
    if (kind <= 4) {
        editField(entry, pick(fields, rng), pick(values, rng));
    } else if (kind == 5 || kind == 6) {
        moveEntry(entry, pick(groups, rng));
    } else if (kind == 7) {
        deleteEntry(entry);
    } else {
        deletePermanently(entry);
    }
}

// An ancestor made by 25 random edits, then two copies of it, each edited apart (1 to 14 edits in all, the
// copies taking turns at random).
struct EditedCopies {
    std::unique_ptr<Copy> ancestor;
    std::unique_ptr<Copy> mine;
    std::unique_ptr<Copy> theirs;
};

inline EditedCopies editApart(std::uint32_t seed, TickingClock& clock)
{
    std::mt19937 rng(seed);
    int counter = 0;
    EditedCopies c;
    c.ancestor = std::make_unique<Copy>(baseXml, clock);
    for (int i = 0; i < 25; ++i)
        randomEdit(*c.ancestor, rng, counter);
    c.mine = std::make_unique<Copy>(*c.ancestor);
    c.theirs = std::make_unique<Copy>(*c.ancestor);
    const int edits = std::uniform_int_distribution<int>(1, 14)(rng);
    for (int i = 0; i < edits; ++i)
        randomEdit(rng() % 2 ? *c.mine : *c.theirs, rng, counter);
    return c;
}

} // namespace quillon::model::test
