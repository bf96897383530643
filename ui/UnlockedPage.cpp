#include "ui/UnlockedPage.h"

#include "ui/BrowseView.h"
#include "ui/DatabasePages.h"
#include "ui/VaultWindow.h"

namespace quillon::ui {

QWidget* makeUnlockedPage(VaultWindow& vault)
{
    auto* view = new BrowseView(vault.session(), &vault);
    takeOnDatabasePages(vault, view);
    return view;
}

} // namespace quillon::ui
