// model/History.h: earlier versions of an entry, kept within the database's history limit.
#pragma once

#include "model/Entry.h"

#include <string_view>

namespace quillon::model {

// Appends a copy of the entry's present state (without its History) as the newest version, then drops
// the oldest versions beyond the limit.
void snapshot(const Entry& entry);

// Makes the version current. The present state is kept as a version first, so both stay in history;
// UUID, Times, History and PreviousParentGroup are left in place.
void restoreVersion(const Entry& entry, const Entry& version);

// What the editor does when a field's editing ends: nothing when the text is unchanged, otherwise a
// snapshot and then the write. Password is written protected, Notes and custom fields keep their
// protection, Title, UserName and URL are written unprotected. Returns whether anything changed.
bool editField(const Entry& entry, std::string_view name, std::string_view text);

} // namespace quillon::model
