// model/Merge.h: three-way merge of two versions of a database that grew apart from a common ancestor.
#pragma once

#include "kdbx/InnerHeader.h"
#include "model/Document.h"
#include "model/ItemIndex.h"

#include <cstddef>
#include <string>
#include <vector>

namespace quillon::model {

enum class MergeEvent : std::uint8_t {
    entryAdded,        // theirs only: brought in
    entryUpdated,      // changed on their side only: their version taken
    entryConflict,     // changed on both: the later version is current, the other went into its history
    entryDeleted,      // deleted on their side and unchanged on ours
    entryKept,         // deleted on one side but changed on the other after that: kept
    entryMoved,        // moved on their side
    entryToBin,        // its group was deleted: it waits in the Recycle Bin
    groupAdded,
    groupUpdated,
    groupDeleted,
    groupKept,
    groupMoved,
    groupToBin,
    settingChanged,    // a Meta element taken from their side
};

struct MergeLine {
    MergeEvent event = MergeEvent::entryAdded;
    std::string uuid;
    std::string name; // an entry's title, a group's name, a setting's element name
};

struct MergeSummary {
    std::size_t entriesAdded = 0;
    std::size_t entriesUpdated = 0;
    std::size_t conflicts = 0;
    std::size_t entriesDeleted = 0;
    std::size_t entriesKept = 0;
    std::size_t entriesMoved = 0;
    std::size_t intoBin = 0;
    std::size_t groupsAdded = 0;
    std::size_t groupsChanged = 0;
    std::size_t groupsDeleted = 0;
    std::size_t settingsChanged = 0;
    std::size_t deletionRecordsAdded = 0;
    // What happened to our side, item by item, in the order done.
    std::vector<MergeLine> lines;
    bool changed() const noexcept { return !lines.empty() || deletionRecordsAdded > 0; }
};

// The fixed words for one line of a summary: "Added", "Updated from the other copy", ...
std::string_view describe(MergeEvent event) noexcept;

// Turns `mine` into the merge of mine and theirs, through the document's own primitives (so an observer hears
// every step, and a journal can undo it). `ancestor` is the version both grew from; without one, every difference
// counts as a change on both sides and modification times decide. Attachments brought in from theirs are added
// to mine's pool (sharing an equal one already there). Never throws on odd input: items without a UUID are left
// alone.
//
// Rules: a change on one side is taken; an entry changed on both keeps the later version current and puts the
// other into its history; an item deleted on one side is deleted unless the other changed it after the deletion
// time; a move and an edit both apply, and items whose new group the other side deleted land in the Recycle Bin;
// histories are joined by modification time without duplicates and cut to the history limit; deletion records of
// both sides are kept.
MergeSummary merge(Document& mine, std::vector<kdbx::InnerBinary>* minePool, const DocumentSide& theirs,
                   const DocumentSide* ancestor);

} // namespace quillon::model
