#include "model/Search.h"

#include "model/Nodes.h"
#include "model/SearchText.h"
#include "model/UnicodeCase.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace quillon::model {

std::optional<SearchScope> searchScopeFromInt(long long value) noexcept
{
    if (value < 0 || value > 5)
        return std::nullopt;
    return static_cast<SearchScope>(value);
}

namespace {

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
    return isUnicodeSpace(c);
}

} // namespace

void appendLowerCase(std::string_view utf8, kdbx::SecureBytes& out)
{
    const auto* p = reinterpret_cast<const unsigned char*>(utf8.data());
    std::size_t left = utf8.size();
    while (left > 0) {
        if (*p < 0x80) {
            // An ASCII run, eight bytes at a time: every entry's texts pass through here on a first search.
            const std::size_t at = out.size();
            out.resizeUninitialised(at + left);
            std::uint8_t* d = out.data() + at;
            std::size_t run = 0;
            constexpr std::uint64_t ones = 0x0101010101010101;
            constexpr std::uint64_t high = 0x80 * ones;
            while (left - run >= 8) {
                std::uint64_t w;
                std::memcpy(&w, p + run, 8);
                if (w & high)
                    break;
                // With every byte below 0x80 the sums cannot carry into the next byte: bit 7 of each
                // byte says whether it reached 'A', and whether it passed 'Z'.
                const std::uint64_t fromA = w + (0x80 - 'A') * ones;
                const std::uint64_t pastZ = w + (0x80 - 'Z' - 1) * ones;
                w |= ((fromA & ~pastZ) & high) >> 2;
                std::memcpy(d + run, &w, 8);
                run += 8;
            }
            for (; run < left && p[run] < 0x80; ++run)
                d[run] = (p[run] >= 'A' && p[run] <= 'Z') ? static_cast<std::uint8_t>(p[run] - 'A' + 'a') : p[run];
            out.resizeUninitialised(at + run);
            p += run;
            left -= run;
            continue;
        }
        char32_t c = 0;
        const std::size_t n = kdbx::decodeUtf8(p, left, c);
        if (n == 0) {
            out.push_back(*p);
            ++p;
            --left;
            continue;
        }
        appendUtf8(unicodeLowerCase(c), out);
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
        std::size_t n = kdbx::decodeUtf8(p, left, c);
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

// One entry's texts for a scope, joined in a reused wiped buffer.
class Matcher {
public:
    bool matches(pugi::xml_node entry, const std::vector<kdbx::SecureBytes>& terms, SearchScope scope)
    {
        if (terms.empty())
            return true;
        joined_.resize(0);
        text_.append(entry, scope, joined_);
        const std::string_view haystack = joined_.view();
        for (const auto& term : terms)
            if (haystack.find(term.view()) == std::string_view::npos)
                return false;
        return true;
    }

private:
    SearchText text_;
    kdbx::SecureBytes joined_;
};

} // namespace

bool matches(const Entry& entry, const std::vector<kdbx::SecureBytes>& terms, SearchScope scope)
{
    Matcher matcher;
    return matcher.matches(entry.element(), terms, scope);
}

std::vector<Entry> entriesToList(Document& document, const std::optional<Group>& selected,
                                 std::string_view text, SearchScope scope)
{
    const SearchQuery query = parseQuery(text, scope);
    if (query.terms.empty())
        return selected ? selected->entries() : std::vector<Entry>{};
    const auto top = document.topGroup();
    if (!top)
        return {};
    const auto entries = top->searchableEntries();
    const std::size_t parts = partCount(entries.size());
    std::vector<std::vector<std::size_t>> hits(parts);
    inParts(entries.size(), parts, [&](std::size_t part, std::size_t begin, std::size_t end) {
        Matcher matcher;
        for (std::size_t i = begin; i < end; ++i) {
            if (i + 2 < end)
                SearchText::prefetch(entries[i + 2].element());
            if (matcher.matches(entries[i].element(), query.terms, scope))
                hits[part].push_back(i);
        }
    });
    std::vector<Entry> out;
    for (std::size_t part = 0; part < parts; ++part)
        for (const std::size_t i : hits[part])
            out.push_back(entries[i]);
    return out;
}

} // namespace quillon::model
