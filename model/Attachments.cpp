#include "model/Attachments.h"

#include "model/Document.h"
#include "model/Encodings.h"
#include "model/Nodes.h"

namespace quillon::model {
namespace {

pugi::xml_node attachmentNamed(const Entry &entry, std::string_view name)
{
    for (const auto b : entry.element().children("Binary"))
        if (name == b.child_value("Key"))
            return b;
    return {};
}

std::optional<std::size_t> refOf(pugi::xml_node binary)
{
    const auto ref = readDecimal(binary.child("Value").attribute("Ref").value());
    if (!ref || *ref < 0)
        return std::nullopt;
    return static_cast<std::size_t>(*ref);
}

} // namespace

std::vector<Attachment> attachments(const Entry &entry)
{
    std::vector<Attachment> out;
    for (const auto b : entry.element().children("Binary"))
        out.push_back({b.child_value("Key"), refOf(b)});
    return out;
}

std::optional<std::size_t> attachmentRef(const Entry &entry, std::string_view name)
{
    const auto b = attachmentNamed(entry, name);
    if (!b)
        return std::nullopt;
    return refOf(b);
}

void setAttachment(const Entry &entry, std::string_view name, std::size_t poolIndex)
{
    const Document::ContentChange change(entry.document(), entry.element());
    auto existing = attachmentNamed(entry, name);
    if (!existing) {
        pugi::xml_node before;
        for (const auto child : entry.element().children())
            if (nodes::isNamed(child, "AutoType") || nodes::isNamed(child, "History")) {
                before = child;
                break;
            }
        existing =
            before ? entry.element().insert_child_before("Binary", before) : entry.element().append_child("Binary");
        nodes::setText(existing.append_child("Key"), name);
        existing.append_child("Value");
    }
    auto value = nodes::childOrAppend(existing, "Value");
    while (auto a = value.first_attribute())
        value.remove_attribute(a);
    value.remove_children();
    if (value.text()) // text kept in the element itself
        value.text().set("");
    value.append_attribute("Ref").set_value(static_cast<unsigned long long>(poolIndex));
    entry.touch();
}

bool removeAttachment(const Entry &entry, std::string_view name)
{
    if (!attachmentNamed(entry, name))
        return false;
    const Document::ContentChange change(entry.document(), entry.element());
    while (const auto b = attachmentNamed(entry, name))
        nodes::remove(b);
    entry.touch();
    return true;
}

} // namespace quillon::model
