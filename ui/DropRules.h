// ui/DropRules.h: what the vault window accepts when entries and groups are dragged, and what a drop does.
#pragma once

#include "model/Entry.h"
#include "model/Group.h"
#include "state/DatabaseSession.h"

#include <QPointer>
#include <QString>

#include <functional>
#include <optional>
#include <string>

class QMimeData;

namespace quillon::ui {

inline const QString entryRowType = QStringLiteral("com.brennick.quillon.entry-row");
inline const QString groupType = QStringLiteral("com.brennick.quillon.group");

// The item models ask it; it asks the session. A drag is known by the data this object made for it, so a drop
// from another window or program (whose data names items of another database) is refused, and the dragged
// item is forgotten when the drag ends and its data goes. Every accepted drop is a move.
class DropRules {
public:
    // Asked before a drop that would delete for good; true only for "Yes".
    using Confirm = std::function<bool(const QString& question)>;

    explicit DropRules(state::DatabaseSession& session);

    // Without one, drops that would delete for good are refused.
    void setConfirm(Confirm confirm) { confirm_ = std::move(confirm); }

    // The data of a drag that starts; the caller hands it to the drag, which owns it.
    QMimeData* dragEntry(const model::Entry& entry);
    QMimeData* dragGroup(const model::Group& group);
    // The item of this window's drag that carries the data; none for any other data.
    std::optional<model::Entry> draggedEntry(const QMimeData* data) const;
    std::optional<model::Group> draggedGroup(const QMimeData* data) const;

    // What the entry table shows when a drop arrives on it.
    struct Table {
        bool searching = false;
        bool sorted = false;
        std::optional<model::Group> group;
    };
    // Reordering in the table: only the listed group's own entries, in document order, unfiltered.
    bool canReorder(const QMimeData* data, const Table& table) const;
    // Puts the dragged entry ahead of `before` (last when none); true when the order changed.
    bool reorder(const QMimeData* data, const Table& table, const std::optional<model::Entry>& before);

    // A drop on the group tree lands on `target` (none: the top level), ahead of its child `before` when
    // given. An entry lands in the target itself, wherever among the children it was dropped.
    bool canDropOnGroup(const QMimeData* data, const std::optional<model::Group>& target,
                        const std::optional<model::Group>& before) const;
    // Asks first when the move would delete for good; true when anything changed.
    bool dropOnGroup(const QMimeData* data, const std::optional<model::Group>& target,
                     const std::optional<model::Group>& before);

private:
    struct Drag {
        QPointer<const QMimeData> data;
        std::string uuid;
        pugi::xml_node element;
        std::uint64_t revision = 0;
        bool isGroup = false;
    };
    QMimeData* remember(pugi::xml_node element, std::string_view uuid, bool isGroup);
    // The dragged element, found again by its identity once the document has changed since the drag began.
    pugi::xml_node dragged(const QMimeData* data, bool isGroup) const;

    state::DatabaseSession& session_;
    Confirm confirm_;
    // Refreshed by lookups as the document changes.
    mutable Drag drag_;
};

} // namespace quillon::ui
