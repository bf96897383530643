#include "model/Nodes.h"

#include "kdbx/SecureBytes.h"

#include <cstring>

namespace quillon::model::nodes {

std::string_view childText(pugi::xml_node node, const char* name)
{
    return node.child(name).text().get();
}

pugi::xml_node childOrAppend(pugi::xml_node node, const char* name)
{
    if (auto child = node.child(name))
        return child;
    return node.append_child(name);
}

void setChildText(pugi::xml_node node, const char* name, std::string_view text)
{
    setText(childOrAppend(node, name), text);
}

bool sameText(std::string_view stored, std::string_view text)
{
    if (isXmlSafe(text))
        return stored == text;
    kdbx::SecureBytes clean;
    clean.reserve(text.size());
    appendXmlSafe(text, clean);
    return stored == std::string_view(reinterpret_cast<const char*>(clean.data()), clean.size());
}

void setText(pugi::xml_node node, std::string_view text)
{
    if (isXmlSafe(text)) {
        node.text().set(text.data(), text.size());
        return;
    }
    kdbx::SecureBytes clean;
    clean.reserve(text.size());
    appendXmlSafe(text, clean);
    node.text().set(reinterpret_cast<const char*>(clean.data()), clean.size());
}

std::optional<Time> childTime(pugi::xml_node item, const char* timeName)
{
    const auto node = item.child("Times").child(timeName);
    if (!node)
        return std::nullopt;
    return readTime(node.text().get());
}

void stampTime(pugi::xml_node item, const char* timeName, Time t)
{
    auto times = item.child("Times");
    if (!times)
        return;
    const std::string text = writeTime(t);
    childOrAppend(times, timeName).text().set(text.c_str());
}

void remove(pugi::xml_node node)
{
    auto parent = node.parent();
    if (!parent)
        return;
    auto n = node;
    while (true) {
        if (const auto child = n.last_child()) {
            n = child;
            continue;
        }
        if (n == node)
            break;
        auto up = n.parent();
        up.remove_child(n);
        n = up;
    }
    parent.remove_child(node);
}

bool isNamed(pugi::xml_node node, const char* name) noexcept
{
    return node.type() == pugi::node_element && std::strcmp(node.name(), name) == 0;
}

bool isSelfOrAncestor(pugi::xml_node ancestor, pugi::xml_node node) noexcept
{
    for (auto n = node; n; n = n.parent())
        if (n == ancestor)
            return true;
    return false;
}

} // namespace quillon::model::nodes
