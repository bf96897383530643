// ui/VaultActions.h: the entry commands of an unlocked vault window: find, new entry and group, copy, open URL.
#pragma once

#include "model/Entry.h"

#include <QObject>

namespace quillon::ui {

class BrowseView;
class VaultWindow;

// Takes on the menu's commands for the browsing view it is made for, and lives as long as that view (made at
// each unlock, gone at each lock). Places the view's search field with the window and answers the view's
// question before a drop that deletes for good.
class VaultActions : public QObject {
    Q_OBJECT

public:
    VaultActions(VaultWindow& vault, BrowseView& view);

    // In the selected group (the top group when none), selected in the table.
    void addEntry();
    // Under the selected group, selected, its name open for typing in the tree.
    void addGroup();
    // The selected entry's field on the clipboard, cleared again after the hold time.
    void copyPassword();
    void copyUsername();
    // The selected entry's URL, opened by the system when it is an http or https address.
    void openUrl();

Q_SIGNALS:
    // A new entry was made and selected: a form showing it may put the title field in focus.
    void entryAdded(const quillon::model::Entry& entry);

private:
    VaultWindow& vault_;
    BrowseView& view_;
};

} // namespace quillon::ui
