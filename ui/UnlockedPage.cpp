#include "ui/UnlockedPage.h"

#include "ui/BrowseView.h"
#include "ui/VaultActions.h"
#include "ui/VaultWindow.h"

namespace quillon::ui {

QWidget* makeUnlockedPage(VaultWindow& vault)
{
    auto* view = new BrowseView(vault.session(), &vault);
    new VaultActions(vault, *view);
    return view;
}

} // namespace quillon::ui
