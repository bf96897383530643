#include "model/Diff.h"

#include "model/Nodes.h"

#include <algorithm>
#include <cstring>
#include <future>
#include <unordered_set>

namespace quillon::model {
namespace {

bool isOneTimeField(std::string_view name) noexcept
{
    return name == "otp" || name == "TOTP Seed" || name == "TOTP Settings";
}

kdbx::SecureBytes secureCopy(std::string_view text)
{
    kdbx::SecureBytes out;
    out.append(text);
    return out;
}

struct FieldValue {
    std::string_view name;
    std::string_view value;
    bool isProtected = false;
};

std::vector<FieldValue> fieldsOf(pugi::xml_node entry)
{
    std::vector<FieldValue> out;
    for (const auto s : entry.children("String")) {
        const auto value = s.child("Value");
        out.push_back({nodes::childText(s, "Key"), value.text().get(),
                       std::strcmp(value.attribute("Protected").value(), "True") == 0});
    }
    return out;
}

const FieldValue* findField(const std::vector<FieldValue>& fields, std::string_view name)
{
    for (const auto& f : fields)
        if (f.name == name)
            return &f;
    return nullptr;
}

void compareFields(pugi::xml_node before, pugi::xml_node after, const DiffOptions& options, EntryChange& out)
{
    const auto a = fieldsOf(before);
    const auto b = fieldsOf(after);
    auto shown = [&](const FieldValue& f) -> std::optional<kdbx::SecureBytes> {
        if (f.isProtected && !options.revealProtected)
            return std::nullopt;
        return secureCopy(f.value);
    };
    for (const auto& f : b) {
        const auto* old = findField(a, f.name);
        if (old && old->value == f.value && old->isProtected == f.isProtected)
            continue;
        if (isOneTimeField(f.name)) {
            out.oneTimeChanged = true;
            continue;
        }
        FieldChange change{std::string(f.name), old ? ItemChange::changed : ItemChange::added,
                           f.isProtected || (old && old->isProtected), std::nullopt, std::nullopt};
        if (old && !(change.isProtected && !options.revealProtected))
            change.before = secureCopy(old->value);
        if (!(change.isProtected && !options.revealProtected))
            change.after = shown(f);
        out.fields.push_back(std::move(change));
    }
    for (const auto& f : a) {
        if (findField(b, f.name))
            continue;
        if (isOneTimeField(f.name)) {
            out.oneTimeChanged = true;
            continue;
        }
        out.fields.push_back({std::string(f.name), ItemChange::removed, f.isProtected, shown(f), std::nullopt});
    }
}

void compareAttachments(const ItemIndex& ia, pugi::xml_node before, const ItemIndex& ib, pugi::xml_node after,
                        EntryChange& out)
{
    auto find = [](pugi::xml_node entry, std::string_view name) {
        for (const auto b : entry.children("Binary"))
            if (nodes::childText(b, "Key") == name)
                return b;
        return pugi::xml_node();
    };
    for (const auto b : after.children("Binary")) {
        const auto name = nodes::childText(b, "Key");
        const auto old = find(before, name);
        if (!old)
            out.attachmentsAdded.emplace_back(name);
        else if (ia.attachmentDigest(old) != ib.attachmentDigest(b))
            out.attachmentsChanged.emplace_back(name);
    }
    for (const auto b : before.children("Binary"))
        if (!find(after, nodes::childText(b, "Key")))
            out.attachmentsRemoved.emplace_back(nodes::childText(b, "Key"));
}

bool isOwnContent(pugi::xml_node c, std::initializer_list<const char*> skipped)
{
    if (c.type() != pugi::node_element)
        return false;
    for (const char* name : skipped)
        if (std::strcmp(c.name(), name) == 0)
            return false;
    return true;
}

// Elements other than the ones compared one by one, matched by name in order.
std::vector<std::string> otherDifferences(pugi::xml_node before, pugi::xml_node after,
                                          std::initializer_list<const char*> skipped)
{
    std::vector<std::string> out;
    auto note = [&](const char* name) {
        if (std::find(out.begin(), out.end(), name) == out.end())
            out.emplace_back(name);
    };
    for (const auto c : after.children()) {
        if (!isOwnContent(c, skipped))
            continue;
        const auto old = before.child(c.name());
        if (!old || elementDigest(old) != elementDigest(c))
            note(c.name());
    }
    for (const auto c : before.children())
        if (isOwnContent(c, skipped) && !after.child(c.name()))
            note(c.name());
    return out;
}

std::optional<Time> expiryOf(pugi::xml_node entry)
{
    if (!readLooseBool(nodes::childText(entry.child("Times"), "Expires")).value_or(false))
        return std::nullopt;
    return nodes::childTime(entry, "ExpiryTime");
}

std::size_t historyAdded(const ItemIndex& ia, pugi::xml_node before, const ItemIndex& ib, pugi::xml_node after)
{
    std::vector<VersionKey> known{versionKey(ia, before)};
    for (const auto v : before.child("History").children("Entry"))
        known.push_back(versionKey(ia, v));
    std::size_t added = 0;
    for (const auto v : after.child("History").children("Entry"))
        if (std::find(known.begin(), known.end(), versionKey(ib, v)) == known.end())
            ++added;
    return added;
}

std::optional<Time> deletionOf(const ItemIndex& index, const std::string& uuid)
{
    if (const auto it = index.deletions.find(uuid); it != index.deletions.end())
        return it->second;
    return std::nullopt;
}

std::string parentPath(pugi::xml_node item)
{
    return groupPathOf(item.parent());
}

std::string titleOf(pugi::xml_node entry)
{
    for (const auto& f : fieldsOf(entry))
        if (f.name == "Title")
            return std::string(f.value);
    return {};
}

EntryChange entryChange(const ItemIndex& ia, const ItemRecord& a, const ItemIndex& ib, const ItemRecord& b,
                        const std::string& uuid, const DiffOptions& options)
{
    EntryChange c;
    c.uuid = uuid;
    c.title = titleOf(b.element);
    c.path = parentPath(b.element);
    if (a.parent != b.parent) {
        c.moved = true;
        c.movedFrom = parentPath(a.element);
    }
    if (a.digest != b.digest) {
        compareFields(a.element, b.element, options, c);
        compareAttachments(ia, a.element, ib, b.element, c);
        c.expiryBefore = expiryOf(a.element);
        c.expiryAfter = expiryOf(b.element);
        c.expiryChanged = c.expiryBefore != c.expiryAfter;
        c.otherChanged = otherDifferences(a.element, b.element,
                                          {"UUID", "Times", "History", "PreviousParentGroup", "String", "Binary"});
    }
    c.historyAdded = historyAdded(ia, a.element, ib, b.element);
    return c;
}

bool hasChanges(const EntryChange& c)
{
    return c.moved || !c.fields.empty() || !c.attachmentsAdded.empty() || !c.attachmentsRemoved.empty() ||
           !c.attachmentsChanged.empty() || c.expiryChanged || c.oneTimeChanged || c.historyAdded > 0 ||
           !c.otherChanged.empty();
}

// Bookkeeping that changes with every save of any program, not settings a user chose.
bool isNoise(std::string_view name)
{
    return name == "HeaderHash" || name == "Generator" || name == "SettingsChanged" ||
           (name.size() > 7 && name.ends_with("Changed"));
}

bool isLeaf(pugi::xml_node node)
{
    for (auto c = node.first_child(); c; c = c.next_sibling())
        if (c.type() == pugi::node_element)
            return false;
    return true;
}

std::string shownSetting(pugi::xml_node node)
{
    if (!node || !isLeaf(node))
        return {};
    std::string text = node.text().get();
    if (text.size() > 200)
        text.resize(200);
    return text;
}

void compareMeta(Document& before, Document& after, std::vector<SettingChange>& out)
{
    const auto a = before.meta();
    const auto b = after.meta();
    std::unordered_set<std::string_view> seen;
    for (const auto c : b.children()) {
        if (c.type() != pugi::node_element || isNoise(c.name()) || !seen.insert(c.name()).second)
            continue;
        const auto old = a.child(c.name());
        if (old && elementDigest(old) == elementDigest(c))
            continue;
        out.push_back({c.name(), shownSetting(old), shownSetting(c)});
    }
    for (const auto c : a.children())
        if (c.type() == pugi::node_element && !isNoise(c.name()) && !b.child(c.name()) && seen.insert(c.name()).second)
            out.push_back({c.name(), shownSetting(c), {}});
}

} // namespace

std::string groupPathOf(pugi::xml_node group)
{
    std::vector<std::string_view> names;
    for (auto g = group; nodes::isNamed(g, "Group") && nodes::isNamed(g.parent(), "Group"); g = g.parent())
        names.push_back(nodes::childText(g, "Name"));
    std::string path;
    for (auto it = names.rbegin(); it != names.rend(); ++it) {
        if (!path.empty())
            path += '/';
        path += *it;
    }
    return path;
}

Diff diff(const DocumentSide& before, const DocumentSide& after, const DiffOptions& options)
{
    // The two walks are independent and take most of the time: one runs on a second thread.
    auto older = std::async(std::launch::async, [&before] { return ItemIndex(before); });
    const ItemIndex ib(after);
    const ItemIndex ia = older.get();
    Diff out;

    for (const auto& uuid : ib.groupOrder) {
        const auto& b = ib.groups.at(uuid);
        const auto it = ia.groups.find(uuid);
        GroupChange c;
        c.uuid = uuid;
        c.name = nodes::childText(b.element, "Name");
        c.path = parentPath(b.element);
        if (it == ia.groups.end()) {
            c.change = ItemChange::added;
            out.groups.push_back(std::move(c));
            continue;
        }
        const auto& a = it->second;
        if (a.parent != b.parent) {
            c.moved = true;
            c.movedFrom = parentPath(a.element);
        }
        if (a.digest != b.digest) {
            c.oldName = nodes::childText(a.element, "Name");
            c.renamed = c.oldName != c.name;
            c.otherChanged = otherDifferences(a.element, b.element,
                                              {"UUID", "Times", "Group", "Entry", "PreviousParentGroup", "Name",
                                               "IsExpanded", "LastTopVisibleEntry"});
        }
        if (c.moved || c.renamed || !c.otherChanged.empty())
            out.groups.push_back(std::move(c));
    }
    for (const auto& uuid : ia.groupOrder) {
        if (ib.groups.contains(uuid))
            continue;
        const auto& a = ia.groups.at(uuid);
        GroupChange c;
        c.uuid = uuid;
        c.name = nodes::childText(a.element, "Name");
        c.path = parentPath(a.element);
        c.change = ItemChange::removed;
        c.deletedAt = deletionOf(ib, uuid);
        out.groups.push_back(std::move(c));
    }

    for (const auto& uuid : ib.entryOrder) {
        const auto& b = ib.entries.at(uuid);
        const auto it = ia.entries.find(uuid);
        if (it == ia.entries.end()) {
            EntryChange c;
            c.uuid = uuid;
            c.title = titleOf(b.element);
            c.path = parentPath(b.element);
            c.change = ItemChange::added;
            out.entries.push_back(std::move(c));
            continue;
        }
        const auto& a = it->second;
        // The common case, two identical entries, costs two digests and a look at the history's length.
        if (a.parent == b.parent && a.digest == b.digest && a.modified == b.modified &&
            std::distance(a.element.child("History").children("Entry").begin(),
                          a.element.child("History").children("Entry").end()) ==
                std::distance(b.element.child("History").children("Entry").begin(),
                              b.element.child("History").children("Entry").end()))
            continue;
        auto c = entryChange(ia, a, ib, b, uuid, options);
        if (hasChanges(c))
            out.entries.push_back(std::move(c));
    }
    for (const auto& uuid : ia.entryOrder) {
        if (ib.entries.contains(uuid))
            continue;
        const auto& a = ia.entries.at(uuid);
        EntryChange c;
        c.uuid = uuid;
        c.title = titleOf(a.element);
        c.path = parentPath(a.element);
        c.change = ItemChange::removed;
        c.deletedAt = deletionOf(ib, uuid);
        out.entries.push_back(std::move(c));
    }
    compareMeta(before.document, after.document, out.settings);
    return out;
}

} // namespace quillon::model
