// model/Search.h: the search field's query language and the entries it lists.
#pragma once

#include "kdbx/SecureBytes.h"
#include "model/Document.h"
#include "model/Entry.h"
#include "model/Group.h"

#include <optional>
#include <string_view>
#include <vector>

namespace quillon::model {

// Stored as an integer; the values are part of saved preferences.
enum class SearchScope : int {
    everywhere = 0,
    title = 1,
    username = 2,
    url = 3,
    notes = 4,
    password = 5,
};
std::optional<SearchScope> searchScopeFromInt(long long value) noexcept;

// Terms may hold what the user typed to find a password, so they live in wiped memory.
struct SearchQuery {
    std::vector<kdbx::SecureBytes> terms; // lower-cased, none empty
    SearchScope scope = SearchScope::everywhere;
};

// Splits on white space outside double quotes; a quoted run keeps its spaces.
SearchQuery parseQuery(std::string_view text, SearchScope scope);

// Every term must occur in the scope's texts, joined with single spaces and lower-cased.
bool matches(const Entry& entry, const std::vector<kdbx::SecureBytes>& terms, SearchScope scope);

// With terms: every searchable entry of the database that matches, in document order. Without: the
// selected group's own entries, or nothing when no group is selected.
std::vector<Entry> entriesToList(Document& document, const std::optional<Group>& selected,
                                 std::string_view text, SearchScope scope);

// Unicode lower case of UTF-8 text, appended to out; bytes that are not UTF-8 pass unchanged.
void appendLowerCase(std::string_view utf8, kdbx::SecureBytes& out);

} // namespace quillon::model
