#include "ui/VaultActions.h"

#include "ui/ActionTexts.h"
#include "ui/Asker.h"
#include "ui/BrowseView.h"
#include "ui/Clipboard.h"
#include "ui/EntryTableModel.h"
#include "ui/GroupTreeModel.h"
#include "ui/OpenUrl.h"
#include "ui/VaultWindow.h"

#include <QAction>
#include <QDesktopServices>
#include <QLineEdit>
#include <QTableView>
#include <QTreeView>

namespace quillon::ui {
namespace {

QString fromUtf8(std::string_view text)
{
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

std::string utf8(const QString& text)
{
    return text.toStdString();
}

} // namespace

VaultActions::VaultActions(VaultWindow& vault, BrowseView& view) : QObject(&view), vault_(vault), view_(view)
{
    // The menu's Find carries the key; the view's own would make it ambiguous.
    view.removeAction(view.findAction());
    vault.setSearchField(view.searchField());
    view.dropRules().setConfirm([&vault](const QString& question) {
        return vault.context().asker.confirm(vault.window(), question, {});
    });

    vault.setHandler(Command::focusSearch, this, [this] { view_.focusSearch(); });
    vault.setHandler(Command::addEntry, this, [this] { addEntry(); });
    vault.setHandler(Command::addGroup, this, [this] { addGroup(); });
    vault.setHandler(Command::copyPassword, this, [this] { copyPassword(); });
    vault.setHandler(Command::copyUsername, this, [this] { copyUsername(); });
    vault.setHandler(Command::openURL, this, [this] { openUrl(); });
}

void VaultActions::addEntry()
{
    auto& session = vault_.session();
    const auto group = view_.selectedGroup() ? view_.selectedGroup() : session.document().topGroup();
    if (!group)
        return;
    vault_.commitEditing();
    const auto entry = session.newEntry(*group, utf8(actionText::newEntry));
    if (!entry)
        return;
    // A search that does not list it gives way to the group, so that the new row shows.
    if (!view_.entryModel().indexOf(entry->element()).isValid() && view_.searchField())
        view_.searchField()->clear();
    view_.selectEntry(*entry);
    view_.entryTable()->setFocus(Qt::OtherFocusReason);
    Q_EMIT entryAdded(*entry);
}

void VaultActions::addGroup()
{
    auto& session = vault_.session();
    const auto parent = view_.selectedGroup() ? view_.selectedGroup() : session.document().topGroup();
    if (!parent)
        return;
    vault_.commitEditing();
    const auto group = session.newGroup(*parent, utf8(actionText::newGroup));
    if (!group)
        return;
    view_.selectGroup(*group);
    auto* tree = view_.groupTree();
    tree->setFocus(Qt::OtherFocusReason);
    tree->edit(view_.groupModel().indexOf(group->element()));
}

void VaultActions::copyPassword()
{
    if (const auto entry = view_.selectedEntry()) {
        vault_.context().clipboard.copy(fromUtf8(entry->password()), true);
        vault_.showSubtitle(actionText::passwordCopied);
    }
}

void VaultActions::copyUsername()
{
    if (const auto entry = view_.selectedEntry()) {
        vault_.context().clipboard.copy(fromUtf8(entry->userName()), false);
        vault_.showSubtitle(actionText::usernameCopied);
    }
}

void VaultActions::openUrl()
{
    if (const auto entry = view_.selectedEntry())
        if (const auto url = urlToOpen(fromUtf8(entry->url())))
            QDesktopServices::openUrl(*url);
}

} // namespace quillon::ui
