// ui/GroupTreeModel.h: the group tree of the open database as an item model that reads the live document.
#pragma once

#include "model/Group.h"
#include "state/DatabaseSession.h"

#include <QAbstractItemModel>

#include <optional>
#include <string>

namespace quillon::ui {

class DropRules;

// One column. The top group is the single top-level row; each row below is a Group element, found again
// from its handle, so nothing of the tree is copied. The session's signals become the matching begin/end
// calls; only a replaced or dropped document resets the model.
class GroupTreeModel : public QAbstractItemModel {
    Q_OBJECT

public:
    explicit GroupTreeModel(state::DatabaseSession& session, QObject* parent = nullptr);

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    // Renames the group through the session, so the rename is one command that undo takes back.
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    // Groups are dragged, and groups and entry rows dropped, as the rules say; without rules, neither.
    void setDropRules(DropRules* rules) noexcept { rules_ = rules; }
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    Qt::DropActions supportedDragActions() const override;
    Qt::DropActions supportedDropActions() const override;
    // A drop lands on the parent given, ahead of the child at `row` when there is one.
    bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                         const QModelIndex& parent) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;

    // The group a row shows; none for an invalid index or while no database is open.
    std::optional<model::Group> groupAt(const QModelIndex& index) const;
    // The row showing that Group element; invalid for anything else.
    QModelIndex indexOf(pugi::xml_node element) const;
    QModelIndex topIndex() const { return index(0, 0); }

private:
    // The element whose Group children are the rows under `parent`: Root for the top level.
    pugi::xml_node containerOf(const QModelIndex& parent) const;
    bool isBinElement(pugi::xml_node element) const;

    void aboutToInsert(pugi::xml_node parent, state::ItemKind kind, int row);
    void inserted(pugi::xml_node element, state::ItemKind kind);
    void aboutToRemove(pugi::xml_node element, state::ItemKind kind, int row);
    void removed(pugi::xml_node parent, state::ItemKind kind);
    void aboutToMove(pugi::xml_node element, state::ItemKind kind, int fromRow, pugi::xml_node newParent, int toRow);
    void moved(pugi::xml_node element, state::ItemKind kind);
    void changed(pugi::xml_node element, state::ItemKind kind);
    // The bin may now be another group: both rows draw again.
    void databaseChanged();
    void reset();

    enum class Pending { none, insert, remove, move };

    state::DatabaseSession& session_;
    DropRules* rules_ = nullptr;
    // Which begin call awaits its end: the session announces each change before making it.
    Pending pending_ = Pending::none;
    // The bin is looked up again only after the document changed.
    mutable pugi::xml_node bin_;
    mutable std::uint64_t binRevision_ = ~std::uint64_t{0};
    // Found again by identity, since the element it named may be gone.
    mutable std::string binUuid_;
};

} // namespace quillon::ui
