// ui/FollowedEntry.h: the entry a part of the inspector shows, dropped when it leaves the document.
#pragma once

#include "model/Entry.h"

#include <QObject>

#include <optional>

namespace quillon::state {
class DatabaseSession;
}

namespace quillon::ui {

// An Entry is a handle on a live element: it must be let go before its element is freed (the entry or a group
// above it removed, the document locked away), or a later edit would write into freed memory.
class FollowedEntry : public QObject {
    Q_OBJECT

public:
    explicit FollowedEntry(state::DatabaseSession& session, QObject* parent = nullptr);

    const std::optional<model::Entry>& entry() const noexcept { return entry_; }
    void set(std::optional<model::Entry> entry) { entry_ = std::move(entry); }

Q_SIGNALS:
    // The entry's own content changed (an edit, an undo); the handle still holds.
    void changed();
    // The handle was dropped because its element is going.
    void gone();

private:
    void drop();

    std::optional<model::Entry> entry_;
};

} // namespace quillon::ui
