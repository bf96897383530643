// model/Attachments.h: an entry's attachments, each a name and a reference into the file's binary pool.
#pragma once

#include "model/Entry.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace quillon::model {

struct Attachment {
    std::string_view name;
    // None when the reference is missing or not a number.
    std::optional<std::size_t> poolIndex;
};
// In document order; views into the tree, valid until it changes.
std::vector<Attachment> attachments(const Entry &entry);

// The pool index an attachment refers to; none when the entry has no attachment of that name.
std::optional<std::size_t> attachmentRef(const Entry &entry, std::string_view name);
// Adds the attachment or points the one of that name at another pool entry, then touches the entry.
// Attachments go after the fields and before AutoType and History, where other programs put them.
void setAttachment(const Entry &entry, std::string_view name, std::size_t poolIndex);
// False when there is none of that name.
bool removeAttachment(const Entry &entry, std::string_view name);

} // namespace quillon::model
