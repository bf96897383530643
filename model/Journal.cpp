#include "model/Journal.h"

#include "model/Nodes.h"

namespace quillon::model {
namespace {

bool isItem(pugi::xml_node node) noexcept
{
    return nodes::isNamed(node, "Entry") || nodes::isNamed(node, "Group");
}

std::uint32_t childCount(pugi::xml_node parent)
{
    std::uint32_t count = 0;
    for (auto n = parent.first_child(); n; n = n.next_sibling())
        ++count;
    return count;
}

std::vector<std::uint32_t> pathOf(Document &document, pugi::xml_node node)
{
    std::vector<std::uint32_t> path;
    for (auto n = node; n && n.parent(); n = n.parent())
        path.push_back(document.positionOf(n));
    return {path.rbegin(), path.rend()};
}

pugi::xml_node nodeAt(Document &document, const std::vector<std::uint32_t> &path)
{
    pugi::xml_node n = document.xml();
    for (const auto index : path)
        n = document.childAt(n, index);
    return n;
}

// The sibling that `element` must precede to sit at `index` among the parent's other children.
pugi::xml_node placeBefore(pugi::xml_node parent, pugi::xml_node element, std::uint32_t index)
{
    for (auto n = parent.first_child(); n; n = n.next_sibling()) {
        if (n == element)
            continue;
        if (index == 0)
            return n;
        --index;
    }
    return {};
}

// Own content is kept as <c> with the attributes on <a> and each other child in a <p n="k">, k being the
// number of items ahead of it, so that it returns to the same place among the items that stay.
void restoreContent(Document &document, pugi::xml_node element, pugi::xml_node saved)
{
    const Document::ContentChange change(document, element);
    while (auto a = element.first_attribute())
        element.remove_attribute(a);
    for (const auto a : saved.child("a").attributes())
        element.append_copy(a);
    for (auto child = element.first_child(); child;) {
        const auto next = child.next_sibling();
        if (!isItem(child))
            nodes::remove(child);
        child = next;
    }
    std::vector<pugi::xml_node> items;
    for (const auto child : element.children())
        items.push_back(child);
    for (const auto part : saved.children("p")) {
        const auto k = part.attribute("n").as_ullong();
        if (k < items.size())
            element.insert_copy_before(part.first_child(), items[k]);
        else
            element.append_copy(part.first_child());
    }
}

} // namespace

Journal::Journal() : store_(std::make_unique<pugi::xml_document>()) {}

Journal::~Journal()
{
    // Copies of secrets: freed from the leaves up like any large tree, into the wiping heap.
    while (const auto child = store_->first_child())
        nodes::remove(child);
}

pugi::xml_node Journal::captureContent(pugi::xml_node element)
{
    auto saved = store_->append_child("c");
    auto attributes = saved.append_child("a");
    for (const auto a : element.attributes())
        attributes.append_copy(a);
    unsigned long long items = 0;
    for (const auto child : element.children()) {
        if (isItem(child)) {
            ++items;
            continue;
        }
        auto part = saved.append_child("p");
        part.append_attribute("n").set_value(items);
        part.append_copy(child);
    }
    return saved;
}

void Journal::closeOpen()
{
    for (const auto &[node, index] : openContent_) {
        auto &record = records_[index];
        record.after = captureContent(record.open);
        record.open = {};
    }
    openContent_.clear();
}

void Journal::finish()
{
    closeOpen();
}

void Journal::aboutToChangeContent(pugi::xml_node element)
{
    if (openContent_.contains(element.internal_object()))
        return;
    Record record;
    record.kind = Kind::content;
    record.path = pathOf(*document_, element);
    record.before = captureContent(element);
    record.open = element;
    records_.push_back(std::move(record));
    openContent_.emplace(element.internal_object(), records_.size() - 1);
}

void Journal::contentChanged(pugi::xml_node) {}

void Journal::aboutToInsert(pugi::xml_node parent, pugi::xml_node before, pugi::xml_node prototype)
{
    closeOpen();
    Record record;
    record.kind = Kind::insert;
    record.path = pathOf(*document_, parent);
    record.index = before ? document_->positionOf(before) : childCount(parent);
    record.after = store_->append_copy(prototype);
    records_.push_back(std::move(record));
}

void Journal::inserted(pugi::xml_node) {}

void Journal::aboutToRemove(pugi::xml_node element)
{
    closeOpen();
    Record record;
    record.kind = Kind::remove;
    record.path = pathOf(*document_, element.parent());
    record.index = document_->positionOf(element);
    record.before = store_->append_copy(element);
    records_.push_back(std::move(record));
}

void Journal::removed(pugi::xml_node) {}

void Journal::aboutToMove(pugi::xml_node element, pugi::xml_node newParent, pugi::xml_node)
{
    closeOpen();
    Record record;
    record.kind = Kind::move;
    record.path = pathOf(*document_, element);
    record.index = document_->positionOf(element);
    record.targetBefore = pathOf(*document_, newParent);
    records_.push_back(std::move(record));
}

void Journal::moved(pugi::xml_node element, pugi::xml_node oldParent)
{
    auto &record = records_.back();
    record.elementAfter = pathOf(*document_, element);
    record.sourceAfter = pathOf(*document_, oldParent);
}

void Journal::undo(Document &document) const
{
    for (auto r = records_.rbegin(); r != records_.rend(); ++r) {
        switch (r->kind) {
        case Kind::content:
            restoreContent(document, nodeAt(document, r->path), r->before);
            break;
        case Kind::insert:
            document.removeElement(document.childAt(nodeAt(document, r->path), r->index));
            break;
        case Kind::remove: {
            const auto parent = nodeAt(document, r->path);
            document.insertElement(parent, document.childAt(parent, r->index), r->before);
            break;
        }
        case Kind::move: {
            const auto element = nodeAt(document, r->elementAfter);
            const auto parent = nodeAt(document, r->sourceAfter);
            document.moveElement(element, parent, placeBefore(parent, element, r->index));
            break;
        }
        }
    }
}

void Journal::redo(Document &document) const
{
    for (const auto &r : records_) {
        switch (r.kind) {
        case Kind::content:
            restoreContent(document, nodeAt(document, r.path), r.after);
            break;
        case Kind::insert: {
            const auto parent = nodeAt(document, r.path);
            document.insertElement(parent, document.childAt(parent, r.index), r.after);
            break;
        }
        case Kind::remove:
            document.removeElement(document.childAt(nodeAt(document, r.path), r.index));
            break;
        case Kind::move: {
            const auto element = nodeAt(document, r.path);
            const auto parent = nodeAt(document, r.targetBefore);
            const auto at = r.elementAfter.empty() ? 0 : r.elementAfter.back();
            document.moveElement(element, parent, placeBefore(parent, element, at));
            break;
        }
        }
    }
}

} // namespace quillon::model
