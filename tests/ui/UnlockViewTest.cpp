// The unlock screen through its real widgets: what is typed, what it shows at each step, and the lock.
#include "state/UnlockTexts.h"
#include "tests/support/TestDb.h"
#include "tests/ui/UiTest.h"
#include "ui/MainWindow.h"
#include "ui/MenuBar.h"
#include "ui/UnlockView.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

using namespace quillon;
using namespace quillon::state;

namespace {

void type(QLineEdit* field, const char* text)
{
    QTest::keyClicks(field, QString::fromUtf8(text));
}

TEST(UnlockView, everyStepOfUnlockingThroughTheWidgets)
{
    test::UiRig rig;
    const QString path = rig.database("vault.kdbx");
    auto* window = rig.windows->newWindow();
    auto* vault = rig.windows->open(path, window, window->currentVault());
    auto* view = vault->unlockView();
    ASSERT_EQ(vault->currentWidget(), view);
    EXPECT_EQ(window->windowTitle(), QStringLiteral("vault.kdbx is locked[*]"));
    EXPECT_EQ(view->titleLabel()->text(), QStringLiteral("vault.kdbx is locked"));
    EXPECT_EQ(view->field()->echoMode(), QLineEdit::Password);
    EXPECT_TRUE(view->removeKeyFileButton()->isHidden());

    // A key file chosen and removed again.
    test::writeFile(rig.dir / "vault.key", std::string_view("not the key"));
    rig.asker.answers.append(QString::fromStdString((rig.dir / "vault.key").string()));
    QTest::mouseClick(view->keyFileButton(), Qt::LeftButton);
    EXPECT_EQ(rig.asker.asked, QStringList{"Choose the key file"});
    EXPECT_EQ(view->keyFileLabel()->text(), QStringLiteral("vault.key"));
    EXPECT_FALSE(view->removeKeyFileButton()->isHidden());
    QTest::mouseClick(view->removeKeyFileButton(), Qt::LeftButton);
    EXPECT_EQ(view->keyFileLabel()->text(), unlockText::noKeyFile);

    // A wrong password: the field empties at once, everything waits while decoding runs, then it shakes.
    type(view->field(), "wrong");
    QTest::keyClick(view->field(), Qt::Key_Return);
    EXPECT_TRUE(view->field()->text().isEmpty());
    EXPECT_EQ(view->hintLabel()->text(), unlockText::hintUnlocking);
    EXPECT_FALSE(view->field()->isEnabled());
    EXPECT_FALSE(view->unlockButton()->isEnabled());
    EXPECT_FALSE(view->keyFileButton()->isEnabled());
    rig.finishJobs();
    EXPECT_TRUE(view->isShaking());
    EXPECT_TRUE(view->field()->isEnabled());
    EXPECT_EQ(view->hintLabel()->text(), unlockText::hintFile);
    EXPECT_TRUE(rig.asker.warnings.isEmpty());

    // "Unlock and Set PIN…": nothing typed, then the password, then a PIN.
    view->setPINAction()->trigger();
    EXPECT_EQ(view->hintLabel()->text(), unlockText::hintTypePasswordFirst);
    type(view->field(), "right");
    view->setPINAction()->trigger();
    EXPECT_TRUE(view->field()->text().isEmpty());
    EXPECT_EQ(view->field()->placeholderText(), unlockText::placeholderNewPIN);
    type(view->field(), "2468");
    QTest::mouseClick(view->unlockButton(), Qt::LeftButton);
    rig.finishJobs();
    ASSERT_EQ(vault->currentWidget(), vault->unlockedPage());
    EXPECT_EQ(window->windowTitle(), QStringLiteral("vault.kdbx[*]"));
    EXPECT_TRUE(window->lockAction()->isEnabled());
    EXPECT_EQ(rig.windows->recents().paths().size(), 1);

    // Lock from the menu: the PIN screen, with one Unlock button and no menu.
    window->menu()->action(ui::Command::lockDatabase)->trigger();
    ASSERT_EQ(vault->currentWidget(), view);
    EXPECT_EQ(vault->unlockedPage(), nullptr);
    EXPECT_EQ(view->field()->placeholderText(), unlockText::placeholderPIN);
    EXPECT_EQ(view->unlockButton()->menu(), nullptr);
    type(view->field(), "2468");
    QTest::keyClick(view->field(), Qt::Key_Return);
    rig.finishJobs();
    EXPECT_EQ(vault->currentWidget(), vault->unlockedPage());

    // The toolbar's lock does the same.
    window->lockAction()->trigger();
    EXPECT_EQ(vault->currentWidget(), view);
}

TEST(UnlockView, decodingErrorsOtherThanTheKeyAreAlerts)
{
    test::UiRig rig;
    const QString path = rig.database("vault.kdbx");
    auto* window = rig.windows->newWindow();
    auto* vault = rig.windows->open(path, window, window->currentVault());
    test::writeFile(rig.dir / "vault.kdbx", std::string_view("this is not a database"));
    type(vault->unlockView()->field(), "right");
    QTest::keyClick(vault->unlockView()->field(), Qt::Key_Return);
    rig.finishJobs();
    EXPECT_EQ(rig.asker.warnings, QStringList{"Not a KDBX file."});
    EXPECT_FALSE(vault->unlockView()->isShaking());
}

} // namespace
