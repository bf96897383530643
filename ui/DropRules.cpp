#include "ui/DropRules.h"

#include "model/Moves.h"
#include "ui/VaultTexts.h"

#include <QMimeData>

namespace quillon::ui {
namespace {

QString fromUtf8(std::string_view text)
{
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

bool same(const std::optional<model::Group>& group, pugi::xml_node element)
{
    return group && group->element() == element;
}

} // namespace

DropRules::DropRules(state::DatabaseSession& session) : session_(session) {}

QMimeData* DropRules::remember(pugi::xml_node element, std::string_view uuid, bool isGroup)
{
    auto* data = new QMimeData;
    // The identity only: nothing secret leaves for a program that reads the drag.
    data->setData(isGroup ? groupType : entryRowType, QByteArray(uuid.data(), qsizetype(uuid.size())));
    drag_ = Drag{data, std::string(uuid), element, session_.document().revision(), isGroup};
    return data;
}

QMimeData* DropRules::dragEntry(const model::Entry& entry)
{
    return remember(entry.element(), entry.uuid(), false);
}

QMimeData* DropRules::dragGroup(const model::Group& group)
{
    return remember(group.element(), group.uuid(), true);
}

pugi::xml_node DropRules::dragged(const QMimeData* data, bool isGroup) const
{
    if (!data || drag_.data != data || drag_.isGroup != isGroup || !session_.isOpen())
        return {};
    auto& document = session_.document();
    if (document.revision() != drag_.revision) {
        // The element may have gone (an undo during the drag): found again by its UUID.
        pugi::xml_node found;
        if (isGroup) {
            if (const auto group = document.findGroup(drag_.uuid))
                found = group->element();
        } else if (const auto entry = document.findEntry(drag_.uuid)) {
            found = entry->element();
        }
        drag_.element = found;
        drag_.revision = document.revision();
    }
    return drag_.element;
}

std::optional<model::Entry> DropRules::draggedEntry(const QMimeData* data) const
{
    const auto element = dragged(data, false);
    if (!element)
        return std::nullopt;
    return session_.document().entry(element);
}

std::optional<model::Group> DropRules::draggedGroup(const QMimeData* data) const
{
    const auto element = dragged(data, true);
    if (!element)
        return std::nullopt;
    return session_.document().group(element);
}

bool DropRules::canReorder(const QMimeData* data, const Table& table) const
{
    if (table.searching || table.sorted || !table.group)
        return false;
    const auto entry = draggedEntry(data);
    return entry && same(table.group, entry->element().parent());
}

bool DropRules::reorder(const QMimeData* data, const Table& table, const std::optional<model::Entry>& before)
{
    if (!canReorder(data, table))
        return false;
    if (before && before->element().parent() != table.group->element())
        return false;
    return session_.reorder(*draggedEntry(data), before);
}

bool DropRules::canDropOnGroup(const QMimeData* data, const std::optional<model::Group>& target,
                               const std::optional<model::Group>& before) const
{
    if (!target)
        return false;
    if (const auto entry = draggedEntry(data))
        return entry->element().parent() != target->element();
    const auto group = draggedGroup(data);
    if (!group || !model::canMoveGroup(*group, *target))
        return false;
    return !before || (before->element().parent() == target->element() && before->element() != group->element());
}

bool DropRules::dropOnGroup(const QMimeData* data, const std::optional<model::Group>& target,
                            const std::optional<model::Group>& before)
{
    if (!canDropOnGroup(data, target, before))
        return false;
    const auto ask = [this](const QString& question) { return confirm_ && confirm_(question); };
    if (const auto entry = draggedEntry(data)) {
        if (model::moveDeletesPermanently(*entry, *target) && !ask(vaultText::permanentlyDeleteQuestion(fromUtf8(entry->title()))))
            return false;
        return session_.moveEntry(*entry, *target) != model::MoveResult::refused;
    }
    const auto group = *draggedGroup(data);
    if (model::moveDeletesPermanently(group, *target) &&
        !ask(vaultText::permanentlyDeleteQuestion(fromUtf8(group.name()),
                                           vaultText::contents(group.allEntries().size(), group.allGroups().size()))))
        return false;
    return session_.moveGroup(group, *target, before) != model::MoveResult::refused;
}

} // namespace quillon::ui
