#include "ui/EntrySortProxy.h"

#include "ui/DropRules.h"
#include "ui/EntryTableModel.h"

#include <QLocale>
#include <QMimeData>

namespace quillon::ui {

EntrySortProxy::EntrySortProxy(QObject* parent) : QSortFilterProxyModel(parent)
{
    // Under the C locale Qt compares code points, which has neither numbers by value nor case folding.
    if (QLocale().language() == QLocale::C)
        collator_.setLocale(QLocale(QLocale::English, QLocale::UnitedStates));
    collator_.setNumericMode(true);
    collator_.setCaseSensitivity(Qt::CaseInsensitive);
    setSortRole(EntryTableModel::sortRole);
    // Document order until a header is clicked.
    sort(-1);
}

bool EntrySortProxy::isSortable(int column) noexcept
{
    return column == EntryTableModel::title || column == EntryTableModel::username ||
           column == EntryTableModel::modified;
}

void EntrySortProxy::headerClicked(int column)
{
    if (isSortable(column)) {
        if (sortColumn_ == column) {
            direction_ = direction_ == SortDirection::ascending ? SortDirection::descending : SortDirection::original;
            if (direction_ == SortDirection::original)
                sortColumn_.reset();
        } else {
            sortColumn_ = column;
            direction_ = SortDirection::ascending;
        }
        if (sortColumn_)
            sort(*sortColumn_, direction_ == SortDirection::ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
        else
            sort(-1);
    }
    Q_EMIT sortStateChanged();
}

void EntrySortProxy::setSourceModel(QAbstractItemModel* source)
{
    if (sourceModel())
        disconnect(sourceModel(), nullptr, this, nullptr);
    forgetAll();
    entries_ = qobject_cast<const EntryTableModel*>(source);
    // Connected ahead of the base class, so that stale keys are gone before it sorts again.
    if (source) {
        connect(source, &QAbstractItemModel::dataChanged, this,
                [this](const QModelIndex& from, const QModelIndex& to) { forgetRows({}, from.row(), to.row()); });
        connect(source, &QAbstractItemModel::rowsAboutToBeRemoved, this, &EntrySortProxy::forgetRows);
        connect(source, &QAbstractItemModel::modelAboutToBeReset, this, &EntrySortProxy::forgetAll);
        connect(source, &QAbstractItemModel::layoutAboutToBeChanged, this, &EntrySortProxy::forgetAll);
    }
    QSortFilterProxyModel::setSourceModel(source);
}

void EntrySortProxy::sort(int column, Qt::SortOrder order)
{
    const int rows = entries_ && isSortable(column) ? sourceModel()->rowCount() : 0;
    for (int row = 0; row < rows; ++row) {
        const auto at = sourceModel()->index(row, column);
        if (column == EntryTableModel::modified)
            rowTime_.push_back(timeKey(keyOf(at), at));
        else
            rowText_.push_back(&textKey(keyOf(at), at));
    }
    QSortFilterProxyModel::sort(column, order);
    rowText_.clear();
    rowTime_.clear();
}

void EntrySortProxy::forgetRows(const QModelIndex& parent, int first, int last)
{
    if (parent.isValid())
        return;
    for (int row = first; row <= last; ++row) {
        const auto* key = keyOf(sourceModel()->index(row, 0));
        textKeys_.erase(key);
        timeKeys_.erase(key);
    }
}

void EntrySortProxy::forgetAll()
{
    textKeys_.clear();
    timeKeys_.clear();
}

const void* EntrySortProxy::keyOf(const QModelIndex& source) const
{
    return entries_ ? entries_->elementAt(source.row()).internal_object() : nullptr;
}

const QCollatorSortKey& EntrySortProxy::textKey(const void* key, const QModelIndex& source) const
{
    if (textKeysColumn_ != source.column()) {
        textKeys_.clear();
        textKeysColumn_ = source.column();
    }
    auto at = textKeys_.find(key);
    if (at == textKeys_.end())
        at = textKeys_.insert_or_assign(key, collator_.sortKey(source.data(EntryTableModel::sortRole).toString())).first;
    return at->second;
}

qint64 EntrySortProxy::timeKey(const void* key, const QModelIndex& source) const
{
    if (const auto at = timeKeys_.find(key); at != timeKeys_.end())
        return at->second;
    const auto time = source.data(EntryTableModel::sortRole).toLongLong();
    timeKeys_.insert_or_assign(key, time);
    return time;
}

bool EntrySortProxy::lessThan(const QModelIndex& left, const QModelIndex& right) const
{
    const auto l = std::size_t(left.row());
    const auto r = std::size_t(right.row());
    if (l < rowTime_.size() && r < rowTime_.size())
        return rowTime_[l] < rowTime_[r];
    if (l < rowText_.size() && r < rowText_.size())
        return rowText_[l]->compare(*rowText_[r]) < 0;
    const auto* leftKey = keyOf(left);
    const auto* rightKey = keyOf(right);
    if (!leftKey || !rightKey) {
        const auto a = left.data(EntryTableModel::sortRole);
        const auto b = right.data(EntryTableModel::sortRole);
        if (left.column() == EntryTableModel::modified)
            return a.toLongLong() < b.toLongLong();
        return collator_.compare(a.toString(), b.toString()) < 0;
    }
    if (left.column() == EntryTableModel::modified)
        return timeKey(leftKey, left) < timeKey(rightKey, right);
    // Made one at a time: the second may rehash the map under the first.
    const auto a = textKey(leftKey, left);
    return a.compare(textKey(rightKey, right)) < 0;
}

Qt::ItemFlags EntrySortProxy::flags(const QModelIndex& index) const
{
    const auto flags = QSortFilterProxyModel::flags(index);
    if (!rules_)
        return flags;
    // Rows take no drop of their own: one aimed at a row lands between rows.
    return index.isValid() ? flags | Qt::ItemIsDragEnabled : flags | Qt::ItemIsDropEnabled;
}

QStringList EntrySortProxy::mimeTypes() const
{
    return {entryRowType};
}

QMimeData* EntrySortProxy::mimeData(const QModelIndexList& indexes) const
{
    if (!rules_ || !entries_ || indexes.isEmpty())
        return nullptr;
    const auto entry = entries_->entryAt(mapToSource(indexes.front()));
    return entry ? rules_->dragEntry(*entry) : nullptr;
}

Qt::DropActions EntrySortProxy::supportedDragActions() const
{
    return Qt::MoveAction;
}

Qt::DropActions EntrySortProxy::supportedDropActions() const
{
    return Qt::MoveAction;
}

std::optional<model::Entry> EntrySortProxy::entryAtDrop(int row, const QModelIndex& parent) const
{
    if (parent.isValid())
        row = parent.row();
    if (row < 0 || row >= rowCount())
        return std::nullopt;
    return entries_->entryAt(mapToSource(index(row, 0)));
}

bool EntrySortProxy::canDropMimeData(const QMimeData* data, Qt::DropAction action, int, int,
                                     const QModelIndex&) const
{
    return rules_ && entries_ && action == Qt::MoveAction &&
           rules_->canReorder(data, {entries_->isSearching(), direction_ != SortDirection::original, entries_->group()});
}

bool EntrySortProxy::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                  const QModelIndex& parent)
{
    if (!canDropMimeData(data, action, row, column, parent))
        return false;
    return rules_->reorder(data, {entries_->isSearching(), direction_ != SortDirection::original, entries_->group()},
                           entryAtDrop(row, parent));
}

} // namespace quillon::ui
