#include "ui/GroupTreeModel.h"

#include "model/Nodes.h"
#include "model/RecycleBin.h"
#include "ui/DropRules.h"

#include <QApplication>
#include <QIcon>
#include <QMimeData>
#include <QStyle>

namespace quillon::ui {
namespace {

pugi::xml_node nodeOf(const QModelIndex& index)
{
    return pugi::xml_node(static_cast<pugi::xml_node_struct*>(index.internalPointer()));
}

int groupRow(pugi::xml_node element)
{
    int row = 0;
    for (auto n = element.previous_sibling("Group"); n; n = n.previous_sibling("Group"))
        ++row;
    return row;
}

const QIcon& folderIcon()
{
    static const QIcon icon = QIcon::fromTheme(QStringLiteral("folder"),
                                               QApplication::style()->standardIcon(QStyle::SP_DirIcon));
    return icon;
}

const QIcon& binIcon()
{
    static const QIcon icon = QIcon::fromTheme(QStringLiteral("user-trash"),
                                               QApplication::style()->standardIcon(QStyle::SP_TrashIcon));
    return icon;
}

} // namespace

GroupTreeModel::GroupTreeModel(state::DatabaseSession& session, QObject* parent)
    : QAbstractItemModel(parent), session_(session)
{
    using S = state::DatabaseSession;
    connect(&session, &S::itemAboutToBeInserted, this, &GroupTreeModel::aboutToInsert);
    connect(&session, &S::itemInserted, this, &GroupTreeModel::inserted);
    connect(&session, &S::itemAboutToBeRemoved, this, &GroupTreeModel::aboutToRemove);
    connect(&session, &S::itemRemoved, this, &GroupTreeModel::removed);
    connect(&session, &S::itemAboutToBeMoved, this, &GroupTreeModel::aboutToMove);
    connect(&session, &S::itemMoved, this, &GroupTreeModel::moved);
    connect(&session, &S::itemChanged, this, &GroupTreeModel::changed);
    connect(&session, &S::databaseChanged, this, &GroupTreeModel::databaseChanged);
    connect(&session, &S::documentReset, this, &GroupTreeModel::reset);
}

pugi::xml_node GroupTreeModel::containerOf(const QModelIndex& parent) const
{
    if (parent.isValid())
        return nodeOf(parent);
    return session_.isOpen() ? session_.document().root() : pugi::xml_node();
}

QModelIndex GroupTreeModel::index(int row, int column, const QModelIndex& parent) const
{
    if (row < 0 || column != 0)
        return {};
    const auto container = containerOf(parent);
    if (!container)
        return {};
    int r = 0;
    for (auto n = container.child("Group"); n; n = n.next_sibling("Group"), ++r)
        if (r == row)
            return createIndex(row, 0, n.internal_object());
    return {};
}

QModelIndex GroupTreeModel::parent(const QModelIndex& child) const
{
    if (!child.isValid())
        return {};
    const auto up = nodeOf(child).parent();
    if (!model::nodes::isNamed(up, "Group"))
        return {};
    return createIndex(groupRow(up), 0, up.internal_object());
}

int GroupTreeModel::rowCount(const QModelIndex& parent) const
{
    if (parent.column() > 0)
        return 0;
    const auto container = containerOf(parent);
    int rows = 0;
    for (auto n = container.child("Group"); n; n = n.next_sibling("Group"))
        ++rows;
    return rows;
}

int GroupTreeModel::columnCount(const QModelIndex&) const
{
    return 1;
}

bool GroupTreeModel::isBinElement(pugi::xml_node element) const
{
    auto& document = session_.document();
    if (binRevision_ != document.revision()) {
        const auto bin = model::findBin(document);
        bin_ = bin ? bin->element() : pugi::xml_node();
        binUuid_ = bin ? std::string(bin->uuid()) : std::string();
        binRevision_ = document.revision();
    }
    return element == bin_;
}

QVariant GroupTreeModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || !session_.isOpen())
        return {};
    const auto group = session_.document().group(nodeOf(index));
    switch (role) {
    case Qt::DisplayRole:
    case Qt::EditRole:
    case Qt::AccessibleTextRole: {
        const auto name = group.name();
        return QString::fromUtf8(name.data(), qsizetype(name.size()));
    }
    case Qt::DecorationRole:
        return isBinElement(group.element()) ? binIcon() : folderIcon();
    default:
        return {};
    }
}

bool GroupTreeModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (!index.isValid() || role != Qt::EditRole || !session_.isOpen())
        return false;
    const auto name = value.toString().trimmed();
    if (name.isEmpty())
        return false;
    const auto utf8 = name.toUtf8();
    session_.renameGroup(session_.document().group(nodeOf(index)),
                         std::string_view(utf8.constData(), std::size_t(utf8.size())));
    return true;
}

Qt::ItemFlags GroupTreeModel::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    auto flags = Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable;
    if (rules_) {
        // The top group never moves.
        flags |= Qt::ItemIsDropEnabled;
        if (index.parent().isValid())
            flags |= Qt::ItemIsDragEnabled;
    }
    return flags;
}

QStringList GroupTreeModel::mimeTypes() const
{
    return {entryRowType, groupType};
}

QMimeData* GroupTreeModel::mimeData(const QModelIndexList& indexes) const
{
    const auto group = indexes.isEmpty() ? std::nullopt : groupAt(indexes.front());
    return rules_ && group ? rules_->dragGroup(*group) : nullptr;
}

Qt::DropActions GroupTreeModel::supportedDragActions() const
{
    return Qt::MoveAction;
}

Qt::DropActions GroupTreeModel::supportedDropActions() const
{
    return Qt::MoveAction;
}

bool GroupTreeModel::canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int,
                                     const QModelIndex& parent) const
{
    return rules_ && action == Qt::MoveAction &&
           rules_->canDropOnGroup(data, groupAt(parent), groupAt(index(row, 0, parent)));
}

bool GroupTreeModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int,
                                  const QModelIndex& parent)
{
    return rules_ && action == Qt::MoveAction &&
           rules_->dropOnGroup(data, groupAt(parent), groupAt(index(row, 0, parent)));
}

std::optional<model::Group> GroupTreeModel::groupAt(const QModelIndex& index) const
{
    if (!index.isValid() || !session_.isOpen())
        return std::nullopt;
    return session_.document().group(nodeOf(index));
}

QModelIndex GroupTreeModel::indexOf(pugi::xml_node element) const
{
    if (!model::nodes::isNamed(element, "Group"))
        return {};
    return createIndex(groupRow(element), 0, element.internal_object());
}

void GroupTreeModel::aboutToInsert(pugi::xml_node parent, state::ItemKind kind, int row)
{
    if (kind != state::ItemKind::group)
        return;
    const auto at = parent == session_.document().root() ? QModelIndex() : indexOf(parent);
    if (parent != session_.document().root() && !at.isValid())
        return;
    beginInsertRows(at, row, row);
    pending_ = Pending::insert;
}

void GroupTreeModel::inserted(pugi::xml_node, state::ItemKind)
{
    if (std::exchange(pending_, Pending::none) == Pending::insert)
        endInsertRows();
}

void GroupTreeModel::aboutToRemove(pugi::xml_node element, state::ItemKind kind, int row)
{
    if (kind != state::ItemKind::group)
        return;
    const auto up = element.parent();
    if (up != session_.document().root() && !model::nodes::isNamed(up, "Group"))
        return;
    beginRemoveRows(indexOf(up), row, row);
    pending_ = Pending::remove;
}

void GroupTreeModel::removed(pugi::xml_node, state::ItemKind)
{
    if (std::exchange(pending_, Pending::none) == Pending::remove)
        endRemoveRows();
}

void GroupTreeModel::aboutToMove(pugi::xml_node element, state::ItemKind kind, int fromRow, pugi::xml_node newParent,
                                 int toRow)
{
    if (kind != state::ItemKind::group)
        return;
    // A move to where the group already is changes nothing a view shows, and beginMoveRows refuses it.
    if (beginMoveRows(indexOf(element.parent()), fromRow, fromRow, indexOf(newParent), toRow))
        pending_ = Pending::move;
}

void GroupTreeModel::moved(pugi::xml_node, state::ItemKind)
{
    if (std::exchange(pending_, Pending::none) == Pending::move)
        endMoveRows();
}

void GroupTreeModel::changed(pugi::xml_node element, state::ItemKind kind)
{
    if (kind != state::ItemKind::group)
        return;
    const auto at = indexOf(element);
    if (at.isValid())
        Q_EMIT dataChanged(at, at);
}

void GroupTreeModel::databaseChanged()
{
    if (!session_.isOpen())
        return;
    auto& document = session_.document();
    const auto before = binUuid_;
    const auto bin = model::findBin(document);
    if ((bin ? bin->uuid() : std::string_view()) == before)
        return;
    binRevision_ = ~std::uint64_t{0};
    for (const auto& uuid : {before, bin ? std::string(bin->uuid()) : std::string()}) {
        const auto group = uuid.empty() ? std::nullopt : document.findGroup(uuid);
        if (const auto at = group ? indexOf(group->element()) : QModelIndex(); at.isValid())
            Q_EMIT dataChanged(at, at, {Qt::DecorationRole});
    }
    isBinElement(pugi::xml_node());
}

void GroupTreeModel::reset()
{
    beginResetModel();
    bin_ = {};
    binUuid_.clear();
    binRevision_ = ~std::uint64_t{0};
    pending_ = Pending::none;
    endResetModel();
}

} // namespace quillon::ui
