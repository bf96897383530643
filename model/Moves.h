// model/Moves.h: moving entries and groups between groups and ordering them among their siblings.
#pragma once

#include "model/Entry.h"
#include "model/Group.h"

#include <optional>

namespace quillon::model {

// What a move did. A move onto the Recycle Bin from outside it deletes: into the bin, or for good when
// the bin is turned off.
enum class MoveResult { moved, movedToBin, deletedPermanently, refused };

// Whether moving the item onto target would delete it for good, so that a caller can ask first.
bool moveDeletesPermanently(const Entry& entry, const Group& target);
bool moveDeletesPermanently(const Group& group, const Group& target);

// Refused when the target is already the parent.
MoveResult moveEntry(const Entry& entry, const Group& target);

// The drop rule: never the top group, never into itself or below itself, and the bin stays where it is.
bool canMoveGroup(const Group& group, const Group& target);
// Lands directly ahead of before, which must be a child of the target; appends without it. Refused when
// nothing would change.
MoveResult moveGroup(const Group& group, const Group& target, const std::optional<Group>& before = std::nullopt);

// Reordering among siblings leaves LocationChanged and modification times alone. False, with nothing
// changed, when the item is already there.
bool reorder(const Entry& item, const std::optional<Entry>& before);
bool reorder(const Group& item, const std::optional<Group>& before);

} // namespace quillon::model
