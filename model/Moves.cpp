#include "model/Moves.h"

#include "model/Document.h"
#include "model/Nodes.h"
#include "model/RecycleBin.h"

namespace quillon::model {
namespace {

bool isBinGroup(const Group &group)
{
    const auto bin = findBin(group.document());
    return bin && bin->element() == group.element();
}

// The next sibling of the same kind: the place an item already holds when `before` names it.
pugi::xml_node nextOfKind(pugi::xml_node item)
{
    return item.next_sibling(item.name());
}

bool reorderNode(Document &document, pugi::xml_node item, pugi::xml_node before)
{
    auto parent = item.parent();
    if (item == before || !parent || parent.type() != pugi::node_element)
        return false;
    if (before && before.parent() != parent)
        return false;
    if (nextOfKind(item) == before)
        return false;
    document.moveElement(item, parent, before);
    return true;
}

MoveResult deleteByMove(DeleteResult result)
{
    switch (result) {
    case DeleteResult::movedToBin:
        return MoveResult::movedToBin;
    case DeleteResult::deletedPermanently:
        return MoveResult::deletedPermanently;
    case DeleteResult::refusedTopGroup:
    case DeleteResult::refusedHoldsBin:
    case DeleteResult::refusedAlreadyEmpty:
        return MoveResult::refused;
    }
    return MoveResult::refused;
}

} // namespace

bool moveDeletesPermanently(const Entry &entry, const Group &target)
{
    return entry.element().parent() != target.element() && isBinGroup(target) && !isInsideBin(entry) &&
           !isBinEnabled(entry.document());
}

bool moveDeletesPermanently(const Group &group, const Group &target)
{
    return canMoveGroup(group, target) && group.element().parent() != target.element() && isBinGroup(target) &&
           !isInsideBin(group) && !isBinEnabled(group.document());
}

MoveResult moveEntry(const Entry &entry, const Group &target)
{
    if (entry.element().parent() == target.element())
        return MoveResult::refused;
    if (isBinGroup(target) && !isInsideBin(entry))
        return deleteByMove(deleteEntry(entry));
    auto &document = entry.document();
    document.moveElement(entry.element(), target.element(), {});
    const Document::ContentChange change(document, entry.element());
    nodes::stampTime(entry.element(), "LocationChanged", document.now());
    return MoveResult::moved;
}

bool canMoveGroup(const Group &group, const Group &target)
{
    const auto top = group.document().topGroup();
    if (top && top->element() == group.element())
        return false;
    if (group.containsOrIs(target))
        return false;
    if (isBinGroup(group) && group.element().parent() != target.element())
        return false;
    return true;
}

MoveResult moveGroup(const Group &group, const Group &target, const std::optional<Group> &before)
{
    if (!canMoveGroup(group, target) || (before && before->element() == group.element()))
        return MoveResult::refused;
    if (before && before->element().parent() != target.element())
        return MoveResult::refused;
    const auto oldParent = group.element().parent();
    if (isBinGroup(target) && oldParent != target.element() && !isInsideBin(group))
        return deleteByMove(deleteGroup(group));
    const auto beforeNode = before ? before->element() : pugi::xml_node();
    if (oldParent == target.element() && nextOfKind(group.element()) == beforeNode)
        return MoveResult::refused;
    auto &document = group.document();
    document.moveElement(group.element(), target.element(), beforeNode);
    if (oldParent != target.element()) {
        const Document::ContentChange change(document, group.element());
        nodes::stampTime(group.element(), "LocationChanged", document.now());
    }
    return MoveResult::moved;
}

bool reorder(const Entry &item, const std::optional<Entry> &before)
{
    return reorderNode(item.document(), item.element(), before ? before->element() : pugi::xml_node());
}

bool reorder(const Group &item, const std::optional<Group> &before)
{
    return reorderNode(item.document(), item.element(), before ? before->element() : pugi::xml_node());
}

} // namespace quillon::model
