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

// The live entries under `top`, in document order, walked without recursion: a hostile file may nest deeply.
std::vector<pugi::xml_node> entriesUnder(pugi::xml_node top)
{
    std::vector<pugi::xml_node> entries;
    std::vector<pugi::xml_node> groups{top};
    while (!groups.empty()) {
        const auto group = groups.back();
        groups.pop_back();
        if (model::nodes::isNamed(group, "Entry")) {
            entries.push_back(group);
            continue;
        }
        for (auto child = group.last_child(); child; child = child.previous_sibling())
            if (model::nodes::isNamed(child, "Entry") || model::nodes::isNamed(child, "Group"))
                groups.push_back(child);
    }
    return entries;
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

void SortKeys::gather(pugi::xml_node topGroup)
{
    fill(topGroup);
}

void SortKeys::fill(pugi::xml_node topGroup) const
{
    keys_.clear();
    pending_ = {};
    const auto entries = entriesUnder(topGroup);
    const auto parts = model::partCount(entries.size());
    std::vector<std::vector<Keys>> made(parts);
    model::inParts(entries.size(), parts, [&](std::size_t part, std::size_t begin, std::size_t end) {
        // A collator of the part's own: the keys are made on several threads at once.
        const auto collator = SortKeys::collator();
        auto& out = made[part];
        out.reserve(end - begin);
        for (auto i = begin; i < end; ++i) {
            if (i + 2 < end)
                model::SearchText::prefetch(entries[i + 2]);
            out.push_back(make(entries[i], collator));
        }
    });
    keys_.reserve(entries.size());
    std::size_t i = 0;
    for (auto& part : made)
        for (auto& keys : part)
            keys_.insert_or_assign(entries[i++].internal_object(), std::move(keys));
}

void SortKeys::add(pugi::xml_node item)
{
    if (pending_)
        return;
    if (model::nodes::isNamed(item, "Entry"))
        update(item);
    else if (model::nodes::isNamed(item, "Group"))
        for (const auto entry : entriesUnder(item))
            keys_.insert_or_assign(entry.internal_object(), make(entry, collator_));
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
    if (model::nodes::isNamed(item, "Group"))
        for (const auto entry : entriesUnder(item))
            keys_.erase(entry.internal_object());
}

const SortKeys::Keys* SortKeys::find(pugi::xml_node entry) const
{
    if (pending_)
        fill(pending_);
    const auto at = keys_.find(entry.internal_object());
    return at == keys_.end() ? nullptr : &at->second;
}

} // namespace quillon::state
