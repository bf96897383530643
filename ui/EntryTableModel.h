// ui/EntryTableModel.h: the entries of the selected group, or the search results, as a table model.
#pragma once

#include "model/Entry.h"
#include "model/Group.h"
#include "model/Search.h"
#include "state/DatabaseSession.h"

#include <QAbstractTableModel>
#include <QString>

#include <optional>
#include <unordered_set>
#include <vector>

namespace quillon::ui {

// The rows are handles on Entry elements in document order; every cell is read from the live document
// when asked. Choosing another group or search text resets the model; changes made through the session
// become precise inserts, removals, moves and dataChanged.
class EntryTableModel : public QAbstractTableModel {
    Q_OBJECT

public:
    enum Column { title, username, password, modified, columnTotal };
    // What the sort proxy compares: the field's text for title and username, seconds since 1970 for modified
    // (entries without a modification time sort as the oldest).
    static constexpr int sortRole = Qt::UserRole + 1;

    explicit EntryTableModel(state::DatabaseSession& session, QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    // The group whose own entries are listed while the search text holds no terms.
    void setGroup(std::optional<model::Group> group);
    std::optional<model::Group> group() const;
    // Lists the search results of the whole database while the text holds any terms.
    void setSearch(const QString& text, model::SearchScope scope = model::SearchScope::everywhere);
    bool isSearching() const noexcept { return searching_; }

    std::optional<model::Entry> entryAt(const QModelIndex& index) const;
    // The row's Entry element; null past the end.
    pugi::xml_node elementAt(int row) const noexcept
    {
        return row >= 0 && std::size_t(row) < rows_.size() ? rows_[std::size_t(row)] : pugi::xml_node();
    }
    // The row showing that Entry element; invalid when it is not listed.
    QModelIndex indexOf(pugi::xml_node element) const;

private:
    // What should be listed now, from the live document.
    std::vector<pugi::xml_node> listed();
    void reload();
    // Brings the rows to `next` with the fewest inserts, removals and moves.
    void syncTo(const std::vector<pugi::xml_node>& next);
    void removeRowsInside(pugi::xml_node element);

    void aboutToRemove(pugi::xml_node element, state::ItemKind kind, int row);
    void structureChanged(pugi::xml_node element);
    void changed(pugi::xml_node element, state::ItemKind kind);
    void documentReset();

    state::DatabaseSession& session_;
    pugi::xml_node group_;
    // The search text in UTF-8, wiped when replaced.
    QByteArray search_;
    model::SearchScope scope_ = model::SearchScope::everywhere;
    bool searching_ = false;
    std::vector<pugi::xml_node> rows_;
    // The groups the listed entries sit in, so that removing an unrelated group costs no scan of the rows.
    std::unordered_set<const void*> rowParents_;
};

} // namespace quillon::ui
