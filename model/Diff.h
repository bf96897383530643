// model/Diff.h: what changed between two versions of a database, item by item, matched by UUID.
#pragma once

#include "kdbx/SecureBytes.h"
#include "model/Encodings.h"
#include "model/ItemIndex.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace quillon::model {

enum class ItemChange : std::uint8_t { added, removed, changed };

// One field of an entry. Texts are given only for fields that are not protected, or when asked for.
struct FieldChange {
    std::string name;
    ItemChange change = ItemChange::changed;
    bool isProtected = false; // on either side
    std::optional<kdbx::SecureBytes> before;
    std::optional<kdbx::SecureBytes> after;
};

struct EntryChange {
    std::string uuid;
    std::string title;
    // The group path (names from below the top group, joined by "/") where the entry is now, or was.
    std::string path;
    ItemChange change = ItemChange::changed;
    // A removed entry's deletion record in the newer version; none when it was removed without one.
    std::optional<Time> deletedAt;
    bool moved = false;
    std::string movedFrom; // group path before a move
    std::vector<FieldChange> fields;
    std::vector<std::string> attachmentsAdded;
    std::vector<std::string> attachmentsRemoved;
    std::vector<std::string> attachmentsChanged;
    bool expiryChanged = false;
    std::optional<Time> expiryBefore;
    std::optional<Time> expiryAfter;
    // The one-time password setting (the "otp" field, or another program's TOTP fields) changed.
    bool oneTimeChanged = false;
    std::size_t historyAdded = 0;
    // Other elements (icon, tags, auto-type, custom data) that differ, by element name.
    std::vector<std::string> otherChanged;
};

struct GroupChange {
    std::string uuid;
    std::string name;
    std::string path;
    ItemChange change = ItemChange::changed;
    std::optional<Time> deletedAt;
    bool moved = false;
    std::string movedFrom;
    bool renamed = false;
    std::string oldName;
    std::vector<std::string> otherChanged;
};

// A database setting or a piece of metadata, by its element name in Meta.
struct SettingChange {
    std::string name;
    std::string before; // empty when absent, or for settings too large to show (shown as changed)
    std::string after;
};

struct DiffOptions {
    // Show the texts of protected fields.
    bool revealProtected = false;
};

struct Diff {
    std::vector<GroupChange> groups;
    std::vector<EntryChange> entries;
    std::vector<SettingChange> settings;
    bool empty() const noexcept { return groups.empty() && entries.empty() && settings.empty(); }
};

// Items in the order of the newer version, then the removed ones in the order of the older. A move is reported
// only when the parent group differs; reordering within a group is not a change.
Diff diff(const DocumentSide& before, const DocumentSide& after, const DiffOptions& options = {});

// The path of a group, names below the top group joined with "/"; empty for the top group.
std::string groupPathOf(pugi::xml_node group);

} // namespace quillon::model
