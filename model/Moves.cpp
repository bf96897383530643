#include "model/Moves.h"

#include "model/Document.h"
#include "model/Nodes.h"
#include "model/RecycleBin.h"

namespace quillon::model {
namespace {

bool isBinGroup(const Group& group)
{
    const auto bin = findBin(group.document());
    return bin && bin->element() == group.element();
}

bool reorderNode(pugi::xml_node item, pugi::xml_node before)
{
    auto parent = item.parent();
    if (item == before || !parent || parent.type() != pugi::node_element)
        return false;
    if (before) {
        if (before.parent() != parent)
            return false;
        return bool(parent.insert_move_before(item, before));
    }
    return bool(parent.append_move(item));
}

} // namespace

bool moveEntry(const Entry& entry, const Group& target)
{
    entry.document().structureChanged();
    if (entry.element().parent() == target.element())
        return false;
    if (isBinGroup(target) && !isInsideBin(entry)) {
        deleteEntry(entry);
        return true;
    }
    if (!target.element().append_move(entry.element()))
        return false;
    nodes::stampTime(entry.element(), "LocationChanged", entry.document().now());
    return true;
}

bool canMoveGroup(const Group& group, const Group& target)
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

bool moveGroup(const Group& group, const Group& target, const std::optional<Group>& before)
{
    group.document().structureChanged();
    if (!canMoveGroup(group, target) || (before && before->element() == group.element()))
        return false;
    const auto oldParent = group.element().parent();
    if (isBinGroup(target) && oldParent != target.element() && !isInsideBin(group)) {
        deleteGroup(group);
        return true;
    }
    if (before) {
        if (before->element().parent() != target.element())
            return false;
        if (!target.element().insert_move_before(group.element(), before->element()))
            return false;
    } else if (!target.element().append_move(group.element())) {
        return false;
    }
    if (oldParent != target.element())
        nodes::stampTime(group.element(), "LocationChanged", group.document().now());
    return true;
}

bool reorder(const Entry& item, const std::optional<Entry>& before)
{
    item.document().structureChanged();
    return reorderNode(item.element(), before ? before->element() : pugi::xml_node());
}

bool reorder(const Group& item, const std::optional<Group>& before)
{
    item.document().structureChanged();
    return reorderNode(item.element(), before ? before->element() : pugi::xml_node());
}

} // namespace quillon::model
