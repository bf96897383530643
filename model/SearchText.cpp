#include "model/SearchText.h"

#include <array>
#include <cstring>

namespace quillon::model {
namespace {

bool isNamed(pugi::xml_node node, const char* name) noexcept
{
    const char* n = node.name();
    return n[0] == name[0] && std::strcmp(n, name) == 0;
}

} // namespace

void SearchText::add(std::string_view text, kdbx::SecureBytes& out)
{
    if (!first_)
        out.push_back(' ');
    first_ = false;
    appendLowerCase(text, out);
}

void SearchText::append(pugi::xml_node entry, SearchScope scope, kdbx::SecureBytes& out)
{
    first_ = true;
    std::array<std::string_view, 5> standard{};
    custom_.clear();
    // Plain sibling walks with a first-letter test: this loop runs for every entry on every keystroke.
    for (auto s = entry.first_child(); s; s = s.next_sibling()) {
        if (!isNamed(s, "String"))
            continue;
        pugi::xml_node keyNode, valueNode;
        for (auto c = s.first_child(); c; c = c.next_sibling()) {
            if (!keyNode && isNamed(c, "Key"))
                keyNode = c;
            else if (!valueNode && isNamed(c, "Value"))
                valueNode = c;
        }
        const std::string_view key = keyNode.text().get();
        const std::string_view value = valueNode.text().get();
        bool isStandard = false;
        for (std::size_t i = 0; i < standardFieldNames.size(); ++i)
            if (key == standardFieldNames[i]) {
                // The first String with a name is the field; later duplicates are not read.
                if (standard[i].data() == nullptr)
                    standard[i] = value;
                isStandard = true;
                break;
            }
        if (!isStandard)
            custom_.push_back({key, value, std::string_view(valueNode.attribute("Protected").value()) == trueText});
    }
    switch (scope) {
    case SearchScope::everywhere:
        add(standard[0], out);
        add(standard[1], out);
        add(standard[3], out);
        add(standard[4], out);
        for (const auto& field : custom_)
            if (!field.isProtected) {
                add(field.name, out);
                out.push_back(' ');
                appendLowerCase(field.value, out);
            }
        for (const auto& field : custom_)
            add(field.name, out);
        break;
    case SearchScope::title:
        add(standard[0], out);
        break;
    case SearchScope::username:
        add(standard[1], out);
        break;
    case SearchScope::url:
        add(standard[3], out);
        break;
    case SearchScope::notes:
        add(standard[4], out);
        break;
    case SearchScope::password:
        // Passwords and protected custom values are read only here, straight into wiped memory.
        add(standard[2], out);
        for (const auto& field : custom_)
            if (field.isProtected)
                add(field.value, out);
        break;
    }
}

} // namespace quillon::model
