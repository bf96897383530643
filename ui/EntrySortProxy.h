// ui/EntrySortProxy.h: the entry table as its view sees it: the header-click sort cycle, the collated order and
// the rows' drag and drop.
#pragma once

#include <QCollator>
#include <QSortFilterProxyModel>

#include "model/Entry.h"

#include <optional>
#include <unordered_map>
#include <vector>

namespace quillon::ui {

class DropRules;
class EntryTableModel;

enum class SortDirection { original, ascending, descending };

// Clicking the sort column steps original → ascending → descending → original (the column is cleared on
// the way back); clicking another sortable column sorts it ascending; the password column does not sort.
// Titles and usernames compare as a file browser orders names: case-insensitive, digits by value.
// A sort compares each row many times, so each entry's key is made once, kept by its element and dropped
// when the row changes or leaves.
class EntrySortProxy : public QSortFilterProxyModel {
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

protected:
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

private:
    const void* keyOf(const QModelIndex& source) const;
    const QCollatorSortKey& textKey(const void* key, const QModelIndex& source) const;
    qint64 timeKey(const void* key, const QModelIndex& source) const;
    void forgetRows(const QModelIndex& parent, int first, int last);
    void forgetAll();
    std::optional<model::Entry> entryAtDrop(int row, const QModelIndex& parent) const;

    std::optional<int> sortColumn_;
    SortDirection direction_ = SortDirection::original;
    QCollator collator_;
    // The source when it is an entry table: its rows name their elements.
    const EntryTableModel* entries_ = nullptr;
    DropRules* rules_ = nullptr;
    mutable std::unordered_map<const void*, QCollatorSortKey> textKeys_;
    mutable std::unordered_map<const void*, qint64> timeKeys_;
    // The column the text keys were made for.
    mutable int textKeysColumn_ = -1;
    // While a whole sort runs: the keys by source row, so that each comparison is two array reads.
    std::vector<const QCollatorSortKey*> rowText_;
    std::vector<qint64> rowTime_;
};

} // namespace quillon::ui
