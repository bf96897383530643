// The toolbar, the entry commands of the menu and drag and drop, in a real window on the offscreen platform.
#include "model/RecycleBin.h"
#include "tests/ui/UiTest.h"
#include "ui/BrowseView.h"
#include "ui/DropRules.h"
#include "ui/EntrySortProxy.h"
#include "ui/EntryTableModel.h"
#include "ui/GroupTreeModel.h"
#include "ui/MainWindow.h"
#include "ui/MenuBar.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QClipboard>
#include <QDesktopServices>
#include <QLineEdit>
#include <QMimeData>
#include <QStatusBar>
#include <QTableView>
#include <QTest>
#include <QToolBar>
#include <QTreeView>

#include <memory>

using namespace quillon;
using namespace quillon::ui;
using quillon::test::tableTitles;

namespace {

constexpr std::string_view work = "AAAAAAAAAAAAAAAAAAAABQ==";
constexpr std::string_view deep = "AAAAAAAAAAAAAAAAAAAABw==";

// Catches what would go to the system's browser.
class UrlCatcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public Q_SLOTS:
    void open(const QUrl& url) { opened << url; }
};

class VaultActionsTest : public ::testing::Test {
protected:
    VaultActionsTest() : window(rig.windows->newWindow()), vault(window->currentVault()) {}

    static void adopt(VaultWindow* into) { test::adoptSampleVault(into->session()); }
    static BrowseView* browseOf(VaultWindow* of)
    {
        QWidget* page = of->unlockedPage();
        if (!page)
            return nullptr;
        auto* view = qobject_cast<BrowseView*>(page);
        return view ? view : page->findChild<BrowseView*>();
    }
    void trigger(Command command) { window->menu()->action(command)->trigger(); }
    state::DatabaseSession& session() { return vault->session(); }
    model::Group group(std::string_view uuid) { return *session().document().findGroup(uuid); }
    void showAndActivate()
    {
        window->show();
        window->activateWindow();
        ASSERT_TRUE(QTest::qWaitForWindowActive(window));
    }

    test::UiRig rig;
    MainWindow* window;
    VaultWindow* vault;
};

// The search item holds the front tab's own field, and the items work only while that tab is unlocked; each
// tab keeps its field and what was typed in it, and a lock takes the field away with the page.
TEST_F(VaultActionsTest, toolbarFollowsTheTabAndTheLock)
{
    const auto enabled = [this] {
        QStringList on;
        for (QAction* action : {window->lockAction(), window->newEntryAction(), window->newGroupAction(),
                                window->menu()->action(Command::addEntry), window->menu()->action(Command::focusSearch),
                                window->menu()->action(Command::copyPassword)})
            if (action->isEnabled())
                on << action->objectName();
        return on;
    };
    EXPECT_FALSE(window->searchItem()->isVisible());
    EXPECT_TRUE(enabled().isEmpty());

    adopt(vault);
    auto* first = vault->searchField();
    ASSERT_TRUE(first);
    EXPECT_EQ(window->placedSearchField(), first);
    EXPECT_TRUE(window->searchItem()->isVisible());
    EXPECT_TRUE(window->findChild<QToolBar*>()->isAncestorOf(first));
    EXPECT_EQ(enabled(), (QStringList{"vault.lock", "vault.newEntry", "vault.newGroup", "addEntry", "focusSearch",
                                      "copyPassword"}));
    first->setText(QStringLiteral("apple"));

    // A second tab, unlocked with its own field; the first tab's field goes home, hidden, text kept.
    auto* second = rig.windows->newTab();
    ASSERT_EQ(second->window(), window);
    EXPECT_FALSE(window->searchItem()->isVisible());
    EXPECT_TRUE(enabled().isEmpty());
    adopt(second);
    EXPECT_EQ(window->placedSearchField(), second->searchField());
    EXPECT_TRUE(browseOf(vault)->isAncestorOf(first));
    EXPECT_TRUE(first->isHidden());
    window->tabs()->setCurrentWidget(vault);
    EXPECT_EQ(window->placedSearchField(), first);
    EXPECT_EQ(first->text(), QStringLiteral("apple"));
    EXPECT_EQ(tableTitles(*browseOf(vault)), QStringList{"apple"});

    // Locking from the toolbar: the field and what was typed go with the page.
    window->lockAction()->trigger();
    ASSERT_TRUE(session().isLocked());
    EXPECT_EQ(vault->searchField(), nullptr);
    EXPECT_EQ(window->placedSearchField(), nullptr);
    EXPECT_FALSE(window->searchItem()->isVisible());
    EXPECT_TRUE(enabled().isEmpty());
    session().attemptUnlock(kdbx::SecureBytes::fromText("pw"));
    rig.finishJobs();
    ASSERT_FALSE(session().isLocked());
    ASSERT_TRUE(vault->searchField());
    EXPECT_EQ(window->placedSearchField(), vault->searchField());
    EXPECT_TRUE(vault->searchField()->text().isEmpty());
    EXPECT_EQ(enabled().size(), 6);
}

// New Entry, New Group, Find, the copies and Open URL from the menu, and Undo going to the field being typed in before the
// database.
TEST_F(VaultActionsTest, menuCommandsMakeSelectCopyAndUndo)
{
    adopt(vault);
    showAndActivate();
    auto& view = *browseOf(vault);
    view.selectGroup(group(work));
    trigger(Command::addEntry);
    ASSERT_TRUE(view.selectedEntry());
    EXPECT_EQ(view.selectedEntry()->title(), "New Entry");
    EXPECT_EQ(view.selectedEntry()->element().parent(), group(work).element());
    EXPECT_EQ(tableTitles(view), (QStringList{"W1", "New Entry"}));

    // A new group under the selected one, named by typing at once; each step undoes on its own.
    trigger(Command::addGroup);
    const auto made = view.selectedGroup();
    ASSERT_TRUE(made);
    EXPECT_EQ(made->element().parent(), group(work).element());
    auto* editor = qobject_cast<QLineEdit*>(view.groupTree()->indexWidget(view.groupTree()->currentIndex()));
    ASSERT_TRUE(editor);
    editor->selectAll();
    QTest::keyClicks(editor, QStringLiteral("Bank"));
    QTest::keyClick(editor, Qt::Key_Return);
    QApplication::processEvents(); // the editor hands its text over on the next turn
    EXPECT_EQ(made->name(), "Bank");
    EXPECT_EQ(QApplication::focusWidget(), view.groupTree());
    trigger(Command::undo);
    EXPECT_EQ(made->name(), "New Group");
    trigger(Command::undo);
    EXPECT_EQ(group(work).groups().size(), 1u);

    // Find by its key (the menu's alone holds it), then Undo of what was typed there: the field's, not the
    // database's; with nothing typed, the database's.
    QTest::keyClick(view.groupTree(), Qt::Key_F, Qt::ControlModifier);
    auto* search = vault->searchField();
    EXPECT_EQ(QApplication::focusWidget(), search);
    QTest::keyClicks(search, QStringLiteral("W1"));
    trigger(Command::undo);
    EXPECT_NE(search->text(), QStringLiteral("W1"));
    EXPECT_EQ(group(work).entries().size(), 2u);
    search->setText({}); // and with it the field's own history
    trigger(Command::undo);
    EXPECT_EQ(group(work).entries().size(), 1u);
    trigger(Command::redo);
    EXPECT_EQ(group(work).entries().size(), 2u);

    // The copies: the text, the secret's mark for clipboard managers, the status line and the clearing job.
    view.selectGroup(*session().document().topGroup());
    view.entryTable()->setCurrentIndex(view.entryTable()->model()->index(0, 0));
    trigger(Command::copyPassword);
    const QMimeData* copied = QApplication::clipboard()->mimeData();
    EXPECT_EQ(copied->text(), QStringLiteral("office"));
    EXPECT_TRUE(copied->hasFormat(secretHintType));
    EXPECT_EQ(window->statusBar()->currentMessage(), QStringLiteral("Password copied"));
    trigger(Command::copyUsername);
    EXPECT_EQ(QApplication::clipboard()->text(), QStringLiteral("Zoe"));
    EXPECT_FALSE(QApplication::clipboard()->mimeData()->hasFormat(secretHintType));
    EXPECT_EQ(window->statusBar()->currentMessage(), QStringLiteral("Username copied"));
    EXPECT_EQ(rig.clipboardJobs.size(), 2u);

    // Open URL: https in front of a bare address; an ftp address is not handed on at all.
    UrlCatcher catcher;
    for (const char* scheme : {"http", "https", "ftp"})
        QDesktopServices::setUrlHandler(QString::fromLatin1(scheme), &catcher, "open");
    trigger(Command::openURL);
    view.entryTable()->setCurrentIndex(view.entryTable()->model()->index(1, 0));
    trigger(Command::openURL);
    for (const char* scheme : {"http", "https", "ftp"})
        QDesktopServices::unsetUrlHandler(QString::fromLatin1(scheme));
    EXPECT_EQ(catcher.opened, QList<QUrl>{QUrl(QStringLiteral("https://example.com/login"))});
}

// Drops through the models the views ask: a reorder in the table (refused while sorted or searching, for data
// of another drag, and undone as one step), an entry onto a group, a group never into its own subgroup, and a
// drop on the bin while it is off asks first, "No" changing nothing.
TEST_F(VaultActionsTest, dropsReorderMoveAndAskBeforeDeletingForGood)
{
    adopt(vault);
    auto& view = *browseOf(vault);
    auto& table = view.sortProxy();
    auto& tree = view.groupModel();
    const auto top = tree.topIndex();
    const auto indexOf = [&](std::string_view uuid) { return tree.indexOf(group(uuid).element()); };
    const auto drag = [](QAbstractItemModel& model, const QModelIndex& at) {
        return std::unique_ptr<QMimeData>(model.mimeData({at}));
    };

    // "apple" dragged above the first row, through a real drop event on the table.
    auto apple = drag(table, table.index(2, 0));
    ASSERT_TRUE(apple);
    EXPECT_TRUE(apple->hasFormat(QStringLiteral("com.brennick.quillon.entry-row")));
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window));
    const QPoint aboveFirst = view.entryTable()->visualRect(table.index(0, 0)).topLeft() + QPoint(8, 1);
    // Qt delivers a drop to the widget that accepted the drag's entry; the table's own drag proposes a move.
    auto* viewport = view.entryTable()->viewport();
    QDragEnterEvent enter(aboveFirst, Qt::MoveAction, apple.get(), Qt::LeftButton, {});
    enter.setDropAction(Qt::MoveAction);
    QApplication::sendEvent(viewport, &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent drop(aboveFirst, Qt::MoveAction, apple.get(), Qt::LeftButton, {});
    drop.setDropAction(Qt::MoveAction);
    QApplication::sendEvent(viewport, &drop);
    EXPECT_TRUE(drop.isAccepted());
    EXPECT_EQ(tableTitles(view), (QStringList{"apple", "item 10", "Item 9"}));
    ASSERT_TRUE(session().nextUndo());
    session().undo();
    EXPECT_EQ(tableTitles(view), (QStringList{"item 10", "Item 9", "apple"}));
    EXPECT_FALSE(session().nextUndo());

    // Sorted, searching, or data this window did not make: refused.
    table.headerClicked(EntryTableModel::title);
    EXPECT_FALSE(table.canDropMimeData(apple.get(), Qt::MoveAction, 0, 0, {}));
    EXPECT_FALSE(table.dropMimeData(apple.get(), Qt::MoveAction, 0, 0, {}));
    table.headerClicked(EntryTableModel::title);
    table.headerClicked(EntryTableModel::title);
    EXPECT_TRUE(table.canDropMimeData(apple.get(), Qt::MoveAction, 0, 0, {}));
    vault->searchField()->setText(QStringLiteral("apple"));
    EXPECT_FALSE(table.canDropMimeData(apple.get(), Qt::MoveAction, 0, 0, {}));
    vault->searchField()->clear();
    QMimeData forged;
    forged.setData(entryRowType, apple->data(entryRowType));
    EXPECT_FALSE(table.canDropMimeData(&forged, Qt::MoveAction, 0, 0, {}));
    // Onto a row: above it, at the end past the last.
    EXPECT_TRUE(table.dropMimeData(apple.get(), Qt::MoveAction, -1, -1, table.index(1, 0)));
    EXPECT_EQ(tableTitles(view), (QStringList{"item 10", "apple", "Item 9"}));
    EXPECT_TRUE(table.dropMimeData(apple.get(), Qt::MoveAction, 3, 0, {}));
    EXPECT_EQ(tableTitles(view), (QStringList{"item 10", "Item 9", "apple"}));

    // An entry onto a group lands in it; never at the top level or in the group it is in.
    EXPECT_FALSE(tree.canDropMimeData(apple.get(), Qt::MoveAction, 0, 0, {}));
    EXPECT_FALSE(tree.canDropMimeData(apple.get(), Qt::MoveAction, -1, -1, top));
    EXPECT_TRUE(tree.dropMimeData(apple.get(), Qt::MoveAction, 0, 0, indexOf(work))); // between children: the group
    EXPECT_EQ(tableTitles(view), (QStringList{"item 10", "Item 9"}));
    EXPECT_EQ(group(work).entries().back().title(), "apple");

    // Groups: the top never drags; Work never into itself or its subgroup; Deep up to the top group.
    EXPECT_FALSE(tree.flags(top) & Qt::ItemIsDragEnabled);
    auto workDrag = drag(tree, indexOf(work));
    EXPECT_TRUE(workDrag->hasFormat(QStringLiteral("com.brennick.quillon.group")));
    EXPECT_FALSE(tree.canDropMimeData(workDrag.get(), Qt::MoveAction, -1, -1, indexOf(deep)));
    EXPECT_FALSE(tree.dropMimeData(workDrag.get(), Qt::MoveAction, -1, -1, indexOf(work)));
    EXPECT_FALSE(tree.canDropMimeData(workDrag.get(), Qt::MoveAction, 0, 0, {}));
    auto deepDrag = drag(tree, indexOf(deep));
    EXPECT_TRUE(tree.dropMimeData(deepDrag.get(), Qt::MoveAction, 0, 0, top)); // ahead of Work
    EXPECT_EQ(group(deep).element().parent(), session().document().topGroup()->element());
    EXPECT_EQ(session().document().topGroup()->groups().front().name(), "Deep");

    // The bin turned off: a drop onto it deletes for good, so it asks; "No" leaves everything as it was.
    ASSERT_EQ(session().deleteEntry(session().document().topGroup()->entries().back()),
              model::DeleteResult::movedToBin);
    ASSERT_TRUE(session().changeSettings(QStringLiteral("Settings"), [](kdbx::OuterHeader&, model::Document& d) {
        d.setMetaText("RecycleBinEnabled", "False");
    }));
    const auto bin = tree.indexOf(model::findBin(session().document())->element());
    workDrag = drag(tree, indexOf(work)); // holding W1 and apple
    const auto undoBefore = session().nextUndo();
    EXPECT_FALSE(tree.dropMimeData(workDrag.get(), Qt::MoveAction, -1, -1, bin));
    EXPECT_EQ(rig.asker.questions,
              QStringList{"Permanently delete \"Work\" and its 2 entries? This can't be undone."});
    EXPECT_EQ(session().nextUndo(), undoBefore);
    EXPECT_EQ(group(work).entries().size(), 2u);
    auto item = drag(table, table.index(0, 0));
    rig.asker.confirmations << true;
    EXPECT_TRUE(tree.dropMimeData(item.get(), Qt::MoveAction, -1, -1, bin));
    EXPECT_EQ(rig.asker.questions.back(), QStringLiteral("Permanently delete \"item 10\"? This can't be undone."));
    EXPECT_FALSE(session().document().findEntry("AAAAAAAAAAAAAAAAAAAAAg=="));
    EXPECT_TRUE(rig.asker.warnings.isEmpty());
}

} // namespace

#include "VaultActionsTest.moc"
