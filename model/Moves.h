// model/Moves.h: moving entries and groups between groups and ordering them among their siblings.
#pragma once

#include "model/Entry.h"
#include "model/Group.h"

#include <optional>

namespace quillon::model {

// False when the target is already the parent. Moving onto the Recycle Bin from outside deletes.
bool moveEntry(const Entry& entry, const Group& target);

// The drop rule: never the top group, never into itself or below itself, and the bin stays where it is.
bool canMoveGroup(const Group& group, const Group& target);
// Lands directly ahead of before, which must be a child of the target; appends without it.
bool moveGroup(const Group& group, const Group& target, const std::optional<Group>& before = std::nullopt);

// Reordering among siblings leaves LocationChanged and modification times alone.
bool reorder(const Entry& item, const std::optional<Entry>& before);
bool reorder(const Group& item, const std::optional<Group>& before);

} // namespace quillon::model
