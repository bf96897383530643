#include "model/SearchIndex.h"

#include "model/Group.h"
#include "model/SearchText.h"

namespace quillon::model {

void SearchIndex::clear() noexcept
{
    texts_.clear(); // each buffer wipes itself as it goes
    spans_.clear();
    spanOf_.clear();
    stale_ = 0;
    scope_.reset();
}

kdbx::SecureBytes& SearchIndex::tail()
{
    if (texts_.empty())
        texts_.emplace_back();
    return texts_.back();
}

std::size_t SearchIndex::textSize() const noexcept
{
    std::size_t total = 0;
    for (const auto& t : texts_)
        total += t.size();
    return total;
}

void SearchIndex::rebuild(SearchScope scope)
{
    // What the last gathering took per entry sizes this one, so that the buffers are not regrown (and
    // copied, and wiped) a dozen times each.
    const std::size_t perEntry = spans_.empty() ? 0 : textSize() / spans_.size();
    clear();
    scope_ = scope;
    revision_ = document_->revision();
    const auto top = document_->topGroup();
    if (!top)
        return;
    const auto entries = top->searchableEntries();
    spans_.reserve(entries.size());
    spanOf_.reserve(entries.size());
    // Each part gathers into a buffer of its own, which the spans of its entries point into.
    const std::size_t parts = partCount(entries.size());
    texts_.resize(parts);
    std::vector<std::vector<std::size_t>> ends(parts);
    inParts(entries.size(), parts, [&](std::size_t part, std::size_t begin, std::size_t end) {
        SearchText gather;
        auto& text = texts_[part];
        text.reserve((end - begin) * (perEntry ? perEntry + perEntry / 8 : firstGuessPerEntry));
        ends[part].reserve(end - begin);
        for (std::size_t i = begin; i < end; ++i) {
            if (i + 2 < end)
                SearchText::prefetch(entries[i + 2].element());
            gather.append(entries[i].element(), scope, text);
            ends[part].push_back(text.size());
        }
    });
    std::size_t i = 0;
    for (std::size_t part = 0; part < parts; ++part) {
        std::size_t offset = 0;
        for (const std::size_t end : ends[part]) {
            const auto& entry = entries[i++];
            spanOf_.emplace(entry.element().internal_object(), spans_.size());
            spans_.push_back({entry.element(), part, offset, end - offset});
            offset = end;
        }
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
        auto& text = tail();
        span.part = texts_.size() - 1;
        span.offset = text.size();
        gather.append(entry, *scope_, text);
        span.size = text.size() - span.offset;
    });
    if (!known)
        return false;
    if (document_->structureChangedSince(revision_))
        regroup(gather);
    // Replaced texts pile up at the end; past half the buffer, gathering afresh is cheaper than carrying them.
    if (stale_ > textSize() / 2)
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
                auto& text = tail();
                const std::size_t offset = text.size();
                gather.append(entry.element(), *scope_, text);
                spans.push_back({entry.element(), texts_.size() - 1, offset, text.size() - offset});
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
    std::vector<std::string_view> texts;
    for (const auto& t : texts_)
        texts.push_back(t.view());
    std::vector<Entry> out;
    for (const auto& span : spans_) {
        const std::string_view haystack = texts[span.part].substr(span.offset, span.size);
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
