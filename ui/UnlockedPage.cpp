#include "ui/UnlockedPage.h"

#include "ui/BrowseView.h"
#include "ui/DatabasePages.h"
#include "ui/EntryInspector.h"
#include "ui/ExpandedGroups.h"
#include "ui/GeneratorBox.h"
#include "ui/InspectorTexts.h"
#include "ui/MergeController.h"
#include "ui/OneTimePanel.h"
#include "ui/VaultActions.h"
#include "ui/VaultWindow.h"

#include <QApplication>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace quillon::ui {
namespace {

const QString generatePassword = QStringLiteral("Generate Password…");

// The generator box under the password, behind a button that shows and hides it.
QWidget* generatorRow(VaultWindow& vault, EntryInspector& inspector, GeneratorBox*& box)
{
    auto* row = new QWidget;
    auto* column = new QVBoxLayout(row);
    column->setContentsMargins(0, 0, 0, 0);
    auto* toggle = new QPushButton(generatePassword, row);
    toggle->setCheckable(true);
    toggle->setFlat(true);
    toggle->setAccessibleName(generatePassword);
    box = new GeneratorBox(vault.session(), row);
    box->hide();
    column->addWidget(toggle, 0, Qt::AlignLeft);
    column->addWidget(box);
    QObject::connect(toggle, &QPushButton::toggled, box, [box, &inspector](bool shown) {
        if (shown) {
            // The field being typed in commits first, so "Use" cannot be overwritten by it afterwards.
            inspector.commitTyped();
            box->reset();
        }
        box->setVisible(shown);
    });
    QObject::connect(box, &GeneratorBox::finished, toggle, [toggle] { toggle->setChecked(false); });
    return row;
}

} // namespace

QWidget* makeUnlockedPage(VaultWindow& vault)
{
    auto* view = new BrowseView(vault.session(), &vault);
    auto* actions = new VaultActions(vault, *view);
    new MergeController(vault, view);
    new ExpandedGroups(*view->groupTree(), view->groupModel(), vault.session(), vault.context().preferences);
    takeOnDatabasePages(vault, view);
    auto* inspector = new EntryInspector(vault);
    view->addDetailPane(inspector);

    auto* oneTime = new OneTimePanel(vault.session(), vault.context().clipboard);
    inspector->setOneTimePanel(oneTime);
    QObject::connect(oneTime, &OneTimePanel::copied, &vault,
                     [&vault](const QString& what) { vault.showSubtitle(inspectorText::copied(what)); });
    GeneratorBox* generator = nullptr;
    inspector->setGeneratorBox(generatorRow(vault, *inspector, generator));

    const auto follow = [view, inspector, oneTime, generator] {
        const auto entry = view->selectedEntry();
        inspector->setEntry(entry);
        oneTime->setEntry(entry);
        generator->setEntry(entry);
    };
    QObject::connect(view, &BrowseView::selectedEntryChanged, inspector, follow);
    follow();
    // A new entry is named first.
    QObject::connect(actions, &VaultActions::entryAdded, inspector, [inspector] {
        inspector->titleField()->setFocus(Qt::OtherFocusReason);
        inspector->titleField()->selectAll();
    });
    return view;
}

} // namespace quillon::ui
