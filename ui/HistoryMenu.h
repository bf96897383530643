// ui/HistoryMenu.h: the history pop-up: a button titled "History (N)" over the entry's earlier versions.
#pragma once

#include "model/Entry.h"

#include <QToolButton>

#include <optional>

class QMenu;

namespace quillon::ui {

// Hidden when the entry has no earlier versions. The menu holds the present version's modification time
// (disabled), a separator, then one item per version, oldest first, whose data is its 1-based position.
class HistoryMenu : public QToolButton {
    Q_OBJECT

public:
    explicit HistoryMenu(QWidget* parent = nullptr);

    void setEntry(const std::optional<model::Entry>& entry);
    QMenu* versionsMenu() const noexcept { return menu_; }

Q_SIGNALS:
    void versionChosen(int position);

private:
    QMenu* menu_;
};

// The title of a version in the menu: its modification time, or "Earlier version" without one.
QString versionTitle(const model::Entry& version);

} // namespace quillon::ui
