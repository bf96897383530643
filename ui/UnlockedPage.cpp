#include "ui/UnlockedPage.h"

#include "ui/BrowseView.h"
#include "ui/DatabasePages.h"
#include "ui/ExpandedGroups.h"
#include "ui/VaultWindow.h"

namespace quillon::ui {

QWidget* makeUnlockedPage(VaultWindow& vault)
{
    auto* view = new BrowseView(vault.session(), &vault);
    new ExpandedGroups(*view->groupTree(), view->groupModel(), vault.session(), vault.context().preferences);
    takeOnDatabasePages(vault, view);
    return view;
}

} // namespace quillon::ui
