// ui/EntrySortProxy.h: the entry table's header-click sort cycle and its collated order.
#pragma once

#include <QCollator>
#include <QSortFilterProxyModel>

#include <optional>

namespace quillon::ui {

enum class SortDirection { original, ascending, descending };

// Clicking the sort column steps original → ascending → descending → original (the column is cleared on
// the way back); clicking another sortable column sorts it ascending; the password column does not sort.
// Titles and usernames compare as a file browser orders names: case-insensitive, digits by value.
class EntrySortProxy : public QSortFilterProxyModel {
    Q_OBJECT

public:
    explicit EntrySortProxy(QObject* parent = nullptr);

    void headerClicked(int column);
    // None while the table shows document order.
    std::optional<int> sortColumn() const noexcept { return sortColumn_; }
    SortDirection sortDirection() const noexcept { return direction_; }
    static bool isSortable(int column) noexcept;

Q_SIGNALS:
    // After every header click, so the view can set the indicators again.
    void sortStateChanged();

protected:
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

private:
    std::optional<int> sortColumn_;
    SortDirection direction_ = SortDirection::original;
    QCollator collator_;
};

} // namespace quillon::ui
