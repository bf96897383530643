// Deleting from the vault window: to the Recycle Bin without asking, for good only after "Yes", and the words.
#include "tests/ui/UiTest.h"

#include "model/RecycleBin.h"
#include "ui/BrowseView.h"
#include "ui/DeleteFlow.h"
#include "ui/MainWindow.h"
#include "ui/MenuBar.h"
#include "ui/VaultWindow.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QMenu>

using namespace quillon;

TEST(Delete, contentsAreCountedInWords)
{
    EXPECT_EQ(ui::DeleteFlow::contents(3, 1), QStringLiteral("3 entries and 1 group"));
    EXPECT_EQ(ui::DeleteFlow::contents(1, 0), QStringLiteral("1 entry"));
    EXPECT_EQ(ui::DeleteFlow::contents(0, 2), QStringLiteral("2 groups"));
    EXPECT_EQ(ui::DeleteFlow::contents(0, 0), QString());
}

TEST(Delete, movesToTheBinWithoutAskingAndDeletesForGoodOnlyAfterYes)
{
    test::UiRig rig;
    auto* vault = rig.openUnlocked(rig.database("vault.kdbx"));
    auto& session = vault->session();
    auto* view = vault->browseView();
    ASSERT_TRUE(view);
    auto& document = session.document();
    const auto top = *document.topGroup();
    const auto work = *session.newGroup(top, "Work");
    const auto w1 = *session.newEntry(work, "W1");
    const auto w2 = *session.newEntry(work, "W2");
    const auto deep = *session.newGroup(work, "Deep");
    session.newEntry(deep, "D1");
    const std::string w2Uuid(w2.uuid());

    // The selected entry moves to the bin without a question; its neighbour stays.
    view->selectGroup(work);
    view->selectEntry(w2);
    vault->perform(ui::Command::deleteEntry);
    EXPECT_TRUE(rig.asker.questions.isEmpty());
    EXPECT_EQ(vault->subtitle(), QStringLiteral("Moved to Recycle Bin"));
    const auto bin = model::findBin(document);
    ASSERT_TRUE(bin);
    ASSERT_EQ(bin->entries().size(), 1u);
    EXPECT_EQ(bin->entries().front().uuid(), w2Uuid);
    EXPECT_FALSE(model::isInsideBin(w1));

    // In the bin it asks first, and "No" keeps it.
    view->selectGroup(*bin);
    view->selectEntry(bin->entries().front());
    vault->perform(ui::Command::deleteEntry);
    EXPECT_EQ(rig.asker.questions.value(0), QStringLiteral("Permanently delete \"W2\"? This can't be undone."));
    EXPECT_EQ(bin->entries().size(), 1u);

    // Restoring puts it back where it was.
    vault->perform(ui::Command::restoreItem);
    EXPECT_EQ(vault->subtitle(), QStringLiteral("Restored"));
    EXPECT_TRUE(bin->entries().empty());
    EXPECT_EQ(work.entries().back().uuid(), w2Uuid);

    // Groups: the top one is refused, another moves after its question, with its contents counted.
    view->selectGroup(top);
    vault->perform(ui::Command::deleteGroup);
    EXPECT_EQ(rig.asker.warnings.value(0), QStringLiteral("The top-level group can't be deleted."));
    view->selectGroup(work);
    vault->perform(ui::Command::deleteGroup);
    EXPECT_EQ(rig.asker.questions.last(),
              QStringLiteral("Move \"Work\" and its 3 entries and 1 group to the Recycle Bin?"));
    EXPECT_FALSE(model::isInsideBin(work));
    rig.asker.confirmations = {true};
    vault->perform(ui::Command::deleteGroup);
    EXPECT_TRUE(model::isInsideBin(work));
    EXPECT_EQ(vault->subtitle(), QStringLiteral("Moved to Recycle Bin"));

    // The bin: its menu item reads "Empty Recycle Bin…", it asks, empties for good and then says it is empty.
    view->selectGroup(*bin);
    QAction* item = qobject_cast<ui::MainWindow*>(vault->window())->menu()->action(ui::Command::deleteGroup);
    auto* menu = qobject_cast<QMenu*>(item->parent());
    ASSERT_TRUE(menu);
    Q_EMIT menu->aboutToShow();
    EXPECT_EQ(item->text(), QStringLiteral("Empty Recycle Bin…"));
    rig.asker.confirmations = {true};
    vault->perform(ui::Command::deleteGroup);
    EXPECT_EQ(rig.asker.questions.last(),
              QStringLiteral("Empty the Recycle Bin? Its 3 entries and 2 groups will be deleted permanently."));
    EXPECT_TRUE(bin->entries().empty() && bin->groups().empty());
    EXPECT_EQ(document.xml().select_nodes("//DeletedObject").size(), 5u);
    vault->perform(ui::Command::deleteGroup);
    EXPECT_EQ(rig.asker.warnings.last(), QStringLiteral("The Recycle Bin is already empty."));
    view->selectGroup(top);
    Q_EMIT menu->aboutToShow();
    EXPECT_EQ(item->text(), QStringLiteral("Delete Group"));

    // With the bin off, deleting is permanent and asked about.
    ASSERT_TRUE(session.changeSettings(QStringLiteral("Settings"), [](kdbx::OuterHeader&, model::Document& doc) {
        doc.setMetaText("RecycleBinEnabled", "False");
    }));
    view->selectGroup(top);
    view->selectEntry(top.entries().front());
    rig.asker.confirmations = {true};
    vault->perform(ui::Command::deleteEntry);
    EXPECT_TRUE(top.entries().empty());
    EXPECT_TRUE(rig.asker.questions.last().startsWith(QStringLiteral("Permanently delete \"")));
    EXPECT_TRUE(session.isDirty());
}
