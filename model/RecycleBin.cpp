#include "model/RecycleBin.h"

#include "model/Nodes.h"

#include <string>
#include <vector>

namespace quillon::model {

std::string_view refusalText(DeleteResult result) noexcept
{
    switch (result) {
    case DeleteResult::refusedTopGroup:
        return topGroupRefusal;
    case DeleteResult::refusedHoldsBin:
        return holdsBinRefusal;
    case DeleteResult::refusedAlreadyEmpty:
        return alreadyEmptyRefusal;
    case DeleteResult::movedToBin:
    case DeleteResult::deletedPermanently:
        return {};
    }
    return {};
}

bool isBinEnabled(const Document& document)
{
    const auto text = document.metaText("RecycleBinEnabled");
    return !text || !equalsIgnoringCase(*text, "false");
}

std::optional<Group> findBin(Document& document)
{
    const auto uuid = document.metaText("RecycleBinUUID");
    if (!uuid)
        return std::nullopt;
    return document.findGroup(*uuid);
}

std::optional<Group> findOrMakeBin(Document& document)
{
    if (auto bin = findBin(document))
        return bin;
    const auto top = document.topGroup();
    if (!top)
        return std::nullopt;
    const Group bin = document.newGroup(*top, recycleBinName);
    {
        const Document::ContentChange change(document, bin.element());
        auto e = bin.element();
        e.append_child("IconID").text().set(recycleBinIconId);
        e.append_child("EnableAutoType").text().set(falseText.data(), falseText.size());
        e.append_child("EnableSearching").text().set(falseText.data(), falseText.size());
    }
    document.setMetaText("RecycleBinUUID", bin.uuid());
    document.setMetaText("RecycleBinChanged", writeTime(document.now()));
    return bin;
}

namespace {

bool hasBinAbove(pugi::xml_node item, Document& document)
{
    const auto bin = findBin(document);
    if (!bin)
        return false;
    for (auto p = item.parent(); p; p = p.parent())
        if (p == bin->element())
            return true;
    return false;
}

void appendDeletionRecord(pugi::xml_node deleted, std::string_view uuid, Time when)
{
    auto record = deleted.append_child("DeletedObject");
    record.append_child("UUID").text().set(uuid.data(), uuid.size());
    const std::string stamp = writeTime(when);
    record.append_child("DeletionTime").text().set(stamp.c_str());
}

void deleteNodePermanently(Document& document, pugi::xml_node item)
{
    const auto root = document.root();
    if (!item.parent())
        return;
    // The item, then every current entry and group below it in document order; history versions are
    // copies of an entry already recorded, not items of their own.
    std::vector<std::string> uuids;
    std::vector<pugi::xml_node> stack{item};
    while (!stack.empty()) {
        const auto node = stack.back();
        stack.pop_back();
        if (nodes::isNamed(node, "Entry") || nodes::isNamed(node, "Group")) {
            if (const auto uuid = node.child("UUID"))
                uuids.emplace_back(uuid.text().get());
        }
        for (auto c = node.last_child(); c; c = c.previous_sibling())
            if (c.type() == pugi::node_element && !nodes::isNamed(c, "History") &&
                (nodes::isNamed(c, "Entry") || nodes::isNamed(c, "Group")))
                stack.push_back(c);
    }
    if (root) {
        const Document::ContentChange change(document, root);
        auto deleted = nodes::childOrAppend(root, "DeletedObjects");
        const Time when = document.now();
        for (const auto& uuid : uuids)
            appendDeletionRecord(deleted, uuid, when);
    }
    document.removeElement(item);
}

bool restoreNode(Document& document, pugi::xml_node item)
{
    const auto top = document.topGroup();
    if (!top || nodes::isSelfOrAncestor(item, top->element()) || !item.parent())
        return false;
    auto target = document.findGroup(nodes::childText(item, "PreviousParentGroup"));
    if (!target || nodes::isSelfOrAncestor(item, target->element())) {
        target = top;
    } else if (const auto bin = findBin(document); bin && nodes::isSelfOrAncestor(bin->element(), target->element())) {
        target = top;
    }
    document.moveElement(item, target->element(), {});
    const Document::ContentChange change(document, item);
    nodes::stampTime(item, "LocationChanged", document.now());
    while (auto previous = item.child("PreviousParentGroup"))
        nodes::remove(previous);
    return true;
}

} // namespace

bool isInsideBin(const Entry& entry)
{
    return hasBinAbove(entry.element(), entry.document());
}

bool isInsideBin(const Group& group)
{
    return hasBinAbove(group.element(), group.document());
}

void moveIntoBin(pugi::xml_node item, const Group& bin)
{
    auto& document = bin.document();
    const std::string previous(nodes::childText(item.parent(), "UUID"));
    document.moveElement(item, bin.element(), {});
    const Document::ContentChange change(document, item);
    if (!previous.empty())
        nodes::setChildText(item, "PreviousParentGroup", previous);
    nodes::stampTime(item, "LocationChanged", bin.document().now());
}

DeleteResult deleteEntry(const Entry& entry)
{
    auto& document = entry.document();
    if (isBinEnabled(document) && !isInsideBin(entry)) {
        if (const auto bin = findOrMakeBin(document)) {
            moveIntoBin(entry.element(), *bin);
            return DeleteResult::movedToBin;
        }
    }
    deleteNodePermanently(document, entry.element());
    return DeleteResult::deletedPermanently;
}

DeleteResult deleteGroup(const Group& group)
{
    auto& document = group.document();
    const auto top = document.topGroup();
    if (top && top->element() == group.element())
        return DeleteResult::refusedTopGroup;
    const auto bin = findBin(document);
    if (bin && bin->element() == group.element()) {
        std::vector<pugi::xml_node> contents;
        for (const auto e : group.element().children("Entry"))
            contents.push_back(e);
        for (const auto g : group.element().children("Group"))
            contents.push_back(g);
        for (const auto item : contents)
            deleteNodePermanently(document, item);
        return DeleteResult::deletedPermanently;
    }
    if (bin && group.containsOrIs(*bin))
        return DeleteResult::refusedHoldsBin;
    if (isBinEnabled(document) && !isInsideBin(group)) {
        if (const auto newBin = findOrMakeBin(document)) {
            moveIntoBin(group.element(), *newBin);
            return DeleteResult::movedToBin;
        }
    }
    deleteNodePermanently(document, group.element());
    return DeleteResult::deletedPermanently;
}

void deletePermanently(const Entry& entry)
{
    deleteNodePermanently(entry.document(), entry.element());
}

void deletePermanently(const Group& group)
{
    deleteNodePermanently(group.document(), group.element());
}

DeleteResult emptyBin(Document& document)
{
    const auto bin = findBin(document);
    if (!bin || (!bin->element().child("Entry") && !bin->element().child("Group")))
        return DeleteResult::refusedAlreadyEmpty;
    return deleteGroup(*bin);
}

bool restore(const Entry& entry)
{
    return restoreNode(entry.document(), entry.element());
}

bool restore(const Group& group)
{
    return restoreNode(group.document(), group.element());
}

} // namespace quillon::model
