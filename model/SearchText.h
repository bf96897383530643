// model/SearchText.h: the lower-cased text that a search scope covers in one entry.
#pragma once

#include "kdbx/SecureBytes.h"
#include "model/Entry.h"
#include "model/Search.h"

#include <pugixml.hpp>

#include <vector>

namespace quillon::model {

// Reusable: keeps its scratch space between entries.
class SearchText {
public:
    // Appends the scope's texts, in their fixed order, joined with single spaces and lower-cased.
    void append(pugi::xml_node entry, SearchScope scope, kdbx::SecureBytes& out);

    // Starts loading an entry's elements ahead of append(), so that walking many entries overlaps
    // their memory latency instead of paying it element by element. Only a hint: nothing is read.
    static void prefetch(pugi::xml_node entry) noexcept;

private:
    void add(std::string_view text, kdbx::SecureBytes& out);

    std::vector<CustomField> custom_;
    bool first_ = true;
};

} // namespace quillon::model
