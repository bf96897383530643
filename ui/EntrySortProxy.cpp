#include "ui/EntrySortProxy.h"

#include "ui/EntryTableModel.h"

#include <QLocale>

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

bool EntrySortProxy::lessThan(const QModelIndex& left, const QModelIndex& right) const
{
    const auto a = left.data(EntryTableModel::sortRole);
    const auto b = right.data(EntryTableModel::sortRole);
    if (left.column() == EntryTableModel::modified)
        return a.toLongLong() < b.toLongLong();
    return collator_.compare(a.toString(), b.toString()) < 0;
}

} // namespace quillon::ui
