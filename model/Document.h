// model/Document.h: the decrypted XML document as the single source of truth, with an injectable clock.
#pragma once

#include "model/Encodings.h"

#include <pugixml.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace quillon::model {

class Entry;
class Group;

// A non-owning view of one database's tree. Views handed out (Group, Entry) point back here, so the
// Document must outlive them and must not move. Nothing here throws or copies the tree.
class Document {
public:
    using Clock = std::function<kdbx::SystemTime()>;

    explicit Document(pugi::xml_document& xml, Clock clock = {});
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;

    pugi::xml_document& xml() const noexcept { return *xml_; }
    Time now() const;

    // Moves on every change made through the model, so that anything cached from the tree knows when to
    // refresh. Code that changes the tree directly calls changed() itself.
    std::uint64_t revision() const noexcept { return revision_; }
    // A change that may add, remove or move items, or change anything outside one entry's own children.
    void changed() const noexcept;
    // A change that adds, moves, reorders or files away whole items (into the bin, back out of it) and
    // frees no element: the fields of every entry already there stay as they were, so a cache of entry
    // texts keeps them. A new entry's fields are listed through entryChanged.
    void structureChanged() const noexcept;
    // A change confined to the children of one entry (its fields, times, history). Such changes are
    // listed, so that a cache can refresh only those entries; the list is short-lived and bounded.
    void entryChanged(pugi::xml_node entry) const noexcept;
    // Visits, oldest first, the entries changed after revision `since` and returns true; returns false
    // without visiting when a change other than entry and structure changes happened since then
    // (refresh everything).
    template <class Visit>
    bool forEachEntryChangedSince(std::uint64_t since, Visit&& visit) const
    {
        if (since < contentRevision_)
            return false;
        for (const auto& [revision, entry] : changedEntries_)
            if (revision > since)
                visit(entry);
        return true;
    }
    // True when items moved or were filed away after revision `since` (or anything else changed).
    bool structureChangedSince(std::uint64_t since) const noexcept { return since < structuralRevision_; }

    pugi::xml_node meta() const;
    pugi::xml_node root() const;
    // The text of a Meta child, absent when the element is missing.
    std::optional<std::string_view> metaText(const char* name) const;
    // Writes a Meta child, created at the end of Meta (and Meta itself when missing).
    void setMetaText(const char* name, std::string_view text) const;

    // The first Group under Root.
    std::optional<Group> topGroup() const;
    // First in document order whose UUID text is the given text; an empty or all-zero UUID finds nothing.
    std::optional<Group> findGroup(std::string_view uuid) const;
    // Current entries only; versions in History are not items of their own.
    std::optional<Entry> findEntry(std::string_view uuid) const;

    Group group(pugi::xml_node element) const;
    Entry entry(pugi::xml_node element) const;

    // New items are appended as the last child of the parent.
    Entry newEntry(const Group& parent, std::string_view title) const;
    Group newGroup(const Group& parent, std::string_view name) const;

    // The limit used when pruning history: missing, unparseable or negative means no limit.
    std::optional<std::size_t> historyLimit() const;
    // The settings form's reading: missing or unparseable reads -1, otherwise the number as it is.
    std::int64_t historyMaxItems() const;
    void setHistoryMaxItems(std::int64_t value) const;

private:
    pugi::xml_document* xml_;
    Clock clock_;
    mutable std::uint64_t revision_ = 0;
    mutable std::uint64_t structuralRevision_ = 0;
    mutable std::uint64_t contentRevision_ = 0;
    mutable std::vector<std::pair<std::uint64_t, pugi::xml_node>> changedEntries_;
};

} // namespace quillon::model
