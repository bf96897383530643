// model/Journal.h: the exact record of one change to the tree, so that it can be undone and redone.
#pragma once

#include "model/Document.h"

#include <pugixml.hpp>

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

namespace quillon::model {

// Listens to a document while one change is made and keeps what it needs to put the tree back exactly:
// copies of elements' own content before and after, of inserted and removed elements, and where moved
// elements were. Elements are found again by their position from the document node, which holds because
// undo and redo replay journals strictly in stack order, each on the very tree it recorded.
//
// The copies live in a document of the journal's own, allocated like every tree through the wiping heap.
class Journal final : public DocumentObserver
{
public:
    Journal();
    ~Journal() override;
    Journal(const Journal &) = delete;
    Journal &operator=(const Journal &) = delete;

    // The document whose changes are recorded, which names elements by position; set before the first.
    void recordOn(Document &document) noexcept { document_ = &document; }

    void aboutToInsert(pugi::xml_node parent, pugi::xml_node before, pugi::xml_node prototype) override;
    void inserted(pugi::xml_node element) override;
    void aboutToRemove(pugi::xml_node element) override;
    void removed(pugi::xml_node parent) override;
    void aboutToMove(pugi::xml_node element, pugi::xml_node newParent, pugi::xml_node before) override;
    void moved(pugi::xml_node element, pugi::xml_node oldParent) override;
    void aboutToChangeContent(pugi::xml_node element) override;
    void contentChanged(pugi::xml_node element) override;

    // Takes the after-copies of content still open; call when the change is complete.
    void finish();
    bool empty() const noexcept { return records_.empty(); }

    // Through the document's primitives, so that its observer hears of every step.
    void undo(Document &document) const;
    void redo(Document &document) const;

private:
    using Path = std::vector<std::uint32_t>;
    enum class Kind : std::uint8_t { content, insert, remove, move };
    struct Record {
        Kind kind = Kind::content;
        Path path;               // content: the element; insert/remove: the parent; move: the element before
        std::uint32_t index = 0; // insert/remove: position in the parent; move: position before
        pugi::xml_node before;   // content: own content before; remove: the element
        pugi::xml_node after;    // content: own content after; insert: the element
        Path targetBefore;       // move: the new parent, before the move
        Path elementAfter;       // move: the element, after the move
        Path sourceAfter;        // move: the old parent, after the move
        pugi::xml_node open;     // content: the live element while its record is open
    };

    void closeOpen();
    pugi::xml_node captureContent(pugi::xml_node element);

    Document *document_ = nullptr;
    std::unique_ptr<pugi::xml_document> store_;
    std::vector<Record> records_;
    std::unordered_map<pugi::xml_node_struct *, std::size_t> openContent_;
};

} // namespace quillon::model
