#include "ui/HistoryMenu.h"

#include "ui/DateText.h"
#include "ui/Icons.h"
#include "ui/InspectorTexts.h"

#include <QMenu>

namespace quillon::ui {

QString versionTitle(const model::Entry& version)
{
    const auto when = version.lastModificationTime();
    return when ? mediumDateTime(*when) : inspectorText::earlierVersion;
}

HistoryMenu::HistoryMenu(QWidget* parent) : QToolButton(parent), menu_(new QMenu(this))
{
    setMenu(menu_);
    setPopupMode(QToolButton::InstantPopup);
    setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    setIcon(icons::history());
    setFocusPolicy(Qt::StrongFocus);
    setAccessibleName(inspectorText::historyName);
    menu_->setAccessibleName(inspectorText::historyName);
    connect(menu_, &QMenu::triggered, this, [this](QAction* action) {
        if (const int position = action->data().toInt(); position > 0)
            Q_EMIT versionChosen(position);
    });
    setEntry(std::nullopt);
}

void HistoryMenu::setEntry(const std::optional<model::Entry>& entry)
{
    menu_->clear();
    const auto versions = entry ? entry->history() : std::vector<model::Entry>{};
    setVisible(!versions.empty());
    if (versions.empty())
        return;
    setText(inspectorText::historyTitle(int(versions.size())));
    const auto now = entry->lastModificationTime();
    menu_->addAction(now ? mediumDateTime(*now) : QString())->setEnabled(false);
    menu_->addSeparator();
    int position = 0;
    for (const auto& version : versions)
        menu_->addAction(versionTitle(version))->setData(++position);
}

} // namespace quillon::ui
