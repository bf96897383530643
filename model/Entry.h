// model/Entry.h: a thin handle on one Entry element of the live document.
#pragma once

#include "model/Encodings.h"

#include <pugixml.hpp>

#include <array>
#include <optional>
#include <string_view>
#include <vector>

namespace quillon::model {

class Document;
class Group;

// Views into the tree stay valid until the tree changes.
struct CustomField {
    std::string_view name;
    std::string_view value;
    bool isProtected = false;
};

inline constexpr std::array<std::string_view, 5> standardFieldNames = {"Title", "UserName", "Password", "URL",
                                                                        "Notes"};
bool isStandardField(std::string_view name) noexcept;

class Entry {
public:
    Entry(pugi::xml_node element, Document& document) noexcept : element_(element), document_(&document) {}

    pugi::xml_node element() const noexcept { return element_; }
    Document& document() const noexcept { return *document_; }

    std::string_view uuid() const;
    // Two views are the same item when their UUID texts are equal.
    bool sameItem(const Entry& other) const { return uuid() == other.uuid(); }

    // The Value of the first String whose Key is the name; absent without such a String or Value.
    std::optional<std::string_view> field(std::string_view name) const;
    std::string_view title() const { return field("Title").value_or(""); }
    std::string_view userName() const { return field("UserName").value_or(""); }
    std::string_view password() const { return field("Password").value_or(""); }
    std::string_view url() const { return field("URL").value_or(""); }
    std::string_view notes() const { return field("Notes").value_or(""); }
    bool isFieldProtected(std::string_view name) const;
    bool notesProtected() const { return isFieldProtected("Notes"); }

    // Filters the text for XML, writes it (appending a new String when the field is missing), sets or
    // removes Protected="True", then touches the modification time. False, and nothing touched, when the
    // field already reads so.
    bool setField(std::string_view name, std::string_view text, bool isProtected) const;
    // Removes every String with that Key; touches the modification time when one was removed.
    bool removeField(std::string_view name) const;
    std::vector<CustomField> customFields() const;

    std::optional<Time> creationTime() const;
    std::optional<Time> lastModificationTime() const;
    std::optional<Time> lastAccessTime() const;
    std::optional<Time> locationChanged() const;
    // ExpiryTime, counted only while Expires is true.
    std::optional<Time> expiry() const;
    // With none, Expires becomes False and ExpiryTime stays; an entry without Times is left alone. False
    // when nothing changed.
    bool setExpiry(std::optional<Time> when) const;
    void touch() const;

    std::size_t attachmentCount() const;
    // Earlier versions, oldest first.
    std::vector<Entry> history() const;
    bool isHistoryVersion() const;
    // The group the entry sits in; none for a history version or a detached element.
    std::optional<Group> parent() const;
    std::string_view previousParentGroup() const;

private:
    pugi::xml_node findString(std::string_view name) const;

    pugi::xml_node element_;
    Document* document_;
};

} // namespace quillon::model
