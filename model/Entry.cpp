#include "model/Entry.h"

#include "model/Document.h"
#include "model/Group.h"
#include "model/Nodes.h"

#include <cstring>

namespace quillon::model {

bool isStandardField(std::string_view name) noexcept
{
    for (const auto standard : standardFieldNames)
        if (name == standard)
            return true;
    return false;
}

std::string_view Entry::uuid() const
{
    return nodes::childText(element_, "UUID");
}

pugi::xml_node Entry::findString(std::string_view name) const
{
    for (const auto s : element_.children("String"))
        if (name == s.child("Key").text().get())
            return s;
    return {};
}

std::optional<std::string_view> Entry::field(std::string_view name) const
{
    const auto value = findString(name).child("Value");
    if (!value)
        return std::nullopt;
    return std::string_view(value.text().get());
}

bool Entry::isFieldProtected(std::string_view name) const
{
    return std::string_view(findString(name).child("Value").attribute("Protected").value()) == trueText;
}

bool Entry::setField(std::string_view name, std::string_view text, bool isProtected) const
{
    auto s = findString(name);
    if (s && s.child("Value") && nodes::sameText(s.child("Value").text().get(), text) &&
        isFieldProtected(name) == isProtected)
        return false;
    const Document::ContentChange change(*document_, element_);
    if (!s) {
        s = pugi::xml_node(element_).append_child("String");
        nodes::setText(s.append_child("Key"), name);
    }
    auto value = nodes::childOrAppend(s, "Value");
    nodes::setText(value, text);
    auto attribute = value.attribute("Protected");
    if (isProtected && !attribute)
        value.append_attribute("Protected").set_value(trueText.data(), trueText.size());
    else if (!isProtected)
        while (auto a = value.attribute("Protected"))
            value.remove_attribute(a);
    touch();
    return true;
}

bool Entry::removeField(std::string_view name) const
{
    if (!findString(name))
        return false;
    const Document::ContentChange change(*document_, element_);
    while (auto s = findString(name))
        nodes::remove(s);
    touch();
    return true;
}

std::vector<CustomField> Entry::customFields() const
{
    std::vector<CustomField> out;
    for (const auto s : element_.children("String")) {
        const std::string_view key = s.child("Key").text().get();
        if (isStandardField(key))
            continue;
        const auto value = s.child("Value");
        out.push_back({key, value.text().get(), std::string_view(value.attribute("Protected").value()) == trueText});
    }
    return out;
}

std::optional<Time> Entry::creationTime() const
{
    return nodes::childTime(element_, "CreationTime");
}

std::optional<Time> Entry::lastModificationTime() const
{
    return nodes::childTime(element_, "LastModificationTime");
}

std::optional<Time> Entry::lastAccessTime() const
{
    return nodes::childTime(element_, "LastAccessTime");
}

std::optional<Time> Entry::locationChanged() const
{
    return nodes::childTime(element_, "LocationChanged");
}

std::optional<Time> Entry::expiry() const
{
    const auto times = element_.child("Times");
    if (!equalsIgnoringCase(times.child("Expires").text().get(), "true"))
        return std::nullopt;
    return nodes::childTime(element_, "ExpiryTime");
}

bool Entry::setExpiry(std::optional<Time> when) const
{
    auto times = element_.child("Times");
    if (!times || expiry() == when)
        return false;
    const Document::ContentChange change(*document_, element_);
    const auto flag = boolText(when.has_value());
    nodes::childOrAppend(times, "Expires").text().set(flag.data(), flag.size());
    if (when)
        nodes::stampTime(element_, "ExpiryTime", *when);
    touch();
    return true;
}

void Entry::touch() const
{
    const Document::ContentChange change(*document_, element_);
    nodes::stampTime(element_, "LastModificationTime", document_->now());
}

std::size_t Entry::attachmentCount() const
{
    std::size_t n = 0;
    for ([[maybe_unused]] const auto b : element_.children("Binary"))
        ++n;
    return n;
}

std::vector<Entry> Entry::history() const
{
    std::vector<Entry> out;
    for (const auto e : element_.child("History").children("Entry"))
        out.emplace_back(e, *document_);
    return out;
}

bool Entry::isHistoryVersion() const
{
    return nodes::isNamed(element_.parent(), "History");
}

std::optional<Group> Entry::parent() const
{
    const auto p = element_.parent();
    if (!nodes::isNamed(p, "Group"))
        return std::nullopt;
    return Group(p, *document_);
}

std::string_view Entry::previousParentGroup() const
{
    return nodes::childText(element_, "PreviousParentGroup");
}

} // namespace quillon::model
