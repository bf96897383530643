#include "ui/EntryTableModel.h"

#include "model/Nodes.h"
#include "ui/BrowseTexts.h"

#include <QDateTime>
#include <QLocale>

#include <algorithm>
#include <limits>
#include <unordered_map>

namespace quillon::ui {
namespace {

QString fromUtf8(std::string_view text)
{
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

// The same number of dots for every password, so the table tells nothing of its length.
const QString& passwordMask()
{
    static const QString mask(8, QChar(0x2022));
    return mask;
}

void wipe(QByteArray& bytes)
{
    if (!bytes.isEmpty()) {
        volatile char* p = bytes.data();
        for (qsizetype i = 0; i < bytes.size(); ++i)
            p[i] = 0;
    }
    bytes.clear();
}

} // namespace

EntryTableModel::EntryTableModel(state::DatabaseSession& session, QObject* parent)
    : QAbstractTableModel(parent), session_(session)
{
    using S = state::DatabaseSession;
    connect(&session, &S::itemInserted, this, [this](pugi::xml_node element, state::ItemKind) {
        structureChanged(element);
    });
    connect(&session, &S::itemAboutToBeRemoved, this, &EntryTableModel::aboutToRemove);
    connect(&session, &S::itemMoved, this, [this](pugi::xml_node element, state::ItemKind) {
        structureChanged(element);
    });
    connect(&session, &S::itemChanged, this, &EntryTableModel::changed);
    connect(&session, &S::documentReset, this, &EntryTableModel::documentReset);
}

int EntryTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(rows_.size());
}

int EntryTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : columnTotal;
}

QVariant EntryTableModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= int(rows_.size()) || !session_.isOpen())
        return {};
    if (role != Qt::DisplayRole && role != sortRole)
        return {};
    const auto entry = session_.document().entry(rows_[std::size_t(index.row())]);
    switch (index.column()) {
    case title:
        return fromUtf8(entry.title());
    case username:
        return fromUtf8(entry.userName());
    case password:
        if (role == sortRole)
            return {};
        return entry.password().empty() ? QString() : passwordMask();
    case modified: {
        const auto when = entry.lastModificationTime();
        if (role == sortRole)
            return when ? qlonglong(when->time_since_epoch().count()) : std::numeric_limits<qlonglong>::min();
        if (!when)
            return {};
        return QLocale().toString(QDateTime::fromSecsSinceEpoch(when->time_since_epoch().count()).toLocalTime(),
                                  QLocale::ShortFormat);
    }
    default:
        return {};
    }
}

QVariant EntryTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return QAbstractTableModel::headerData(section, orientation, role);
    switch (section) {
    case title:
        return browseText::titleColumn;
    case username:
        return browseText::usernameColumn;
    case password:
        return browseText::passwordColumn;
    case modified:
        return browseText::modifiedColumn;
    default:
        return {};
    }
}

Qt::ItemFlags EntryTableModel::flags(const QModelIndex& index) const
{
    return index.isValid() ? Qt::ItemIsEnabled | Qt::ItemIsSelectable : Qt::NoItemFlags;
}

void EntryTableModel::setGroup(std::optional<model::Group> group)
{
    const auto element = group ? group->element() : pugi::xml_node();
    if (element == group_)
        return;
    group_ = element;
    if (!searching_)
        reload();
}

std::optional<model::Group> EntryTableModel::group() const
{
    if (!group_ || !session_.isOpen())
        return std::nullopt;
    return session_.document().group(group_);
}

void EntryTableModel::setSearch(const QString& text, model::SearchScope scope)
{
    auto utf8 = text.toUtf8();
    const std::string_view view(utf8.constData(), std::size_t(utf8.size()));
    const bool terms = !model::parseQuery(view, scope).terms.empty();
    if (!terms && !searching_) {
        wipe(utf8);
        return;
    }
    if (terms && searching_ && scope == scope_ && utf8 == search_) {
        wipe(utf8);
        return;
    }
    wipe(search_);
    search_ = std::move(utf8);
    scope_ = scope;
    searching_ = terms;
    if (!searching_)
        wipe(search_);
    reload();
}

std::optional<model::Entry> EntryTableModel::entryAt(const QModelIndex& index) const
{
    if (!index.isValid() || index.row() >= int(rows_.size()) || !session_.isOpen())
        return std::nullopt;
    return session_.document().entry(rows_[std::size_t(index.row())]);
}

QModelIndex EntryTableModel::indexOf(pugi::xml_node element) const
{
    const auto at = std::find(rows_.begin(), rows_.end(), element);
    return at == rows_.end() ? QModelIndex() : index(int(at - rows_.begin()), 0);
}

std::vector<pugi::xml_node> EntryTableModel::listed()
{
    std::vector<pugi::xml_node> next;
    if (!session_.isOpen())
        return next;
    if (searching_) {
        const std::string_view text(search_.constData(), std::size_t(search_.size()));
        const auto found = session_.searchIndex().entriesToList(group(), text, scope_);
        next.reserve(found.size());
        for (const auto& entry : found)
            next.push_back(entry.element());
    } else if (group_) {
        for (auto n = group_.child("Entry"); n; n = n.next_sibling("Entry"))
            next.push_back(n);
    }
    return next;
}

void EntryTableModel::reload()
{
    beginResetModel();
    rows_ = listed();
    rowParents_.clear();
    for (const auto n : rows_)
        rowParents_.insert(n.parent().internal_object());
    endResetModel();
}

void EntryTableModel::syncTo(const std::vector<pugi::xml_node>& next)
{
    std::unordered_set<const void*> wanted;
    wanted.reserve(next.size());
    for (const auto n : next)
        wanted.insert(n.internal_object());
    // Removals first, as runs from the end so the rows before stay put.
    for (auto i = std::ptrdiff_t(rows_.size()) - 1; i >= 0; --i) {
        if (wanted.count(rows_[std::size_t(i)].internal_object()))
            continue;
        const auto last = i;
        while (i > 0 && !wanted.count(rows_[std::size_t(i - 1)].internal_object()))
            --i;
        beginRemoveRows({}, int(i), int(last));
        rows_.erase(rows_.begin() + i, rows_.begin() + last + 1);
        endRemoveRows();
    }

    std::unordered_set<const void*> present;
    present.reserve(rows_.size());
    for (const auto n : rows_)
        present.insert(n.internal_object());
    std::unordered_map<const void*, std::size_t> target;
    for (std::size_t i = 0; i < next.size(); ++i) {
        if (i < rows_.size() && rows_[i] == next[i])
            continue;
        if (!present.count(next[i].internal_object())) {
            auto end = i;
            while (end < next.size() && !present.count(next[end].internal_object()))
                ++end;
            beginInsertRows({}, int(i), int(end - 1));
            rows_.insert(rows_.begin() + std::ptrdiff_t(i), next.begin() + std::ptrdiff_t(i),
                         next.begin() + std::ptrdiff_t(end));
            endInsertRows();
            i = end - 1;
            continue;
        }
        // A row that moved down shows as every row after it moving up one: move that one row instead.
        if (target.empty())
            for (std::size_t k = 0; k < next.size(); ++k)
                target.emplace(next[k].internal_object(), k);
        const auto p = target.at(rows_[i].internal_object());
        if (p > i && std::equal(rows_.begin() + std::ptrdiff_t(i) + 1, rows_.begin() + std::ptrdiff_t(p) + 1,
                                next.begin() + std::ptrdiff_t(i))) {
            beginMoveRows({}, int(i), int(i), {}, int(p + 1));
            std::rotate(rows_.begin() + std::ptrdiff_t(i), rows_.begin() + std::ptrdiff_t(i) + 1,
                        rows_.begin() + std::ptrdiff_t(p) + 1);
            endMoveRows();
            continue;
        }
        const auto j = std::size_t(std::find(rows_.begin() + std::ptrdiff_t(i), rows_.end(), next[i]) - rows_.begin());
        beginMoveRows({}, int(j), int(j), {}, int(i));
        std::rotate(rows_.begin() + std::ptrdiff_t(i), rows_.begin() + std::ptrdiff_t(j),
                    rows_.begin() + std::ptrdiff_t(j) + 1);
        endMoveRows();
    }

    rowParents_.clear();
    for (const auto n : rows_)
        rowParents_.insert(n.parent().internal_object());
}

void EntryTableModel::removeRowsInside(pugi::xml_node element)
{
    // The groups of the subtree going away, walked without recursion: a hostile file may nest deeply.
    std::unordered_set<const void*> going;
    std::vector<pugi::xml_node> stack{element};
    bool touchesRows = false;
    while (!stack.empty()) {
        const auto g = stack.back();
        stack.pop_back();
        going.insert(g.internal_object());
        touchesRows = touchesRows || rowParents_.count(g.internal_object());
        for (auto c = g.child("Group"); c; c = c.next_sibling("Group"))
            stack.push_back(c);
    }
    if (!touchesRows)
        return;
    std::vector<pugi::xml_node> next;
    next.reserve(rows_.size());
    for (const auto n : rows_)
        if (!going.count(n.parent().internal_object()))
            next.push_back(n);
    syncTo(next);
}

void EntryTableModel::aboutToRemove(pugi::xml_node element, state::ItemKind kind, int)
{
    if (kind == state::ItemKind::group) {
        // The selected group going away takes its rows with it; the search results lose only what was below.
        for (auto g = group_; g; g = g.parent())
            if (g == element) {
                group_ = {};
                break;
            }
        removeRowsInside(element);
        return;
    }
    if (!rowParents_.count(element.parent().internal_object()))
        return;
    const auto at = indexOf(element);
    if (at.isValid()) {
        beginRemoveRows({}, at.row(), at.row());
        rows_.erase(rows_.begin() + at.row());
        endRemoveRows();
    }
}

void EntryTableModel::structureChanged(pugi::xml_node element)
{
    if (!session_.isOpen())
        return;
    const bool isEntry = model::nodes::isNamed(element, "Entry");
    // Outside a search only the selected group's own entries count.
    if (!searching_ && !(isEntry && (element.parent() == group_ || indexOf(element).isValid())))
        return;
    syncTo(listed());
}

void EntryTableModel::changed(pugi::xml_node element, state::ItemKind kind)
{
    // A change may make an entry match or stop matching, or a group's searching be turned on or off.
    if (searching_)
        syncTo(listed());
    if (kind != state::ItemKind::entry)
        return;
    const auto at = indexOf(element);
    if (at.isValid())
        Q_EMIT dataChanged(at, index(at.row(), columnTotal - 1));
}

void EntryTableModel::documentReset()
{
    group_ = {};
    wipe(search_);
    searching_ = false;
    reload();
}

} // namespace quillon::ui
