// Every control the keyboard reaches has a name a screen reader can say, on each page of a vault window.
#include "tests/ui/UiTest.h"

#include "model/Group.h"
#include "ui/BrowseView.h"
#include "ui/MainWindow.h"
#include "ui/MenuBar.h"
#include "ui/VaultWindow.h"

#include <gmock/gmock.h>

#include <QAccessible>
#include <QAction>

using namespace quillon;

namespace {

QString nameOf(QWidget* widget)
{
    QAccessibleInterface* face = QAccessible::queryAccessibleInterface(widget);
    return face ? face->text(QAccessible::Name).trimmed() : QString();
}

QStringList unnamedControls(const QWidget* top)
{
    QStringList out;
    for (auto* widget : top->findChildren<QWidget*>()) {
        if (!widget->isVisible() || !(widget->focusPolicy() & Qt::TabFocus))
            continue;
        // A composite and the part it passes focus to (a spin box and its line edit): either may carry the name.
        QWidget* parent = widget->parentWidget();
        const bool paired = parent && (parent->focusProxy() == widget || widget->focusProxy() == parent);
        if (nameOf(widget).isEmpty() && !(paired && !nameOf(parent).isEmpty()))
            out << QString::fromLatin1(widget->metaObject()->className()) + " " + widget->objectName() + " in " +
                       (parent ? QString::fromLatin1(parent->metaObject()->className()) : QString());
    }
    return out;
}

TEST(Accessibility, everyControlTheKeyboardReachesHasAName)
{
    test::UiRig rig;
    auto* vault = rig.openUnlocked(rig.database("vault.kdbx"));
    auto* window = qobject_cast<ui::MainWindow*>(vault->window());
    ASSERT_TRUE(window);
    window->show();
    vault->browseView()->selectEntry(vault->session().document().topGroup()->allEntries().front());
    EXPECT_THAT(unnamedControls(window), testing::IsEmpty()) << "unlocked";

    window->menu()->action(ui::Command::databaseSettings)->trigger();
    EXPECT_THAT(unnamedControls(window), testing::IsEmpty()) << "database settings";

    vault->perform(ui::Command::lockDatabase);
    ASSERT_TRUE(vault->session().isLocked());
    EXPECT_THAT(unnamedControls(window), testing::IsEmpty()) << "locked";
}

} // namespace
