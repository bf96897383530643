#include "model/Group.h"

#include "model/Document.h"
#include "model/Nodes.h"

namespace quillon::model {

std::string_view Group::uuid() const
{
    return nodes::childText(element_, "UUID");
}

std::string_view Group::name() const
{
    return nodes::childText(element_, "Name");
}

bool Group::rename(std::string_view name) const
{
    if (element_.child("Name") && nodes::sameText(this->name(), name))
        return false;
    const Document::ContentChange change(*document_, element_);
    nodes::setChildText(element_, "Name", name);
    return true;
}

std::optional<int> Group::iconId() const
{
    const auto value = readDecimal(nodes::childText(element_, "IconID"));
    if (!value || *value < 0 || *value > 0x7fffffff)
        return std::nullopt;
    return static_cast<int>(*value);
}

std::optional<bool> Group::enableSearching() const
{
    return readLooseBool(nodes::childText(element_, "EnableSearching"));
}

std::string_view Group::previousParentGroup() const
{
    return nodes::childText(element_, "PreviousParentGroup");
}

std::optional<Time> Group::creationTime() const
{
    return nodes::childTime(element_, "CreationTime");
}

std::optional<Time> Group::lastModificationTime() const
{
    return nodes::childTime(element_, "LastModificationTime");
}

std::optional<Time> Group::locationChanged() const
{
    return nodes::childTime(element_, "LocationChanged");
}

void Group::touch() const
{
    const Document::ContentChange change(*document_, element_);
    nodes::stampTime(element_, "LastModificationTime", document_->now());
}

std::optional<Group> Group::parent() const
{
    const auto p = element_.parent();
    if (!nodes::isNamed(p, "Group"))
        return std::nullopt;
    return Group(p, *document_);
}

bool Group::containsOrIs(const Group& other) const noexcept
{
    return nodes::isSelfOrAncestor(element_, other.element());
}

bool Group::containsOrIs(const Entry& other) const noexcept
{
    return nodes::isSelfOrAncestor(element_, other.element());
}

std::vector<Group> Group::groups() const
{
    std::vector<Group> out;
    for (const auto g : element_.children("Group"))
        out.emplace_back(g, *document_);
    return out;
}

std::vector<Entry> Group::entries() const
{
    std::vector<Entry> out;
    for (const auto e : element_.children("Entry"))
        out.emplace_back(e, *document_);
    return out;
}

namespace {

// What one pass over a group's children finds. In a large file a group's children lie far apart (each
// entry behind its history), so every further pass over them costs a cache miss per child.
struct GroupChildren {
    std::vector<pugi::xml_node> entries;
    std::vector<pugi::xml_node> groups;
    const char* enableSearching = ""; // text of the first EnableSearching
    void read(pugi::xml_node g)
    {
        entries.clear();
        groups.clear();
        enableSearching = "";
        bool searchingSeen = false;
        for (auto c = g.first_child(); c; c = c.next_sibling()) {
            if (nodes::isNamed(c, "Entry"))
                entries.push_back(c);
            else if (nodes::isNamed(c, "Group"))
                groups.push_back(c);
            else if (!searchingSeen && nodes::isNamed(c, "EnableSearching")) {
                searchingSeen = true;
                enableSearching = c.child_value();
            }
        }
    }
};

// Pre-order over the groups below (and including) start, with the flag each inherits; no recursion,
// since a hostile file may nest groups arbitrarily deep.
template <class Visit>
void walk(pugi::xml_node start, bool startFlag, Visit&& visit)
{
    std::vector<std::pair<pugi::xml_node, bool>> stack{{start, startFlag}};
    GroupChildren children;
    while (!stack.empty()) {
        auto [g, inherited] = stack.back();
        stack.pop_back();
        children.read(g);
        const bool flag = visit(g, inherited, children);
        for (auto c = children.groups.rbegin(); c != children.groups.rend(); ++c)
            stack.emplace_back(*c, flag);
    }
}

} // namespace

std::vector<Entry> Group::allEntries() const
{
    std::vector<Entry> out;
    walk(element_, true, [&](pugi::xml_node, bool, const GroupChildren& children) {
        for (const auto e : children.entries)
            out.emplace_back(e, *document_);
        return true;
    });
    return out;
}

std::vector<Group> Group::allGroups() const
{
    std::vector<Group> out;
    walk(element_, true, [&](pugi::xml_node g, bool, const GroupChildren&) {
        if (g != element_)
            out.emplace_back(g, *document_);
        return true;
    });
    return out;
}

std::vector<Entry> Group::searchableEntries() const
{
    std::vector<Entry> out;
    walk(element_, true, [&](pugi::xml_node, bool inherited, const GroupChildren& children) {
        const bool flag = readLooseBool(children.enableSearching).value_or(inherited);
        if (flag)
            for (const auto e : children.entries)
                out.emplace_back(e, *document_);
        return flag;
    });
    return out;
}

} // namespace quillon::model
