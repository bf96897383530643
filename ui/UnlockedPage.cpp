#include "ui/UnlockedPage.h"

#include "ui/BrowseView.h"
#include "ui/VaultWindow.h"

namespace quillon::ui {

QWidget* makeUnlockedPage(VaultWindow& vault)
{
    auto* view = new BrowseView(vault.session(), &vault);
    return view;
}

} // namespace quillon::ui
