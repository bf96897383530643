#include "model/Document.h"

#include "model/Entry.h"
#include "model/Group.h"
#include "model/Nodes.h"

#include <string>
#include <vector>

namespace quillon::model {

Document::Document(pugi::xml_document& xml, Clock clock) : xml_(&xml), clock_(std::move(clock))
{
    if (!clock_)
        clock_ = [] { return std::chrono::system_clock::now(); };
}

void Document::changed() noexcept
{
    children_.clear();
    contentRevision_ = structuralRevision_ = ++revision_;
    changedEntries_.clear();
}

void Document::structureChanged() noexcept
{
    bumpStructure();
    children_.clear();
}

void Document::entryChanged(pugi::xml_node entry) noexcept
{
    // Past a few thousand edits a full refresh is as cheap as replaying the list.
    constexpr std::size_t maxListed = 4096;
    if (changedEntries_.size() >= maxListed) {
        changed();
        return;
    }
    try {
        changedEntries_.emplace_back(++revision_, entry);
    } catch (...) {
        changed();
    }
}

pugi::xml_node Document::insertElement(pugi::xml_node parent, pugi::xml_node before, pugi::xml_node prototype)
{
    if (observer_)
        observer_->aboutToInsert(parent, before, prototype);
    const auto element = before ? parent.insert_copy_before(prototype, before) : parent.append_copy(prototype);
    forgetChildren(parent);
    bumpStructure();
    if (nodes::isNamed(element, "Entry"))
        entryChanged(element);
    if (observer_)
        observer_->inserted(element);
    return element;
}

void Document::moveElement(pugi::xml_node element, pugi::xml_node newParent, pugi::xml_node before)
{
    if (observer_)
        observer_->aboutToMove(element, newParent, before);
    const auto oldParent = element.parent();
    if (before)
        newParent.insert_move_before(element, before);
    else
        newParent.append_move(element);
    forgetChildren(oldParent);
    forgetChildren(newParent);
    bumpStructure();
    if (observer_)
        observer_->moved(element, oldParent);
}

void Document::removeElement(pugi::xml_node element)
{
    if (observer_)
        observer_->aboutToRemove(element);
    const auto parent = element.parent();
    nodes::remove(element);
    changed();
    if (observer_)
        observer_->removed(parent);
}

Document::ContentChange::ContentChange(Document& document, pugi::xml_node element)
    : document_(document), element_(element)
{
    if (document_.observer_)
        document_.observer_->aboutToChangeContent(element_);
    document_.forgetChildren(element_);
}

Document::ContentChange::~ContentChange()
{
    // A group's own children (its name, times and the like) may have been replaced among its items.
    document_.forgetChildren(element_);
    if (nodes::isNamed(element_, "Entry") && !nodes::isNamed(element_.parent(), "History"))
        document_.entryChanged(element_);
    else
        document_.structureChanged();
    if (document_.observer_)
        document_.observer_->contentChanged(element_);
}

const Document::Children& Document::childrenOf(pugi::xml_node group)
{
    auto [at, fresh] = children_.try_emplace(group.internal_object());
    if (fresh) {
        auto& children = at->second;
        for (auto n = group.first_child(); n; n = n.next_sibling())
            children.nodes.push_back(n);
        children.positions.reserve(children.nodes.size());
        for (std::uint32_t i = 0; i < children.nodes.size(); ++i)
            children.positions.emplace(children.nodes[i].internal_object(), i);
    }
    return at->second;
}

std::uint32_t Document::positionOf(pugi::xml_node node)
{
    const auto parent = node.parent();
    if (nodes::isNamed(parent, "Group"))
        return childrenOf(parent).positions.at(node.internal_object());
    std::uint32_t position = 0;
    for (auto n = node.previous_sibling(); n; n = n.previous_sibling())
        ++position;
    return position;
}

pugi::xml_node Document::childAt(pugi::xml_node parent, std::uint32_t position)
{
    if (nodes::isNamed(parent, "Group")) {
        const auto& children = childrenOf(parent);
        return position < children.nodes.size() ? children.nodes[position] : pugi::xml_node();
    }
    auto n = parent.first_child();
    for (; n && position > 0; --position)
        n = n.next_sibling();
    return n;
}

void Document::countPositions()
{
    const auto top = topGroup();
    if (!top)
        return;
    std::vector<pugi::xml_node> groups{top->element()};
    while (!groups.empty()) {
        const auto group = groups.back();
        groups.pop_back();
        for (const auto child : childrenOf(group).nodes)
            if (nodes::isNamed(child, "Group"))
                groups.push_back(child);
    }
}

Time Document::now() const
{
    return toTime(clock_());
}

pugi::xml_node Document::meta() const
{
    return xml_->child("KeePassFile").child("Meta");
}

pugi::xml_node Document::root() const
{
    return xml_->child("KeePassFile").child("Root");
}

std::optional<std::string_view> Document::metaText(const char* name) const
{
    const auto node = meta().child(name);
    if (!node)
        return std::nullopt;
    return std::string_view(node.text().get());
}

void Document::setMetaText(const char* name, std::string_view text)
{
    auto m = meta();
    if (!m) {
        auto file = xml_->child("KeePassFile");
        if (!file)
            return;
        pugi::xml_document prototype;
        prototype.append_child("Meta");
        m = insertElement(file, file.first_child(), prototype.first_child());
    }
    if (const auto node = m.child(name); node && nodes::sameText(node.text().get(), text))
        return;
    const ContentChange change(*this, m);
    nodes::setChildText(m, name, text);
}

std::optional<Group> Document::topGroup()
{
    if (const auto g = root().child("Group"))
        return Group(g, *this);
    return std::nullopt;
}

namespace {

// Visits every group under Root in document order, without recursion; stops when visit returns true.
template <class Visit>
void walkGroups(pugi::xml_node root, Visit&& visit)
{
    std::vector<pugi::xml_node> stack;
    for (auto g = root.last_child(); g; g = g.previous_sibling())
        if (nodes::isNamed(g, "Group"))
            stack.push_back(g);
    while (!stack.empty()) {
        const auto g = stack.back();
        stack.pop_back();
        if (visit(g))
            return;
        for (auto c = g.last_child(); c; c = c.previous_sibling())
            if (nodes::isNamed(c, "Group"))
                stack.push_back(c);
    }
}

} // namespace

std::optional<Group> Document::findGroup(std::string_view uuid)
{
    if (isNoUuid(uuid))
        return std::nullopt;
    pugi::xml_node found;
    walkGroups(root(), [&](pugi::xml_node g) {
        if (nodes::childText(g, "UUID") == uuid)
            found = g;
        return bool(found);
    });
    if (!found)
        return std::nullopt;
    return Group(found, *this);
}

std::optional<Entry> Document::findEntry(std::string_view uuid)
{
    if (isNoUuid(uuid))
        return std::nullopt;
    pugi::xml_node found;
    walkGroups(root(), [&](pugi::xml_node g) {
        for (const auto e : g.children("Entry"))
            if (nodes::childText(e, "UUID") == uuid) {
                found = e;
                break;
            }
        return bool(found);
    });
    if (!found)
        return std::nullopt;
    return Entry(found, *this);
}

Group Document::group(pugi::xml_node element)
{
    return Group(element, *this);
}

Entry Document::entry(pugi::xml_node element)
{
    return Entry(element, *this);
}

// New items are built whole in a scratch document and go in with one insertion, so that an observer
// sees them arrive complete.
Entry Document::newEntry(const Group& parent, std::string_view title)
{
    pugi::xml_document scratch;
    auto e = scratch.append_child("Entry");
    e.append_child("UUID").text().set(kdbx::newUuidText().c_str());
    auto times = e.append_child("Times");
    const std::string stamp = writeTime(now());
    for (const char* name : {"CreationTime", "LastModificationTime", "LastAccessTime"})
        times.append_child(name).text().set(stamp.c_str());
    times.append_child("Expires").text().set(falseText.data(), falseText.size());
    for (const auto name : standardFieldNames) {
        auto s = e.append_child("String");
        s.append_child("Key").text().set(name.data(), name.size());
        auto value = s.append_child("Value");
        nodes::setText(value, name == "Title" ? title : std::string_view());
        if (name == "Password")
            value.append_attribute("Protected").set_value(trueText.data(), trueText.size());
    }
    return Entry(insertElement(parent.element(), {}, e), *this);
}

Group Document::newGroup(const Group& parent, std::string_view name)
{
    pugi::xml_document scratch;
    auto g = scratch.append_child("Group");
    g.append_child("UUID").text().set(kdbx::newUuidText().c_str());
    nodes::setText(g.append_child("Name"), name);
    auto times = g.append_child("Times");
    const std::string stamp = writeTime(now());
    times.append_child("CreationTime").text().set(stamp.c_str());
    times.append_child("LastModificationTime").text().set(stamp.c_str());
    return Group(insertElement(parent.element(), {}, g), *this);
}

std::optional<std::size_t> Document::historyLimit() const
{
    const auto text = metaText("HistoryMaxItems");
    if (!text)
        return std::nullopt;
    const auto value = readDecimal(*text);
    if (!value || *value < 0)
        return std::nullopt;
    return static_cast<std::size_t>(*value);
}

std::int64_t Document::historyMaxItems() const
{
    const auto text = metaText("HistoryMaxItems");
    if (!text)
        return -1;
    return readDecimal(*text).value_or(-1);
}

void Document::setHistoryMaxItems(std::int64_t value)
{
    setMetaText("HistoryMaxItems", std::to_string(value));
}

} // namespace quillon::model
