#include "ui/UnlockedPage.h"

#include "ui/BrowseView.h"
#include "ui/EntryInspector.h"
#include "ui/VaultWindow.h"

namespace quillon::ui {

QWidget* makeUnlockedPage(VaultWindow& vault)
{
    auto* view = new BrowseView(vault.session(), &vault);
    auto* inspector = new EntryInspector(vault);
    view->addDetailPane(inspector);
    QObject::connect(view, &BrowseView::selectedEntryChanged, inspector,
                     [view, inspector] { inspector->setEntry(view->selectedEntry()); });
    inspector->setEntry(view->selectedEntry());
    vault.setHandler(Command::copyPassword, inspector, [inspector] { inspector->copyPassword(); });
    vault.setHandler(Command::copyUsername, inspector, [inspector] { inspector->copyUsername(); });
    vault.setHandler(Command::openURL, inspector, [inspector] { inspector->openUrl(); });
    return view;
}

} // namespace quillon::ui
