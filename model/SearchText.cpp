#include "model/SearchText.h"

#include <array>
#include <cstdint>

namespace quillon::model {
namespace {

// Inline, stopping at the first differing byte: a strcmp call per node costs more than the compare.
bool hasName(const char* n, std::string_view name) noexcept
{
    for (const char c : name) {
        if (*n != c)
            return false;
        ++n;
    }
    return *n == '\0';
}

bool isProtected(pugi::xml_node value) noexcept
{
    for (auto a = value.first_attribute(); a; a = a.next_attribute())
        if (hasName(a.name(), "Protected"))
            return hasName(a.value(), trueText);
    return false;
}

constexpr std::uintptr_t prefetchBytes = 8192;

constexpr std::size_t customField = standardFieldNames.size();

// Index into standardFieldNames, or customField.
std::size_t standardIndex(const char* key) noexcept
{
    switch (key[0]) {
    case 'T':
        return hasName(key, standardFieldNames[0]) ? 0 : customField;
    case 'U':
        if (key[1] == 's')
            return hasName(key, standardFieldNames[1]) ? 1 : customField;
        return hasName(key, standardFieldNames[3]) ? 3 : customField;
    case 'P':
        return hasName(key, standardFieldNames[2]) ? 2 : customField;
    case 'N':
        return hasName(key, standardFieldNames[4]) ? 4 : customField;
    default:
        return customField;
    }
}

} // namespace

void SearchText::prefetch(pugi::xml_node entry) noexcept
{
    // The parser allocates an element's descendants right after it, so the fields of the current
    // version lie in the few kilobytes that follow the Entry element.
    const auto start = reinterpret_cast<std::uintptr_t>(entry.internal_object());
    if (start == 0)
        return;
    for (std::uintptr_t offset = 0; offset < prefetchBytes; offset += 64)
        __builtin_prefetch(reinterpret_cast<const void*>(start + offset));
}

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
    // One pass over the children with inline name tests: this loop runs for every entry of the tree.
    for (auto s = entry.first_child(); s; s = s.next_sibling()) {
        if (!hasName(s.name(), "String"))
            continue;
        pugi::xml_node keyNode, valueNode;
        for (auto c = s.first_child(); c; c = c.next_sibling()) {
            const char* n = c.name();
            if (!keyNode && hasName(n, "Key"))
                keyNode = c;
            else if (!valueNode && hasName(n, "Value"))
                valueNode = c;
        }
        const char* key = keyNode.child_value();
        const std::string_view value = valueNode.child_value();
        const std::size_t i = standardIndex(key);
        if (i != customField) {
            // The first String with a name is the field; later duplicates are not read.
            if (standard[i].data() == nullptr)
                standard[i] = value;
        } else {
            custom_.push_back({key, value, isProtected(valueNode)});
        }
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
