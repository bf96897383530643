#include "model/History.h"

#include "model/Document.h"
#include "model/Nodes.h"

#include <cstring>
#include <optional>

namespace quillon::model {
namespace {

void appendVersion(pugi::xml_node entry)
{
    auto history = nodes::childOrAppend(entry, "History");
    // Built child by child rather than copying the entry whole, which would copy its history too.
    auto version = history.append_child("Entry");
    for (const auto a : entry.attributes())
        version.append_copy(a);
    for (const auto child : entry.children())
        if (child != history && !nodes::isNamed(child, "History"))
            version.append_copy(child);
}

void prune(pugi::xml_node entry, std::optional<std::size_t> limit)
{
    if (!limit)
        return;
    auto history = entry.child("History");
    std::size_t count = 0;
    for ([[maybe_unused]] const auto v : history.children("Entry"))
        ++count;
    while (count > *limit) {
        nodes::remove(history.child("Entry"));
        --count;
    }
}

bool keptOnRestore(pugi::xml_node child)
{
    if (child.type() != pugi::node_element)
        return false;
    for (const char* name : {"UUID", "Times", "History", "PreviousParentGroup"})
        if (std::strcmp(child.name(), name) == 0)
            return true;
    return false;
}

} // namespace

void snapshot(const Entry& entry)
{
    const Document::ContentChange change(entry.document(), entry.element());
    appendVersion(entry.element());
    prune(entry.element(), entry.document().historyLimit());
}

void restoreVersion(const Entry& entry, const Entry& version)
{
    const Document::ContentChange change(entry.document(), entry.element());
    auto e = entry.element();
    // Pruning waits until the copy is done: a small limit could otherwise drop the version being restored.
    appendVersion(e);
    for (auto child = e.first_child(); child;) {
        const auto next = child.next_sibling();
        if (!keptOnRestore(child))
            nodes::remove(child);
        child = next;
    }
    for (const auto child : version.element().children())
        if (!keptOnRestore(child))
            e.append_copy(child);
    entry.touch();
    prune(e, entry.document().historyLimit());
}

bool editField(const Entry& entry, std::string_view name, std::string_view text)
{
    // Compared as it would be stored, so text differing only by what XML cannot carry changes nothing.
    if (nodes::sameText(entry.field(name).value_or(""), text))
        return false;
    bool isProtected = false;
    if (name == "Password")
        isProtected = true;
    else if (name == "Title" || name == "UserName" || name == "URL")
        isProtected = false;
    else
        isProtected = entry.isFieldProtected(name);
    snapshot(entry);
    entry.setField(name, text, isProtected);
    return true;
}

} // namespace quillon::model
