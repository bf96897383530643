#include "ui/EntrySortProxy.h"

#include "ui/DropRules.h"
#include "state/SortKeys.h"
#include "ui/EntryTableModel.h"

#include <QLocale>
#include <QMimeData>

#include <algorithm>
#include <numeric>

namespace quillon::ui {

EntrySortProxy::EntrySortProxy(QObject* parent) : QAbstractProxyModel(parent), collator_(state::SortKeys::collator())
{
}

bool EntrySortProxy::isSortable(int column) noexcept
{
    return column == EntryTableModel::title || column == EntryTableModel::username ||
           column == EntryTableModel::modified;
}

void EntrySortProxy::headerClicked(int column)
{
    // sort() takes the new state, so that it still reads the rows in the order they are shown now.
    if (isSortable(column)) {
        if (sortColumn_ != column)
            sort(column, Qt::AscendingOrder);
        else if (direction_ == SortDirection::ascending)
            sort(column, Qt::DescendingOrder);
        else
            sort(-1);
    }
    Q_EMIT sortStateChanged();
}

void EntrySortProxy::setSourceModel(QAbstractItemModel* source)
{
    beginResetModel();
    if (sourceModel())
        disconnect(sourceModel(), nullptr, this, nullptr);
    QAbstractProxyModel::setSourceModel(source);
    entries_ = qobject_cast<const EntryTableModel*>(source);
    if (source) {
        using M = QAbstractItemModel;
        using P = EntrySortProxy;
        connect(source, &M::modelAboutToBeReset, this, &P::sourceAboutToReset);
        connect(source, &M::modelReset, this, &P::sourceReset);
        connect(source, &M::rowsAboutToBeInserted, this, &P::sourceAboutToInsert);
        connect(source, &M::rowsInserted, this, &P::sourceInserted);
        connect(source, &M::rowsAboutToBeRemoved, this, &P::sourceAboutToRemove);
        connect(source, &M::rowsRemoved, this, &P::sourceRemoved);
        connect(source, &M::rowsAboutToBeMoved, this, &P::sourceAboutToMove);
        connect(source, &M::rowsMoved, this, &P::sourceMoved);
        connect(source, &M::layoutAboutToBeChanged, this, &P::sourceAboutToLayout);
        connect(source, &M::layoutChanged, this, &P::sourceLayoutChanged);
        connect(source, &M::dataChanged, this, &P::sourceDataChanged);
        connect(source, &M::headerDataChanged, this, &M::headerDataChanged);
    }
    sortColumn_.reset();
    direction_ = SortDirection::original;
    reorder();
    endResetModel();
}

void EntrySortProxy::sort(int column, Qt::SortOrder order)
{
    if (!sourceModel())
        return;
    Q_EMIT layoutAboutToBeChanged({}, QAbstractItemModel::VerticalSortHint);
    // What each persistent index shows, by source row, before the order changes.
    const auto held = persistentIndexList();
    std::vector<int> rows;
    rows.reserve(std::size_t(held.size()));
    for (const auto& index : held)
        rows.push_back(mapToSource(index).row());

    if (isSortable(column) && entries_) {
        sortColumn_ = column;
        direction_ = order == Qt::AscendingOrder ? SortDirection::ascending : SortDirection::descending;
    } else {
        sortColumn_.reset();
        direction_ = SortDirection::original;
    }
    reorder();

    QModelIndexList moved;
    moved.reserve(held.size());
    for (qsizetype i = 0; i < held.size(); ++i) {
        const auto row = rows[std::size_t(i)];
        moved.push_back(row < 0 ? QModelIndex() : mapFromSource(sourceModel()->index(row, held[i].column())));
    }
    changePersistentIndexList(held, moved);
    Q_EMIT layoutChanged({}, QAbstractItemModel::VerticalSortHint);
}

void EntrySortProxy::reorder()
{
    order_.clear();
    position_.clear();
    textKeys_.clear();
    timeKeys_.clear();
    if (!sorted())
        return;
    const int n = sourceModel()->rowCount();
    makeKeys(0, n - 1);
    order_.resize(std::size_t(n));
    std::iota(order_.begin(), order_.end(), 0);
    std::sort(order_.begin(), order_.end(), [this](int a, int b) { return ahead(a, b); });
    position_.resize(std::size_t(n));
    renumber(0);
}

bool EntrySortProxy::ahead(int a, int b) const
{
    if (*sortColumn_ == EntryTableModel::modified) {
        const auto x = timeKeys_[std::size_t(a)];
        const auto y = timeKeys_[std::size_t(b)];
        if (x != y)
            return direction_ == SortDirection::ascending ? x < y : x > y;
    } else if (const int c = textKeys_[std::size_t(a)].compare(textKeys_[std::size_t(b)]); c != 0) {
        return direction_ == SortDirection::ascending ? c < 0 : c > 0;
    }
    return a < b;
}

void EntrySortProxy::makeKeys(int first, int last)
{
    if (last < first)
        return;
    const auto at = std::size_t(first);
    const auto count = std::size_t(last - first + 1);
    const int column = *sortColumn_;
    const auto kept = [this](int row) {
        return sortKeys_ && entries_ ? sortKeys_->find(entries_->elementAt(row)) : nullptr;
    };
    const auto read = [this, column](int row) {
        return sourceModel()->index(row, column).data(EntryTableModel::sortRole);
    };
    if (column == EntryTableModel::modified) {
        std::vector<qint64> keys;
        keys.reserve(count);
        for (int row = first; row <= last; ++row) {
            const auto* ready = kept(row);
            keys.push_back(ready ? ready->modified : read(row).toLongLong());
        }
        timeKeys_.insert(timeKeys_.begin() + std::ptrdiff_t(at), keys.begin(), keys.end());
    } else {
        std::vector<QCollatorSortKey> keys;
        keys.reserve(count);
        for (int row = first; row <= last; ++row) {
            if (const auto* ready = kept(row))
                keys.push_back(column == EntryTableModel::title ? ready->title : ready->userName);
            else
                keys.push_back(collator_.sortKey(read(row).toString()));
        }
        textKeys_.insert(textKeys_.begin() + std::ptrdiff_t(at), std::make_move_iterator(keys.begin()),
                         std::make_move_iterator(keys.end()));
    }
}

int EntrySortProxy::placeFor(int row) const
{
    return int(std::lower_bound(order_.begin(), order_.end(), row, [this](int a, int b) { return ahead(a, b); }) -
               order_.begin());
}

void EntrySortProxy::renumber(std::size_t from)
{
    for (auto i = from; i < order_.size(); ++i)
        position_[std::size_t(order_[i])] = int(i);
}

void EntrySortProxy::sourceAboutToReset()
{
    beginResetModel();
}

void EntrySortProxy::sourceReset()
{
    reorder();
    endResetModel();
}

void EntrySortProxy::sourceAboutToInsert(const QModelIndex& parent, int first, int last)
{
    if (!sorted() && !parent.isValid())
        beginInsertRows({}, first, last);
}

void EntrySortProxy::sourceInserted(const QModelIndex& parent, int first, int last)
{
    if (parent.isValid())
        return;
    if (!sorted()) {
        endInsertRows();
        return;
    }
    const int count = last - first + 1;
    for (auto& row : order_)
        if (row >= first)
            row += count;
    makeKeys(first, last);
    position_.insert(position_.begin() + first, std::size_t(count), -1);
    renumber(0);
    // One at a time, each where it belongs among those already listed.
    for (int row = first; row <= last; ++row) {
        const int at = placeFor(row);
        beginInsertRows({}, at, at);
        order_.insert(order_.begin() + at, row);
        renumber(std::size_t(at));
        endInsertRows();
    }
}

void EntrySortProxy::sourceAboutToRemove(const QModelIndex& parent, int first, int last)
{
    if (parent.isValid())
        return;
    if (!sorted()) {
        beginRemoveRows({}, first, last);
        return;
    }
    // The rows go now, in runs from the end; the source numbering changes when the source has removed them.
    std::vector<int> rows;
    for (int row = first; row <= last; ++row)
        rows.push_back(position_[std::size_t(row)]);
    std::sort(rows.begin(), rows.end());
    for (auto i = std::ptrdiff_t(rows.size()) - 1; i >= 0;) {
        const int end = rows[std::size_t(i)];
        int begin = end;
        while (i > 0 && rows[std::size_t(i - 1)] == begin - 1)
            begin = rows[std::size_t(--i)];
        --i;
        beginRemoveRows({}, begin, end);
        order_.erase(order_.begin() + begin, order_.begin() + end + 1);
        renumber(std::size_t(begin));
        endRemoveRows();
    }
}

void EntrySortProxy::sourceRemoved(const QModelIndex& parent, int first, int last)
{
    if (parent.isValid())
        return;
    if (!sorted()) {
        endRemoveRows();
        return;
    }
    const int count = last - first + 1;
    for (auto& row : order_)
        if (row > last)
            row -= count;
    if (!textKeys_.empty())
        textKeys_.erase(textKeys_.begin() + first, textKeys_.begin() + last + 1);
    if (!timeKeys_.empty())
        timeKeys_.erase(timeKeys_.begin() + first, timeKeys_.begin() + last + 1);
    position_.resize(order_.size());
    renumber(0);
}

void EntrySortProxy::sourceAboutToMove(const QModelIndex& from, int first, int last, const QModelIndex& to, int row)
{
    if (sorted())
        sourceAboutToLayout();
    else
        beginMoveRows(from, first, last, to, row);
}

void EntrySortProxy::sourceMoved(const QModelIndex&, int, int, const QModelIndex&, int)
{
    // Sorted, a move in document order changes no key, only which keys ties keep ahead.
    if (sorted())
        sourceLayoutChanged();
    else
        endMoveRows();
}

void EntrySortProxy::sourceAboutToLayout()
{
    Q_EMIT layoutAboutToBeChanged();
    heldProxy_ = persistentIndexList();
    heldSource_.clear();
    for (const auto& index : std::as_const(heldProxy_))
        heldSource_.emplace_back(mapToSource(index));
}

void EntrySortProxy::sourceLayoutChanged()
{
    reorder();
    QModelIndexList moved;
    for (const auto& source : heldSource_)
        moved.push_back(mapFromSource(source));
    changePersistentIndexList(heldProxy_, moved);
    heldProxy_.clear();
    heldSource_.clear();
    Q_EMIT layoutChanged();
}

void EntrySortProxy::sourceDataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight,
                                       const QList<int>& roles)
{
    if (!topLeft.isValid() || topLeft.parent().isValid())
        return;
    if (!sorted()) {
        Q_EMIT dataChanged(index(topLeft.row(), topLeft.column()), index(bottomRight.row(), bottomRight.column()),
                           roles);
        return;
    }
    const bool keyChanged = topLeft.column() <= *sortColumn_ && *sortColumn_ <= bottomRight.column();
    for (int row = topLeft.row(); row <= bottomRight.row(); ++row) {
        if (keyChanged) {
            if (*sortColumn_ == EntryTableModel::modified)
                timeKeys_.erase(timeKeys_.begin() + row);
            else
                textKeys_.erase(textKeys_.begin() + row);
            makeKeys(row, row);
            // A row whose key moved past a neighbour goes where it now belongs.
            const int was = position_[std::size_t(row)];
            const int last = int(order_.size()) - 1;
            if ((was > 0 && !ahead(order_[std::size_t(was - 1)], row)) ||
                (was < last && !ahead(row, order_[std::size_t(was + 1)]))) {
                order_.erase(order_.begin() + was);
                const int at = placeFor(row);
                order_.insert(order_.begin() + was, row);
                beginMoveRows({}, was, was, {}, at > was ? at + 1 : at);
                order_.erase(order_.begin() + was);
                order_.insert(order_.begin() + at, row);
                renumber(std::size_t(std::min(was, at)));
                endMoveRows();
            }
        }
        const int at = position_[std::size_t(row)];
        Q_EMIT dataChanged(index(at, topLeft.column()), index(at, bottomRight.column()), roles);
    }
}

QModelIndex EntrySortProxy::index(int row, int column, const QModelIndex& parent) const
{
    if (parent.isValid() || row < 0 || column < 0 || row >= rowCount() || column >= columnCount())
        return {};
    return createIndex(row, column);
}

QModelIndex EntrySortProxy::parent(const QModelIndex&) const
{
    return {};
}

QModelIndex EntrySortProxy::sibling(int row, int column, const QModelIndex&) const
{
    return index(row, column);
}

int EntrySortProxy::rowCount(const QModelIndex& parent) const
{
    if (parent.isValid() || !sourceModel())
        return 0;
    return sorted() ? int(order_.size()) : sourceModel()->rowCount();
}

int EntrySortProxy::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() || !sourceModel() ? 0 : sourceModel()->columnCount();
}

bool EntrySortProxy::hasChildren(const QModelIndex& parent) const
{
    return !parent.isValid() && rowCount() > 0;
}

QVariant EntrySortProxy::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (!sourceModel())
        return {};
    if (orientation == Qt::Vertical && sorted() && section >= 0 && section < int(order_.size()))
        section = order_[std::size_t(section)];
    return sourceModel()->headerData(section, orientation, role);
}

QModelIndex EntrySortProxy::mapToSource(const QModelIndex& proxy) const
{
    if (!proxy.isValid() || !sourceModel())
        return {};
    const int row = sorted() ? order_[std::size_t(proxy.row())] : proxy.row();
    return sourceModel()->index(row, proxy.column());
}

QModelIndex EntrySortProxy::mapFromSource(const QModelIndex& source) const
{
    if (!source.isValid() || source.parent().isValid())
        return {};
    if (!sorted())
        return index(source.row(), source.column());
    if (std::size_t(source.row()) >= position_.size())
        return {};
    return index(position_[std::size_t(source.row())], source.column());
}

Qt::ItemFlags EntrySortProxy::flags(const QModelIndex& index) const
{
    const auto flags = QAbstractProxyModel::flags(index);
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
