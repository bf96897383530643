// model/RecycleBin.h: deleting to the Recycle Bin, deleting for good with deletion records, restoring.
#pragma once

#include "model/Document.h"
#include "model/Entry.h"
#include "model/Group.h"

#include <optional>
#include <string_view>

namespace quillon::model {

enum class DeleteResult {
    movedToBin,
    deletedPermanently,
    refusedTopGroup,
    refusedHoldsBin,
    refusedAlreadyEmpty,
};

// The words every front end shows for a refusal, so the command line and the windows agree.
inline constexpr std::string_view topGroupRefusal = "The top-level group can't be deleted.";
inline constexpr std::string_view holdsBinRefusal = "That group holds the Recycle Bin, so it can't be deleted.";
inline constexpr std::string_view alreadyEmptyRefusal = "The Recycle Bin is already empty.";
inline constexpr std::string_view movedToBinStatus = "Moved to Recycle Bin";
inline constexpr std::string_view restoredStatus = "Restored";
// Empty for results that are not refusals.
std::string_view refusalText(DeleteResult result) noexcept;

inline constexpr std::string_view recycleBinName = "Recycle Bin";
inline constexpr int recycleBinIconId = 43;

// Off only when Meta/RecycleBinEnabled reads "false" in any case.
bool isBinEnabled(const Document& document);
std::optional<Group> findBin(Document& document);
// Makes the bin as the last child of the top group when there is none; none without a top group.
std::optional<Group> findOrMakeBin(Document& document);
bool isInsideBin(const Entry& entry);
bool isInsideBin(const Group& group);

// Moves to the bin, or deletes for good when the bin is off, cannot be made or already holds the entry.
DeleteResult deleteEntry(const Entry& entry);
// Deleting the bin itself empties it and keeps it.
DeleteResult deleteGroup(const Group& group);
// Removes the item and records it, and every current entry and group below it, in DeletedObjects.
void deletePermanently(const Entry& entry);
void deletePermanently(const Group& group);
// Deletes everything in the bin for good; refusedAlreadyEmpty (and no change) when there is nothing.
DeleteResult emptyBin(Document& document);

// Puts the item back in the group it was deleted from, or in the top group when that group is gone,
// is the item itself or lies inside it or inside the bin.
bool restore(const Entry& entry);
bool restore(const Group& group);

// Moves the item in as the bin's last child, recording the group it came from.
void moveIntoBin(pugi::xml_node item, const Group& bin);

} // namespace quillon::model
