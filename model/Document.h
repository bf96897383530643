// model/Document.h: the decrypted XML document as the single source of truth, with an injectable clock.
#pragma once

#include "model/Encodings.h"

#include <pugixml.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace quillon::model {

class Entry;
class Group;

// Told of every change made to the tree through the model, in the order made. Items (Entry and Group
// elements) arrive and leave whole; an element's own content is everything but the items below it.
class DocumentObserver {
public:
    virtual ~DocumentObserver() = default;
    // `before` is the sibling the new element will precede; null to append.
    virtual void aboutToInsert(pugi::xml_node parent, pugi::xml_node before, pugi::xml_node prototype) = 0;
    virtual void inserted(pugi::xml_node element) = 0;
    virtual void aboutToRemove(pugi::xml_node element) = 0;
    virtual void removed(pugi::xml_node parent) = 0;
    virtual void aboutToMove(pugi::xml_node element, pugi::xml_node newParent, pugi::xml_node before) = 0;
    virtual void moved(pugi::xml_node element, pugi::xml_node oldParent) = 0;
    // Before the element's own content changes; may come more than once for one change.
    virtual void aboutToChangeContent(pugi::xml_node element) = 0;
    virtual void contentChanged(pugi::xml_node element) = 0;
};

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

    // None by default; the observer must outlive its registration.
    void setObserver(DocumentObserver* observer) noexcept { observer_ = observer; }
    DocumentObserver* observer() const noexcept { return observer_; }

    // Moves on every change made through the model, and only then, so that anything cached from the tree
    // knows when to refresh. Code that changes the tree directly calls changed() itself.
    std::uint64_t revision() const noexcept { return revision_; }
    // A change that may add, remove or move items, or change anything outside one entry's own children.
    void changed() noexcept;
    // A change that adds, moves, reorders or files away whole items (into the bin, back out of it) and
    // frees no element: the fields of every entry already there stay as they were, so a cache of entry
    // texts keeps them. A new entry's fields are listed through entryChanged.
    void structureChanged() noexcept;
    // A change confined to the children of one entry (its fields, times, history). Such changes are
    // listed, so that a cache can refresh only those entries; the list is short-lived and bounded.
    void entryChanged(pugi::xml_node entry) noexcept;

    // The only ways the model changes the tree; each tells the observer and moves the revision.
    // Inserts a copy of the prototype (which may live in another document) ahead of `before`, or last.
    pugi::xml_node insertElement(pugi::xml_node parent, pugi::xml_node before, pugi::xml_node prototype);
    // Lands ahead of `before`, a child of newParent, or last; the element keeps its identity.
    void moveElement(pugi::xml_node element, pugi::xml_node newParent, pugi::xml_node before);
    // Frees the element and everything below it.
    void removeElement(pugi::xml_node element);
    // Brackets a change of an element's own content (its attributes and every child but items).
    class ContentChange {
    public:
        ContentChange(Document& document, pugi::xml_node element);
        ~ContentChange();
        ContentChange(const ContentChange&) = delete;
        ContentChange& operator=(const ContentChange&) = delete;

    private:
        Document& document_;
        pugi::xml_node element_;
    };
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

    // An element's position among its parent's children, and the child at a position. The undo journal names
    // elements by position, and a group may hold tens of thousands of children, so each group's order is
    // kept once counted until its children change.
    std::uint32_t positionOf(pugi::xml_node node);
    pugi::xml_node childAt(pugi::xml_node parent, std::uint32_t position);
    // Counts the children of every group now, for example on the thread that decoded the tree.
    void countPositions();

    pugi::xml_node meta() const;
    pugi::xml_node root() const;
    // The text of a Meta child, absent when the element is missing.
    std::optional<std::string_view> metaText(const char* name) const;
    // Writes a Meta child, created at the end of Meta (and Meta itself when missing); the same text
    // changes nothing.
    void setMetaText(const char* name, std::string_view text);

    // The first Group under Root.
    std::optional<Group> topGroup();
    // First in document order whose UUID text is the given text; an empty or all-zero UUID finds nothing.
    std::optional<Group> findGroup(std::string_view uuid);
    // Current entries only; versions in History are not items of their own.
    std::optional<Entry> findEntry(std::string_view uuid);

    Group group(pugi::xml_node element);
    Entry entry(pugi::xml_node element);

    // New items are appended as the last child of the parent; the text is filtered for XML.
    Entry newEntry(const Group& parent, std::string_view title);
    Group newGroup(const Group& parent, std::string_view name);

    // The limit used when pruning history: missing, unparseable or negative means no limit.
    std::optional<std::size_t> historyLimit() const;
    // The settings form's reading: missing or unparseable reads -1, otherwise the number as it is.
    std::int64_t historyMaxItems() const;
    void setHistoryMaxItems(std::int64_t value);

private:
    struct Children {
        std::vector<pugi::xml_node> nodes;
        std::unordered_map<const void*, std::uint32_t> positions;
    };
    const Children& childrenOf(pugi::xml_node group);
    void forgetChildren(pugi::xml_node parent) noexcept { children_.erase(parent.internal_object()); }
    void bumpStructure() noexcept { structuralRevision_ = ++revision_; }

    pugi::xml_document* xml_;
    Clock clock_;
    DocumentObserver* observer_ = nullptr;
    std::uint64_t revision_ = 0;
    std::uint64_t structuralRevision_ = 0;
    std::uint64_t contentRevision_ = 0;
    std::vector<std::pair<std::uint64_t, pugi::xml_node>> changedEntries_;
    // By group element.
    std::unordered_map<const void*, Children> children_;
};

} // namespace quillon::model
