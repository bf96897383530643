// tools/UriComponents.h: strict RFC 3986 splitting of a URI into its raw components, and percent-decoding.
#pragma once

#include "kdbx/SecureBytes.h"

#include <optional>
#include <string_view>
#include <vector>

namespace quillon::tools {

// Components as they stand in the text (still percent-encoded); they view the text passed to splitUri.
struct UriComponents {
    std::string_view scheme;
    std::optional<std::string_view> host; // present when the URI has an authority ("//...")
    std::string_view path;
    std::optional<std::string_view> query;
    std::optional<std::string_view> fragment;
};

// Nothing when the text is not a URI: no scheme, a character that no URI may hold (space, non-ASCII,
// control), a "%" not followed by two hex digits, or a malformed authority.
std::optional<UriComponents> splitUri(std::string_view text);

struct QueryItem {
    std::string_view name;                 // raw
    std::optional<std::string_view> value; // raw; absent when the item has no "="
};

// Items separated by "&", each split at its first "=".
std::vector<QueryItem> splitQuery(std::string_view query);

// Appends the decoded bytes; false on a malformed escape. "+" stays "+".
bool percentDecode(std::string_view raw, kdbx::SecureBytes& out);

} // namespace quillon::tools
