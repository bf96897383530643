#include "model/SearchIndex.h"

#include "model/Group.h"
#include "model/SearchText.h"

namespace quillon::model {

void SearchIndex::clear() noexcept
{
    text_.wipe();
    spans_.clear();
    spanOf_.clear();
    stale_ = 0;
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
    const auto entries = top->searchableEntries();
    spans_.reserve(entries.size());
    spanOf_.reserve(entries.size());
    SearchText gather;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (i + 2 < entries.size())
            SearchText::prefetch(entries[i + 2].element());
        const auto& entry = entries[i];
        const std::size_t offset = text_.size();
        gather.append(entry.element(), scope, text_);
        spanOf_.emplace(entry.element().internal_object(), spans_.size());
        spans_.push_back({entry.element(), offset, text_.size() - offset});
    }
}

bool SearchIndex::refresh()
{
    if (revision_ == document_->revision())
        return true;
    SearchText gather;
    const bool known = document_->forEachEntryChangedSince(revision_, [&](pugi::xml_node entry) {
        // Entries outside the index (history versions, unsearchable groups) stay outside it.
        const auto found = spanOf_.find(entry.internal_object());
        if (found == spanOf_.end())
            return;
        auto& span = spans_[found->second];
        stale_ += span.size;
        span.offset = text_.size();
        gather.append(entry, *scope_, text_);
        span.size = text_.size() - span.offset;
    });
    if (!known)
        return false;
    if (document_->structureChangedSince(revision_))
        regroup(gather);
    // Replaced texts pile up at the end; past half the buffer, gathering afresh is cheaper than carrying them.
    if (stale_ > text_.size() / 2)
        return false;
    revision_ = document_->revision();
    return true;
}

void SearchIndex::regroup(SearchText& gather)
{
    std::vector<Span> spans;
    std::unordered_map<const void*, std::size_t> spanOf;
    if (const auto top = document_->topGroup()) {
        const auto entries = top->searchableEntries();
        spans.reserve(entries.size());
        spanOf.reserve(entries.size());
        for (const auto& entry : entries) {
            const void* key = entry.element().internal_object();
            if (const auto found = spanOf_.find(key); found != spanOf_.end()) {
                spans.push_back(spans_[found->second]);
                spans_[found->second].size = 0; // carried over, so not stale
            } else {
                const std::size_t offset = text_.size();
                gather.append(entry.element(), *scope_, text_);
                spans.push_back({entry.element(), offset, text_.size() - offset});
            }
            spanOf.emplace(key, spans.size() - 1);
        }
    }
    for (const auto& span : spans_)
        stale_ += span.size;
    spans_ = std::move(spans);
    spanOf_ = std::move(spanOf);
}

std::vector<Entry> SearchIndex::entriesToList(const std::optional<Group>& selected, std::string_view text,
                                              SearchScope scope)
{
    const SearchQuery query = parseQuery(text, scope);
    if (query.terms.empty())
        return selected ? selected->entries() : std::vector<Entry>{};
    if (scope_ != scope || !refresh())
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
