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
    if (!hasElementChild(top) && !top.first_attribute())
        return combine(combine(h, hashText(top.name())), hashText(top.text().get()));
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
        const bool isGroup = nodes::isNamed(node, "Group");
        Scan scan;
        if (isGroup) {
            scan.uuid = nodes::childText(node, "UUID");
            scan.digest = groupDigest(node);
            scan.modified = nodes::childTime(node, "LastModificationTime");
            scan.locationChanged = nodes::childTime(node, "LocationChanged");
        } else {
            scan = scanEntry(node);
        }
        std::string uuid(scan.uuid);
        ItemRecord record{node, parentUuid(node), scan.digest, scan.modified, scan.locationChanged};
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
    return scanEntry(entry).digest;
}

// One walk over the entry's children gives its digest and times; the index is built from 50,000 of these.
ItemIndex::Scan ItemIndex::scanEntry(pugi::xml_node entry) const
{
    Scan scan;
    std::uint64_t ordered = 0xe7;
    std::uint64_t unordered = 0;
    std::uint64_t expiry = 7;
    for (auto c = entry.first_child(); c; c = c.next_sibling()) {
        if (c.type() != pugi::node_element)
            continue;
        const char* name = c.name();
        if (std::strcmp(name, "String") == 0) {
            const auto key = c.first_child();
            const auto value = key.next_sibling();
            // Key then Value is how every program writes a field; anything else is looked up by name.
            const bool inOrder = nodes::isNamed(key, "Key") && nodes::isNamed(value, "Value");
            const auto k = inOrder ? key : c.child("Key");
            const auto v = inOrder ? value : c.child("Value");
            const bool isProtected = std::strcmp(v.attribute("Protected").value(), "True") == 0;
            unordered += combine(combine(hashText(k.text().get()), hashText(v.text().get())), isProtected ? 2 : 3);
        } else if (std::strcmp(name, "Times") == 0) {
            bool expires = false;
            std::optional<Time> expiryTime;
            for (auto t = c.first_child(); t; t = t.next_sibling()) {
                const char* timeName = t.name();
                if (std::strcmp(timeName, "LastModificationTime") == 0)
                    scan.modified = readTime(t.text().get());
                else if (std::strcmp(timeName, "LocationChanged") == 0)
                    scan.locationChanged = readTime(t.text().get());
                else if (std::strcmp(timeName, "Expires") == 0)
                    expires = readLooseBool(t.text().get()).value_or(false);
                else if (std::strcmp(timeName, "ExpiryTime") == 0)
                    expiryTime = readTime(t.text().get());
            }
            if (expires && expiryTime)
                expiry = static_cast<std::uint64_t>(expiryTime->time_since_epoch().count());
        } else if (std::strcmp(name, "UUID") == 0) {
            scan.uuid = c.text().get();
        } else if (std::strcmp(name, "Binary") == 0) {
            unordered += combine(combine(hashText(nodes::childText(c, "Key")), attachmentDigest(c)), 5);
        } else if (std::strcmp(name, "History") != 0 && std::strcmp(name, "PreviousParentGroup") != 0) {
            ordered = combine(ordered, subtreeDigest(c));
        }
    }
    scan.digest = combine(combine(ordered, unordered), expiry);
    return scan;
}

VersionKey versionKey(const ItemIndex& index, pugi::xml_node entry)
{
    const auto scan = index.scanEntry(entry);
    return {scan.modified ? scan.modified->time_since_epoch().count() : 0, scan.digest};
}

} // namespace quillon::model
