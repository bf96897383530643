// ui/ExpandedGroups.h: which groups of a database's tree are open, remembered per database between unlocks and launches.
#pragma once

#include <QModelIndex>
#include <QObject>
#include <QSet>
#include <QString>

#include <optional>

class QTimer;
class QTreeView;

namespace quillon::state {
class DatabaseSession;
class Preferences;
} // namespace quillon::state

namespace quillon::ui {

class GroupTreeModel;

// Opens the remembered groups when the tree is made and whenever its document is replaced, then follows the
// user's expanding and collapsing. Writes are held until the tree has been still for `pause` (expanding a
// whole branch is one write, not one per group) and are made at the latest when the tree goes, at lock or
// close. A database without a file has nothing remembered.
class ExpandedGroups : public QObject {
    Q_OBJECT

public:
    static constexpr int pause = 600; // milliseconds

    ExpandedGroups(QTreeView& tree, GroupTreeModel& model, state::DatabaseSession& session,
                   state::Preferences& preferences);
    ~ExpandedGroups() override;

    const QSet<QString>& expanded() const noexcept { return expanded_; }
    bool isWritePending() const;
    void writeNow();

private:
    void restore();
    void note(const QModelIndex& index, bool open);
    std::optional<QString> databasePath() const;

    QTreeView& tree_;
    GroupTreeModel& model_;
    state::DatabaseSession& session_;
    state::Preferences& preferences_;
    QSet<QString> expanded_;
    QSet<QString> written_;
    bool restoring_ = false;
    QTimer* timer_;
};

} // namespace quillon::ui
