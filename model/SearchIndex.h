// model/SearchIndex.h: search-as-you-type over a copy of the searched texts kept in one wiped buffer.
#pragma once

#include "kdbx/SecureBytes.h"
#include "model/Document.h"
#include "model/Search.h"

#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quillon::model {

class SearchText;

// Walking a large tree on every keystroke costs more than scanning contiguous text, so the texts of one
// scope are gathered once and reused while the document stays the same. After edits confined to single
// entries (Document::entryChanged) only those entries are gathered again; any other change made through
// the model gathers everything on the next search, but for new items, moves and filing into or out of the
// bin, after which the searchable entries are listed again and only entries new to the index are gathered. Code that changes the tree behind the model's back
// must call Document::changed(), or the index may hold handles on removed elements.
// Gives exactly what entriesToList gives.
class SearchIndex {
public:
    explicit SearchIndex(Document& document) : document_(&document) {}

    std::vector<Entry> entriesToList(const std::optional<Group>& selected, std::string_view text, SearchScope scope);
    // Gathers the texts of a scope ahead of the first search, for example where the tree was decoded.
    void prepare(SearchScope scope) { rebuild(scope); }
    // Wipes the gathered texts (on lock).
    void clear() noexcept;

private:
    void rebuild(SearchScope scope);
    // Gathers again the entries changed since the last search; false when everything must be gathered.
    bool refresh();
    // Lists the searchable entries again after items moved, keeping the texts already gathered.
    void regroup(SearchText& gather);

    // Where new texts go: the last buffer.
    kdbx::SecureBytes& tail();
    std::size_t textSize() const noexcept;

    // A guess of the texts' size before anything was gathered, so that most buffers never grow.
    static constexpr std::size_t firstGuessPerEntry = 512;

    struct Span {
        pugi::xml_node entry;
        std::size_t part; // which of texts_
        std::size_t offset;
        std::size_t size;
    };
    Document* document_;
    // The gathered texts, in one buffer per part that was gathered on its own thread.
    std::vector<kdbx::SecureBytes> texts_;
    std::vector<Span> spans_;
    // Span index by entry element, for refreshing single entries.
    std::unordered_map<const void*, std::size_t> spanOf_;
    // Bytes of texts_ that no span points at any more.
    std::size_t stale_ = 0;
    std::optional<SearchScope> scope_;
    std::uint64_t revision_ = 0;
};

} // namespace quillon::model
