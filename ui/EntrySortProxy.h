// ui/EntrySortProxy.h: the entry table as its view sees it: the header-click sort cycle, the collated order and
// the rows' drag and drop.
#pragma once

#include <QAbstractProxyModel>
#include <QCollator>
#include <QPersistentModelIndex>

#include "model/Entry.h"

#include <optional>
#include <vector>

namespace quillon::state {
class SortKeys;
}

namespace quillon::ui {

class DropRules;
class EntryTableModel;

enum class SortDirection { original, ascending, descending };

// Clicking the sort column steps original → ascending → descending → original (the column is cleared on
// the way back); clicking another sortable column sorts it ascending; the password column does not sort.
// Titles and usernames compare as a file browser orders names: case-insensitive, digits by value; equal keys
// keep document order.
//
// In document order the rows are the source's own. Sorted, each source row's key is made once and kept
// beside it, and a change to the source moves, inserts or removes only the rows it touches, so that a
// large group sorts once per click and an edit costs a binary search.
class EntrySortProxy : public QAbstractProxyModel {
    Q_OBJECT

public:
    explicit EntrySortProxy(QObject* parent = nullptr);

    void headerClicked(int column);
    // None while the table shows document order.
    std::optional<int> sortColumn() const noexcept { return sortColumn_; }
    SortDirection sortDirection() const noexcept { return direction_; }
    static bool isSortable(int column) noexcept;

    void setSourceModel(QAbstractItemModel* source) override;
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    QModelIndex sibling(int row, int column, const QModelIndex& index) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    bool hasChildren(const QModelIndex& parent = {}) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    QModelIndex mapToSource(const QModelIndex& proxy) const override;
    QModelIndex mapFromSource(const QModelIndex& source) const override;

    // Where the keys of the source's entries are kept ready; without it each sort reads them from the rows.
    void setSortKeys(const state::SortKeys* keys) noexcept { sortKeys_ = keys; }

    // Rows are dragged and dropped as the rules say; without rules, neither.
    void setDropRules(DropRules* rules) noexcept { rules_ = rules; }
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    Qt::DropActions supportedDragActions() const override;
    Qt::DropActions supportedDropActions() const override;
    // A drop onto a row lands above it; past the last row, at the end.
    bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                         const QModelIndex& parent) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;

Q_SIGNALS:
    // After every header click, so the view can set the indicators again.
    void sortStateChanged();

private:
    bool sorted() const noexcept { return sortColumn_.has_value(); }
    // Whether source row `a` is listed ahead of source row `b`.
    bool ahead(int a, int b) const;
    void makeKeys(int first, int last);
    // The sorted position source row `row` belongs at among the rows listed now.
    int placeFor(int row) const;
    void renumber(std::size_t from);
    // The keys and order for the sort column, from the source as it is now; nothing in document order.
    void reorder();

    void sourceAboutToReset();
    void sourceReset();
    void sourceAboutToInsert(const QModelIndex& parent, int first, int last);
    void sourceInserted(const QModelIndex& parent, int first, int last);
    void sourceAboutToRemove(const QModelIndex& parent, int first, int last);
    void sourceRemoved(const QModelIndex& parent, int first, int last);
    void sourceAboutToMove(const QModelIndex& from, int first, int last, const QModelIndex& to, int row);
    void sourceMoved(const QModelIndex& from, int first, int last, const QModelIndex& to, int row);
    void sourceAboutToLayout();
    void sourceLayoutChanged();
    void sourceDataChanged(const QModelIndex& topLeft, const QModelIndex& bottomRight, const QList<int>& roles);

    std::optional<model::Entry> entryAtDrop(int row, const QModelIndex& parent) const;

    std::optional<int> sortColumn_;
    SortDirection direction_ = SortDirection::original;
    QCollator collator_;
    // The source when it is an entry table: its rows name their elements.
    const EntryTableModel* entries_ = nullptr;
    DropRules* rules_ = nullptr;
    const state::SortKeys* sortKeys_ = nullptr;

    // Sorted only: the source row of each row, the row of each source row, and the keys by source row.
    std::vector<int> order_;
    std::vector<int> position_;
    std::vector<QCollatorSortKey> textKeys_;
    std::vector<qint64> timeKeys_;
    // Persistent indexes held across a change of the source's layout, by what they show.
    QModelIndexList heldProxy_;
    std::vector<QPersistentModelIndex> heldSource_;
};

} // namespace quillon::ui
