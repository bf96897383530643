#include "model/Search.h"

#include "model/Nodes.h"

#include <array>
#include <cstring>
#include <cwctype>

#include <locale.h>
#include <wctype.h>

namespace quillon::model {

std::optional<SearchScope> searchScopeFromInt(long long value) noexcept
{
    if (value < 0 || value > 5)
        return std::nullopt;
    return static_cast<SearchScope>(value);
}

namespace {

// glibc's C.UTF-8 carries the full Unicode case tables and, unlike the global locale, is always there.
locale_t caseLocale() noexcept
{
    static const locale_t loc = newlocale(LC_CTYPE_MASK, "C.UTF-8", locale_t(nullptr));
    return loc;
}

void appendUtf8(char32_t c, kdbx::SecureBytes& out)
{
    if (c < 0x80) {
        out.push_back(static_cast<std::uint8_t>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<std::uint8_t>(0xC0 | (c >> 6)));
        out.push_back(static_cast<std::uint8_t>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<std::uint8_t>(0xE0 | (c >> 12)));
        out.push_back(static_cast<std::uint8_t>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<std::uint8_t>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<std::uint8_t>(0xF0 | (c >> 18)));
        out.push_back(static_cast<std::uint8_t>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<std::uint8_t>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<std::uint8_t>(0x80 | (c & 0x3F)));
    }
}

bool isSpace(char32_t c) noexcept
{
    if (c < 0x80)
        return c == ' ' || (c >= 0x09 && c <= 0x0D);
    const auto loc = caseLocale();
    return loc ? iswspace_l(static_cast<wint_t>(c), loc) != 0 : false;
}

} // namespace

void appendLowerCase(std::string_view utf8, kdbx::SecureBytes& out)
{
    const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
    std::size_t left = utf8.size();
    while (left > 0) {
        const unsigned char b = *p;
        if (b < 0x80) {
            out.push_back(b >= 'A' && b <= 'Z' ? static_cast<std::uint8_t>(b - 'A' + 'a') : b);
            ++p;
            --left;
            continue;
        }
        char32_t c = 0;
        const std::size_t n = detail::decodeUtf8(p, left, c);
        if (n == 0) {
            out.push_back(b);
            ++p;
            --left;
            continue;
        }
        const auto loc = caseLocale();
        const auto lower = loc ? static_cast<char32_t>(towlower_l(static_cast<wint_t>(c), loc)) : c;
        appendUtf8(lower, out);
        p += n;
        left -= n;
    }
}

SearchQuery parseQuery(std::string_view text, SearchScope scope)
{
    SearchQuery query;
    query.scope = scope;
    kdbx::SecureBytes current;
    bool inQuotes = false;
    const auto finish = [&] {
        if (current.empty())
            return;
        kdbx::SecureBytes lower;
        lower.reserve(current.size());
        appendLowerCase(current.view(), lower);
        query.terms.push_back(std::move(lower));
        current.wipe();
    };
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t left = text.size();
    while (left > 0) {
        char32_t c = 0;
        std::size_t n = detail::decodeUtf8(p, left, c);
        if (n == 0) {
            n = 1;
            c = 0xFFFD;
        }
        if (c == '"') {
            if (inQuotes)
                finish();
            inQuotes = !inQuotes;
        } else if (!inQuotes && isSpace(c)) {
            finish();
        } else {
            current.append(std::string_view(reinterpret_cast<const char*>(p), n));
        }
        p += n;
        left -= n;
    }
    finish();
    return query;
}

namespace {

// Gathers one entry's texts for a scope into a reused wiped buffer.
class Matcher {
public:
    bool matches(pugi::xml_node entry, const std::vector<kdbx::SecureBytes>& terms, SearchScope scope)
    {
        if (terms.empty())
            return true;
        joined_.resize(0);
        collect(entry, scope);
        const std::string_view haystack = joined_.view();
        for (const auto& term : terms)
            if (haystack.find(term.view()) == std::string_view::npos)
                return false;
        return true;
    }

private:
    void add(std::string_view text)
    {
        if (!first_)
            joined_.push_back(' ');
        first_ = false;
        appendLowerCase(text, joined_);
    }

    void collect(pugi::xml_node entry, SearchScope scope)
    {
        first_ = true;
        std::array<std::string_view, 5> standard{};
        custom_.clear();
        for (const auto s : entry.children("String")) {
            const std::string_view key = s.child("Key").text().get();
            const auto valueNode = s.child("Value");
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
            add(standard[0]);
            add(standard[1]);
            add(standard[3]);
            add(standard[4]);
            for (const auto& field : custom_)
                if (!field.isProtected) {
                    add(field.name);
                    joined_.push_back(' ');
                    appendLowerCase(field.value, joined_);
                }
            for (const auto& field : custom_)
                add(field.name);
            break;
        case SearchScope::title:
            add(standard[0]);
            break;
        case SearchScope::username:
            add(standard[1]);
            break;
        case SearchScope::url:
            add(standard[3]);
            break;
        case SearchScope::notes:
            add(standard[4]);
            break;
        case SearchScope::password:
            add(standard[2]);
            for (const auto& field : custom_)
                if (field.isProtected)
                    add(field.value);
            break;
        }
    }

    kdbx::SecureBytes joined_;
    std::vector<CustomField> custom_;
    bool first_ = true;
};

} // namespace

bool matches(const Entry& entry, const std::vector<kdbx::SecureBytes>& terms, SearchScope scope)
{
    Matcher matcher;
    return matcher.matches(entry.element(), terms, scope);
}

std::vector<Entry> entriesToList(const Document& document, const std::optional<Group>& selected,
                                 std::string_view text, SearchScope scope)
{
    const SearchQuery query = parseQuery(text, scope);
    if (query.terms.empty())
        return selected ? selected->entries() : std::vector<Entry>{};
    const auto top = document.topGroup();
    if (!top)
        return {};
    std::vector<Entry> out;
    Matcher matcher;
    for (const auto& entry : top->searchableEntries())
        if (matcher.matches(entry.element(), query.terms, scope))
            out.push_back(entry);
    return out;
}

} // namespace quillon::model
