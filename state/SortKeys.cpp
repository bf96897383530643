#include "state/SortKeys.h"

#include "model/Encodings.h"
#include "model/Nodes.h"
#include "model/SearchText.h"

#include <QLocale>

#include <limits>
#include <string_view>
#include <vector>

namespace quillon::state {
namespace {

QString fromUtf8(const char* text)
{
    return QString::fromUtf8(text);
}

bool isLiveEntry(pugi::xml_node element)
{
    return model::nodes::isNamed(element, "Entry") && model::nodes::isNamed(element.parent(), "Group");
}

} // namespace

SortKeys::SortKeys() : collator_(collator()) {}

QCollator SortKeys::collator()
{
    QCollator collator;
    // Under the C locale Qt compares code points, which has neither numbers by value nor case folding.
    if (QLocale().language() == QLocale::C)
        collator.setLocale(QLocale(QLocale::English, QLocale::UnitedStates));
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    return collator;
}

SortKeys::Keys SortKeys::make(pugi::xml_node entry, const QCollator& collator)
{
    const char* title = "";
    const char* userName = "";
    std::optional<model::Time> modified;
    // One pass over the entry's own children finds all three.
    for (auto child = entry.first_child(); child; child = child.next_sibling()) {
        if (model::nodes::isNamed(child, "String")) {
            const std::string_view key = child.child("Key").text().get();
            if (key == "Title")
                title = child.child("Value").text().get();
            else if (key == "UserName")
                userName = child.child("Value").text().get();
        } else if (model::nodes::isNamed(child, "Times")) {
            if (const auto node = child.child("LastModificationTime"))
                modified = model::readTime(node.text().get());
        }
    }
    return {collator.sortKey(fromUtf8(title)), collator.sortKey(fromUtf8(userName)),
            modified ? qint64(modified->time_since_epoch().count()) : std::numeric_limits<qint64>::min()};
}

void SortKeys::gather(const model::Group& topGroup)
{
    fill(topGroup);
}

void SortKeys::fill(const model::Group& topGroup) const
{
    keys_.clear();
    pending_.reset();
    document_ = &topGroup.document();
    const auto entries = topGroup.allEntries();
    const auto parts = model::partCount(entries.size());
    std::vector<std::vector<Keys>> made(parts);
    model::inParts(entries.size(), parts, [&](std::size_t part, std::size_t begin, std::size_t end) {
        // A collator of the part's own: the keys are made on several threads at once.
        const auto collator = SortKeys::collator();
        auto& out = made[part];
        out.reserve(end - begin);
        for (auto i = begin; i < end; ++i) {
            if (i + 2 < end)
                model::SearchText::prefetch(entries[i + 2].element());
            out.push_back(make(entries[i].element(), collator));
        }
    });
    keys_.reserve(entries.size());
    std::size_t i = 0;
    for (auto& part : made)
        for (auto& keys : part)
            keys_.insert_or_assign(entries[i++].element().internal_object(), std::move(keys));
}

void SortKeys::add(pugi::xml_node item)
{
    if (pending_)
        return;
    if (model::nodes::isNamed(item, "Entry"))
        update(item);
    else if (model::nodes::isNamed(item, "Group") && document_)
        for (const auto& entry : document_->group(item).allEntries())
            keys_.insert_or_assign(entry.element().internal_object(), make(entry.element(), collator_));
}

void SortKeys::update(pugi::xml_node item)
{
    if (pending_)
        return;
    if (isLiveEntry(item))
        keys_.insert_or_assign(item.internal_object(), make(item, collator_));
}

void SortKeys::remove(pugi::xml_node item)
{
    if (pending_)
        return;
    if (model::nodes::isNamed(item, "Entry")) {
        keys_.erase(item.internal_object());
        return;
    }
    if (model::nodes::isNamed(item, "Group") && document_)
        for (const auto& entry : document_->group(item).allEntries())
            keys_.erase(entry.element().internal_object());
}

const SortKeys::Keys* SortKeys::find(pugi::xml_node entry) const
{
    if (pending_) {
        const model::Group top = *pending_; // fill() lets go of pending_
        fill(top);
    }
    const auto at = keys_.find(entry.internal_object());
    return at == keys_.end() ? nullptr : &at->second;
}

} // namespace quillon::state
