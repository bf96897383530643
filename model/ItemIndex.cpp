#include "model/ItemIndex.h"

#include "model/Nodes.h"

#include <cstring>
#include <functional>
#include <utility>

namespace quillon::model {
namespace {

std::uint64_t mix(std::uint64_t x) noexcept
{
    // splitmix64's finaliser: every input bit reaches every output bit.
    x ^= x >> 30;
    x *= 0xbf58476d1ce4e5b9ULL;
    x ^= x >> 27;
    x *= 0x94d049bb133111ebULL;
    x ^= x >> 31;
    return x;
}

std::uint64_t hashText(std::string_view text) noexcept
{
    return mix(std::hash<std::string_view>{}(text) + text.size());
}

std::uint64_t combine(std::uint64_t seed, std::uint64_t value) noexcept
{
    return mix(seed * 31 + value + 0x9e3779b97f4a7c15ULL);
}

bool hasElementChild(pugi::xml_node node) noexcept
{
    for (auto c = node.first_child(); c; c = c.next_sibling())
        if (c.type() == pugi::node_element)
            return true;
    return false;
}

// Names, attributes and the text of leaf elements, in order; white space between elements does not count,
// since programs indent differently.
std::uint64_t subtreeDigest(pugi::xml_node top)
{
    std::uint64_t h = 0x51ed27;
    std::vector<pugi::xml_node> stack{top};
    while (!stack.empty()) {
        const auto node = stack.back();
        stack.pop_back();
        h = combine(h, hashText(node.name()));
        for (const auto a : node.attributes())
            h = combine(combine(h, hashText(a.name())), hashText(a.value()));
        if (!hasElementChild(node)) {
            h = combine(h, hashText(node.text().get()));
            continue;
        }
        h = combine(h, 1);
        for (auto c = node.last_child(); c; c = c.previous_sibling())
            if (c.type() == pugi::node_element)
                stack.push_back(c);
    }
    return h;
}

bool isOneOf(pugi::xml_node node, std::initializer_list<const char*> names) noexcept
{
    for (const char* name : names)
        if (std::strcmp(node.name(), name) == 0)
            return true;
    return false;
}

std::string parentUuid(pugi::xml_node element)
{
    const auto p = element.parent();
    if (!nodes::isNamed(p, "Group"))
        return {};
    return std::string(nodes::childText(p, "UUID"));
}

} // namespace

std::uint64_t elementDigest(pugi::xml_node element)
{
    return subtreeDigest(element);
}

std::uint64_t groupDigest(pugi::xml_node group)
{
    std::uint64_t h = 0x6709;
    for (const auto c : group.children()) {
        if (c.type() != pugi::node_element ||
            isOneOf(c, {"UUID", "Times", "Group", "Entry", "PreviousParentGroup", "IsExpanded", "LastTopVisibleEntry"}))
            continue;
        h = combine(h, subtreeDigest(c));
    }
    return h;
}

ItemIndex::ItemIndex(const DocumentSide& side)
{
    if (side.binaries) {
        pool_.reserve(side.binaries->size());
        for (const auto& b : *side.binaries)
            pool_.push_back(combine(hashText(b.data.view()), b.data.size()) | 1);
    }
    auto& document = side.document;
    const auto root = document.root();
    std::vector<pugi::xml_node> stack;
    for (auto g = root.last_child(); g; g = g.previous_sibling())
        if (nodes::isNamed(g, "Group"))
            stack.push_back(g);
    if (const auto top = root.child("Group"))
        topGroup = nodes::childText(top, "UUID");
    while (!stack.empty()) {
        const auto node = stack.back();
        stack.pop_back();
        std::string uuid(nodes::childText(node, "UUID"));
        const bool isGroup = nodes::isNamed(node, "Group");
        ItemRecord record{node, parentUuid(node), isGroup ? groupDigest(node) : entryDigest(node),
                          nodes::childTime(node, "LastModificationTime"), nodes::childTime(node, "LocationChanged")};
        if (isGroup) {
            if (groups.try_emplace(uuid, std::move(record)).second)
                groupOrder.push_back(uuid);
            for (auto c = node.last_child(); c; c = c.previous_sibling())
                if (nodes::isNamed(c, "Group") || nodes::isNamed(c, "Entry"))
                    stack.push_back(c);
        } else if (entries.try_emplace(uuid, std::move(record)).second) {
            entryOrder.push_back(std::move(uuid));
        }
    }
    for (const auto d : root.child("DeletedObjects").children("DeletedObject")) {
        const auto when = readTime(nodes::childText(d, "DeletionTime"));
        const std::string uuid(nodes::childText(d, "UUID"));
        if (uuid.empty())
            continue;
        const Time t = when.value_or(Time{});
        auto [it, added] = deletions.try_emplace(uuid, t);
        if (!added && it->second < t)
            it->second = t;
    }
    const auto binUuid = document.metaText("RecycleBinUUID");
    if (binUuid && !isNoUuid(*binUuid) && groups.contains(std::string(*binUuid)))
        bin = *binUuid;
}

std::uint64_t ItemIndex::attachmentDigest(pugi::xml_node binary) const
{
    const auto value = binary.child("Value");
    const auto ref = value.attribute("Ref");
    if (!ref)
        return hashText(value.text().get());
    const auto index = readDecimal(ref.value());
    if (!index || *index < 0 || static_cast<std::uint64_t>(*index) >= pool_.size())
        return 0;
    return pool_[static_cast<std::size_t>(*index)];
}

std::uint64_t ItemIndex::entryDigest(pugi::xml_node entry) const
{
    std::uint64_t ordered = 0xe7;
    std::uint64_t unordered = 0;
    for (const auto c : entry.children()) {
        if (c.type() != pugi::node_element || isOneOf(c, {"UUID", "Times", "History", "PreviousParentGroup"}))
            continue;
        if (nodes::isNamed(c, "String")) {
            const auto value = c.child("Value");
            const bool isProtected = std::strcmp(value.attribute("Protected").value(), "True") == 0;
            unordered += combine(combine(hashText(nodes::childText(c, "Key")), hashText(value.text().get())),
                                 isProtected ? 2 : 3);
        } else if (nodes::isNamed(c, "Binary")) {
            unordered += combine(combine(hashText(nodes::childText(c, "Key")), attachmentDigest(c)), 5);
        } else {
            ordered = combine(ordered, subtreeDigest(c));
        }
    }
    std::uint64_t expiry = 7;
    if (readLooseBool(nodes::childText(entry.child("Times"), "Expires")).value_or(false))
        if (const auto when = nodes::childTime(entry, "ExpiryTime"))
            expiry = static_cast<std::uint64_t>(when->time_since_epoch().count());
    return combine(combine(ordered, unordered), expiry);
}

VersionKey versionKey(const ItemIndex& index, pugi::xml_node entry)
{
    const auto modified = nodes::childTime(entry, "LastModificationTime");
    return {modified ? modified->time_since_epoch().count() : 0, index.entryDigest(entry)};
}

} // namespace quillon::model
