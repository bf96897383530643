// model/ItemIndex.h: every item of a document by UUID, with a digest of its content, for comparing and merging.
#pragma once

#include "kdbx/InnerHeader.h"
#include "model/Document.h"
#include "model/Encodings.h"

#include <pugixml.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quillon::model {

// One document as compared or merged: the tree and, when known, the file's attachment pool, so that
// attachments compare by content rather than by their position in a pool.
struct DocumentSide {
    Document& document;
    const std::vector<kdbx::InnerBinary>* binaries = nullptr;
};

struct ItemRecord {
    pugi::xml_node element;
    std::string parent; // UUID of the parent group; empty for the top group
    // The item's own content: for an entry everything but its times, history and previous parent (fields and
    // attachments in any order); for a group everything but its times, items and what only a window keeps.
    std::uint64_t digest = 0;
    std::optional<Time> modified;
    std::optional<Time> locationChanged;
};

// Built in one walk without recursion; the records point into the tree, which must not change meanwhile except
// through the owner (the merge keeps it up to date).
class ItemIndex {
public:
    explicit ItemIndex(const DocumentSide& side);

    std::unordered_map<std::string, ItemRecord> entries;
    std::unordered_map<std::string, ItemRecord> groups;
    // Document order, parents before children.
    std::vector<std::string> entryOrder;
    std::vector<std::string> groupOrder;
    // Deletion records: the latest time for each UUID.
    std::unordered_map<std::string, Time> deletions;
    std::string topGroup;
    std::string bin;

    // The digest of any entry element of this document, history versions included.
    std::uint64_t entryDigest(pugi::xml_node entry) const;
    // A digest of an attachment's content: its size and bytes; 0 when the reference does not resolve.
    std::uint64_t attachmentDigest(pugi::xml_node binary) const;

    // The digest, UUID and times of an entry element, in one walk.
    struct Scan {
        std::string_view uuid;
        std::uint64_t digest = 0;
        std::optional<Time> modified;
        std::optional<Time> locationChanged;
    };
    Scan scanEntry(pugi::xml_node entry) const;

private:
    std::vector<std::uint64_t> pool_;
};

std::uint64_t groupDigest(pugi::xml_node group);
// Names, attributes and leaf texts below the element, in order.
std::uint64_t elementDigest(pugi::xml_node element);
// The key a history version is known by: its modification time and content.
struct VersionKey {
    std::int64_t modified = 0;
    std::uint64_t digest = 0;
    bool operator==(const VersionKey&) const = default;
};
VersionKey versionKey(const ItemIndex& index, pugi::xml_node entry);

} // namespace quillon::model
