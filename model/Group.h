// model/Group.h: a thin handle on one Group element of the live document.
#pragma once

#include "model/Encodings.h"
#include "model/Entry.h"

#include <pugixml.hpp>

#include <optional>
#include <string_view>
#include <vector>

namespace quillon::model {

class Document;

class Group {
public:
    Group(pugi::xml_node element, Document& document) noexcept : element_(element), document_(&document) {}

    pugi::xml_node element() const noexcept { return element_; }
    Document& document() const noexcept { return *document_; }

    std::string_view uuid() const;
    bool sameItem(const Group& other) const { return uuid() == other.uuid(); }

    std::string_view name() const;
    // Filters the text for XML; does not touch the group's times. False when the name already reads so.
    bool rename(std::string_view name) const;
    std::optional<int> iconId() const;
    // The group's own EnableSearching: true or false in any case; anything else is no answer.
    std::optional<bool> enableSearching() const;
    std::string_view previousParentGroup() const;

    std::optional<Time> creationTime() const;
    std::optional<Time> lastModificationTime() const;
    std::optional<Time> locationChanged() const;
    void touch() const;

    std::optional<Group> parent() const;
    // True when other is this group or lies anywhere below it.
    bool containsOrIs(const Group& other) const noexcept;
    bool containsOrIs(const Entry& other) const noexcept;

    std::vector<Group> groups() const;
    std::vector<Entry> entries() const;
    // Every entry below: the group's own first, then each child group's by the same rule; no history.
    std::vector<Entry> allEntries() const;
    // Every group below, in the same order; the group itself is not included.
    std::vector<Group> allGroups() const;
    // Entries of groups whose searching is on, inheriting from the parent and starting as on.
    std::vector<Entry> searchableEntries() const;

private:
    pugi::xml_node element_;
    Document* document_;
};

} // namespace quillon::model
