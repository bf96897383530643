#include "ModelFixture.h"

#include "model/History.h"
#include "model/Journal.h"
#include "model/Moves.h"
#include "model/RecycleBin.h"

#include <gtest/gtest.h>

#include <random>

using namespace quillon::model;
using namespace quillon::model::test;

namespace {

class JournalTest : public ModelFixture
{
protected:
    std::vector<Entry> entries() { return doc().topGroup()->allEntries(); }
    std::vector<Group> groups()
    {
        auto all = doc().topGroup()->allGroups();
        all.insert(all.begin(), *doc().topGroup());
        return all;
    }
    template <class T> T pick(const std::vector<T> &from)
    {
        return from[std::uniform_int_distribution<std::size_t>(0, from.size() - 1)(random)];
    }

    // One random edit of every kind a window or the command line makes.
    void randomEdit()
    {
        if (entries().empty()) {
            doc().newEntry(pick(groups()), "Refill");
            return;
        }
        switch (std::uniform_int_distribution<int>(0, 14)(random)) {
        case 0:
            editField(pick(entries()), "Password", "pw" + std::to_string(random() % 5));
            break;
        case 1:
            pick(entries()).setField("Custom" + std::to_string(random() % 3), "v", random() % 2 == 0);
            break;
        case 2:
            pick(entries()).removeField("Custom" + std::to_string(random() % 3));
            break;
        case 3:
            pick(entries()).setExpiry(random() % 2 ? std::optional(fixedTime(3600)) : std::nullopt);
            break;
        case 4:
            doc().newEntry(pick(groups()), "New");
            break;
        case 5:
            doc().newGroup(pick(groups()), "Folder");
            break;
        case 6:
            pick(groups()).rename("Renamed" + std::to_string(random() % 3));
            break;
        case 7:
            moveEntry(pick(entries()), pick(groups()));
            break;
        case 8:
            moveGroup(pick(groups()), pick(groups()));
            break;
        case 9: {
            const auto e = pick(entries());
            const auto siblings = e.parent()->entries();
            reorder(e, random() % 2 ? std::optional(siblings.front()) : std::nullopt);
            break;
        }
        case 10:
            deleteEntry(pick(entries()));
            break;
        case 11:
            deleteGroup(pick(groups()));
            break;
        case 12:
            emptyBin(doc());
            break;
        case 13:
            if (const auto e = pick(entries()); !e.history().empty())
                restoreVersion(e, e.history().front());
            else
                restore(e);
            break;
        case 14:
            doc().setMetaText("RecycleBinEnabled", random() % 3 ? "True" : "False");
            break;
        }
    }

    std::mt19937 random{20261125};
};

// Every kind of edit, in random order, recorded one journal each: undoing them all in reverse gives back
// the first tree byte for byte (history, deletion records and whitespace included), redoing them gives the
// last, and every step between is the tree as it was then.
TEST_F(JournalTest, undoAndRedoRetraceEveryStateExactly)
{
    for (int round = 0; round < 20; ++round) {
        load(sampleXml);
        std::vector<std::string> states{serialise(xml)};
        std::vector<std::unique_ptr<Journal>> journals;
        for (int step = 0; step < 25; ++step) {
            advanceClock(7);
            auto journal = std::make_unique<Journal>();
            journal->recordOn(doc());
            doc().setObserver(journal.get());
            randomEdit();
            doc().setObserver(nullptr);
            journal->finish();
            const auto state = serialise(xml);
            // A change that changed nothing leaves nothing to undo.
            EXPECT_EQ(journal->empty(), state == states.back()) << "round " << round << " step " << step;
            if (!journal->empty()) {
                journals.push_back(std::move(journal));
                states.push_back(state);
            }
        }
        for (std::size_t i = journals.size(); i-- > 0;) {
            journals[i]->undo(doc());
            ASSERT_EQ(serialise(xml), states[i]) << "round " << round << " undo " << i;
        }
        for (std::size_t i = 0; i < journals.size(); ++i) {
            journals[i]->redo(doc());
            ASSERT_EQ(serialise(xml), states[i + 1]) << "round " << round << " redo " << i;
        }
    }
}

} // namespace
