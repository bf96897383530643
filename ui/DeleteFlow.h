// ui/DeleteFlow.h: deleting the selected entry or group, emptying the Recycle Bin and restoring from it.
#pragma once

#include "model/Entry.h"
#include "model/Group.h"
#include "state/DatabaseSession.h"

#include <QString>

#include <cstddef>
#include <functional>
#include <optional>

class QWidget;

namespace quillon::ui {

class Asker;

// Moves to the bin without asking; asks before anything is deleted for good. Acts on the selection the window
// hands it, whichever group is shown. Drives no widget.
class DeleteFlow {
public:
    struct Window {
        std::function<QWidget*()> parent = [] { return nullptr; };
        std::function<std::optional<model::Entry>()> selectedEntry;
        std::function<std::optional<model::Group>()> selectedGroup;
        std::function<void(const QString&)> showSubtitle = [](const QString&) {};
    };

    DeleteFlow(state::DatabaseSession& session, Asker& asker, Window window);

    void deleteEntry();
    // The bin itself is emptied.
    void deleteGroup();
    // The selected entry, else the selected group, when it lies in the bin.
    void restore();
    // The selected group is the Recycle Bin: "Delete Group" reads "Empty Recycle Bin…".
    bool isBinSelected() const;

    // "3 entries and 1 group", "1 entry", "2 groups"; empty for nothing.
    static QString contents(std::size_t entries, std::size_t groups);

private:
    bool isOpen() const;

    state::DatabaseSession& session_;
    Asker& asker_;
    Window window_;
};

} // namespace quillon::ui
