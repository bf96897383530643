// ui/BrowseView.h: the browsing half of the vault window: group tree, entry table and the search field.
#pragma once

#include "model/Entry.h"
#include "model/Group.h"
#include "model/Search.h"
#include "state/DatabaseSession.h"
#include "ui/DropRules.h"

#include <QLineEdit>
#include <QPointer>
#include <QWidget>

#include <optional>

class QAction;
class QSplitter;
class QTableView;
class QTreeView;

namespace quillon::ui {

class EntrySortProxy;
class EntryTableModel;
class GroupTreeModel;

// Listens to the session and draws; every change goes back through the session's commands. The search
// field belongs to this view but is placed by the window (in its toolbar), so it is not in this layout; it
// goes with the view wherever it was placed. The session must outlive the view.
class BrowseView : public QWidget {
    Q_OBJECT

public:
    explicit BrowseView(state::DatabaseSession& session, QWidget* parent = nullptr);
    ~BrowseView() override;

    QTreeView* groupTree() const noexcept { return tree_; }
    QTableView* entryTable() const noexcept { return table_; }
    // Hidden until the window places it.
    QLineEdit* searchField() const noexcept { return search_; }
    // Ctrl+F: focuses the search field; the window may list the same action in its menu.
    QAction* findAction() const noexcept { return findAction_; }
    GroupTreeModel& groupModel() const noexcept { return *groupModel_; }
    EntryTableModel& entryModel() const noexcept { return *entryModel_; }
    EntrySortProxy& sortProxy() const noexcept { return *sortProxy_; }
    // What the tree and the table accept when rows are dragged.
    DropRules& dropRules() noexcept { return dropRules_; }

    std::optional<model::Group> selectedGroup() const;
    std::optional<model::Entry> selectedEntry() const;
    // Selects the group's row in the tree (and so lists its entries).
    void selectGroup(const model::Group& group);
    // Selects the entry's row when it is listed.
    void selectEntry(const model::Entry& entry);

    // A third pane beside the table (the entry inspector); the view takes ownership.
    void addDetailPane(QWidget* pane);

    model::SearchScope searchScope() const noexcept { return scope_; }
    void setSearchScope(model::SearchScope scope);

public Q_SLOTS:
    void focusSearch();

Q_SIGNALS:
    void selectedGroupChanged();
    void selectedEntryChanged();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void documentReset();
    void showSortIndicator();
    void selectTopGroup();

    state::DatabaseSession& session_;
    GroupTreeModel* groupModel_;
    EntryTableModel* entryModel_;
    EntrySortProxy* sortProxy_;
    QSplitter* splitter_;
    QTreeView* tree_;
    QTableView* table_;
    // Null once the window that held it has gone first.
    QPointer<QLineEdit> search_;
    QAction* findAction_;
    model::SearchScope scope_ = model::SearchScope::everywhere;
    DropRules dropRules_;
};

} // namespace quillon::ui
