#include "model/SearchIndex.h"

#include "model/Group.h"
#include "model/SearchText.h"

namespace quillon::model {

void SearchIndex::clear() noexcept
{
    text_.wipe();
    spans_.clear();
    scope_.reset();
}

void SearchIndex::rebuild(SearchScope scope)
{
    clear();
    scope_ = scope;
    revision_ = document_->revision();
    const auto top = document_->topGroup();
    if (!top)
        return;
    SearchText gather;
    for (const auto& entry : top->searchableEntries()) {
        const std::size_t offset = text_.size();
        gather.append(entry.element(), scope, text_);
        spans_.push_back({entry.element(), offset, text_.size() - offset});
    }
}

std::vector<Entry> SearchIndex::entriesToList(const std::optional<Group>& selected, std::string_view text,
                                              SearchScope scope)
{
    const SearchQuery query = parseQuery(text, scope);
    if (query.terms.empty())
        return selected ? selected->entries() : std::vector<Entry>{};
    if (scope_ != scope || revision_ != document_->revision())
        rebuild(scope);
    std::vector<Entry> out;
    const std::string_view all = text_.view();
    for (const auto& span : spans_) {
        const std::string_view haystack = all.substr(span.offset, span.size);
        bool hit = true;
        for (const auto& term : query.terms)
            if (haystack.find(term.view()) == std::string_view::npos) {
                hit = false;
                break;
            }
        if (hit)
            out.emplace_back(span.entry, *document_);
    }
    return out;
}

} // namespace quillon::model
