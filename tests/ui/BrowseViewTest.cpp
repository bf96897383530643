#include "ui/BrowseView.h"
#include "ui/OpenUrl.h"

#include "app/DemoDatabase.h"
#include "model/RecycleBin.h"
#include "tests/support/TestDb.h"
#include "tests/ui/UiTest.h"
#include "ui/EntrySortProxy.h"
#include "ui/EntryTableModel.h"
#include "ui/GroupTreeModel.h"

#include <gmock/gmock.h>

#include <QAbstractItemModelTester>
#include <QAction>
#include <QApplication>
#include <QHeaderView>
#include <QLineEdit>
#include <QTableView>
#include <QTest>
#include <QTreeView>
#include <QVBoxLayout>

#include <array>

using namespace quillon;
using namespace quillon::ui;
using quillon::test::tableTitles;
using ::testing::ElementsAre;

namespace {

constexpr auto fatal = QAbstractItemModelTester::FailureReportingMode::Fatal;

class BrowseViewTest : public ::testing::Test {
protected:
    void unlock()
    {
        session.attemptUnlock(kdbx::SecureBytes::fromText("pw"));
        rig.finishJobs();
    }
    static QStringList groupNames(const QAbstractItemModel& model, const QModelIndex& parent)
    {
        QStringList out;
        for (int r = 0; r < model.rowCount(parent); ++r)
            out << model.index(r, 0, parent).data().toString();
        return out;
    }
    model::Entry entry(std::string_view uuid) { return *session.document().findEntry(uuid); }
    model::Group group(std::string_view uuid) { return *session.document().findGroup(uuid); }
    model::Group top() { return *session.document().topGroup(); }

    test::UiRig rig;
    state::DatabaseSession session{rig.services()};
};

// Every command lands in the tree and the table as rows inserted, removed or moved, never as a reset; only
// locking and unlocking reset, and the view then shows the top group again.
TEST_F(BrowseViewTest, modelsFollowEveryCommandRowByRow)
{
    test::adoptSampleVault(session);
    BrowseView view(session);
    auto& tree = view.groupModel();
    auto& table = view.entryModel();
    QAbstractItemModelTester treeTester(&tree, fatal);
    QAbstractItemModelTester tableTester(&table, fatal);
    QAbstractItemModelTester proxyTester(&view.sortProxy(), fatal);
    std::array<int, 3> resets{}; // tree, table, sorted table
    const QAbstractItemModel* models[] = {&tree, &table, &view.sortProxy()};
    for (std::size_t i = 0; i < resets.size(); ++i)
        QObject::connect(models[i], &QAbstractItemModel::modelReset, [&resets, i] { ++resets[i]; });
    int moves = 0;
    QObject::connect(&table, &QAbstractItemModel::rowsMoved, [&] { ++moves; });

    const auto root = tree.topIndex();
    EXPECT_EQ(tree.rowCount(), 1);
    EXPECT_THAT(groupNames(tree, root), ElementsAre("Work", "Hidden"));
    EXPECT_EQ(view.selectedGroup()->element(), top().element());
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "Item 9", "apple"));

    const auto added = session.newEntry(top(), "new");
    ASSERT_TRUE(added);
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "Item 9", "apple", "new"));
    // A selection rides on persistent indexes: they must follow each move.
    const QPersistentModelIndex followed(table.index(3, EntryTableModel::title));
    const QPersistentModelIndex neighbour(table.index(0, EntryTableModel::title));
    ASSERT_TRUE(session.reorder(*added, entry("AAAAAAAAAAAAAAAAAAAAAg==")));
    EXPECT_THAT(tableTitles(view), ElementsAre("new", "item 10", "Item 9", "apple"));
    EXPECT_EQ(followed.row(), 0);
    ASSERT_TRUE(session.reorder(*added, std::nullopt));
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "Item 9", "apple", "new"));
    EXPECT_EQ(moves, 2);
    EXPECT_EQ(followed.row(), 3);
    EXPECT_EQ(neighbour.row(), 0);
    ASSERT_TRUE(session.editField(*added, "Title", "renamed"));
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "Item 9", "apple", "renamed"));

    const auto home = session.newGroup(top(), "Home");
    ASSERT_TRUE(home);
    EXPECT_THAT(groupNames(tree, root), ElementsAre("Work", "Hidden", "Home"));
    EXPECT_EQ(session.moveGroup(*home, group("AAAAAAAAAAAAAAAAAAAABQ==")), model::MoveResult::moved);
    EXPECT_THAT(groupNames(tree, root), ElementsAre("Work", "Hidden"));
    EXPECT_THAT(groupNames(tree, tree.index(0, 0, root)), ElementsAre("Deep", "Home"));
    EXPECT_EQ(session.moveEntry(entry("AAAAAAAAAAAAAAAAAAAAAw=="), *home), model::MoveResult::moved);
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "apple", "renamed"));

    // Renaming in place is a command like any other.
    const auto work = tree.index(0, 0, root);
    EXPECT_TRUE(tree.setData(work, QStringLiteral("Job")));
    EXPECT_EQ(work.data().toString(), "Job");
    EXPECT_FALSE(tree.setData(work, QStringLiteral("  ")));

    // The bin appears when first used, drawn as the bin.
    EXPECT_EQ(session.deleteEntry(entry("AAAAAAAAAAAAAAAAAAAABA==")), model::DeleteResult::movedToBin);
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "renamed"));
    EXPECT_THAT(groupNames(tree, root), ElementsAre("Job", "Hidden", "Recycle Bin"));
    const auto bin = tree.index(2, 0, root);
    EXPECT_NE(bin.data(Qt::DecorationRole).value<QIcon>().cacheKey(),
              work.data(Qt::DecorationRole).value<QIcon>().cacheKey());
    EXPECT_TRUE(session.restore(entry("AAAAAAAAAAAAAAAAAAAABA==")));
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "renamed", "apple"));
    EXPECT_EQ(session.deleteGroup(*home), model::DeleteResult::movedToBin);
    EXPECT_EQ(tree.rowCount(bin), 1);
    EXPECT_EQ(session.emptyBin(), model::DeleteResult::deletedPermanently);
    EXPECT_EQ(tree.rowCount(bin), 0);

    EXPECT_THAT(resets, ElementsAre(0, 0, 0));

    // Removing the selected group empties the table and selects another row.
    view.selectGroup(group("AAAAAAAAAAAAAAAAAAAACQ=="));
    EXPECT_THAT(tableTitles(view), ElementsAre("Office hidden"));
    session.deletePermanently(group("AAAAAAAAAAAAAAAAAAAACQ=="));
    ASSERT_TRUE(view.selectedGroup());
    EXPECT_EQ(table.rowCount(), int(view.selectedGroup()->entries().size()));

    view.selectGroup(top());
    const auto before = resets;
    while (session.undo()) {
    }
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "Item 9", "apple"));
    EXPECT_THAT(groupNames(tree, root), ElementsAre("Work", "Hidden"));
    while (session.redo()) {
    }
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "renamed", "apple"));
    EXPECT_EQ(resets, before);

    session.lock();
    EXPECT_EQ(tree.rowCount(), 0);
    EXPECT_EQ(table.rowCount(), 0);
    unlock();
    ASSERT_TRUE(session.isOpen());
    EXPECT_EQ(resets[0], before[0] + 2); // the tree: once for the lock, once for the unlock
    EXPECT_EQ(view.selectedGroup()->element(), top().element());
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "renamed", "apple"));
    // The unlock made the search texts and sort keys beside the tree; both follow the next edit.
    ASSERT_TRUE(session.editField(entry("AAAAAAAAAAAAAAAAAAAABA=="), "Title", "office apple"));
    view.sortProxy().headerClicked(EntryTableModel::title);
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "office apple", "renamed"));
    view.entryModel().setSearch(QStringLiteral("office"));
    EXPECT_THAT(tableTitles(view), ElementsAre("office apple", "Office deep"));
}

void clickHeader(QTableView& table, int column)
{
    auto* header = table.horizontalHeader();
    const QPoint at(header->sectionViewportPosition(column) + header->sectionSize(column) / 2, header->height() / 2);
    QTest::mouseClick(header->viewport(), Qt::LeftButton, {}, at);
}

// Header clicks step each column through ascending, descending and back to document order, with the
// indicator following; titles and usernames compare as a file browser orders names.
TEST_F(BrowseViewTest, headerClicksStepTheSortCycle)
{
    test::adoptSampleVault(session);
    BrowseView view(session);
    view.resize(900, 400);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    auto& table = *view.entryTable();
    const auto* header = table.horizontalHeader();
    int resets = 0;
    QObject::connect(&view.sortProxy(), &QAbstractItemModel::modelReset, [&] { ++resets; });
    const auto indicator = [&] {
        return header->sortIndicatorSection() < 0 || !header->isSortIndicatorShown()
                   ? QStringLiteral("none")
                   : QStringLiteral("%1 %2").arg(header->sortIndicatorSection()).arg(
                         header->sortIndicatorOrder() == Qt::AscendingOrder ? QStringLiteral("up")
                                                                            : QStringLiteral("down"));
    };

    table.setCurrentIndex(view.sortProxy().index(1, EntryTableModel::title));
    clickHeader(table, EntryTableModel::title);
    EXPECT_THAT(tableTitles(view), ElementsAre("apple", "Item 9", "item 10"));
    EXPECT_EQ(indicator(), "0 up");
    EXPECT_EQ(table.currentIndex().data().toString(), "Item 9");
    clickHeader(table, EntryTableModel::title);
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "Item 9", "apple"));
    EXPECT_EQ(indicator(), "0 down");
    clickHeader(table, EntryTableModel::title);
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "Item 9", "apple"));
    EXPECT_EQ(indicator(), "none");
    EXPECT_EQ(view.sortProxy().sortColumn(), std::nullopt);

    clickHeader(table, EntryTableModel::modified);
    EXPECT_THAT(tableTitles(view), ElementsAre("Item 9", "apple", "item 10"));
    clickHeader(table, EntryTableModel::password);
    EXPECT_THAT(tableTitles(view), ElementsAre("Item 9", "apple", "item 10"));
    EXPECT_EQ(indicator(), "3 up");
    clickHeader(table, EntryTableModel::username); // another column starts ascending
    EXPECT_THAT(tableTitles(view), ElementsAre("Item 9", "apple", "item 10"));
    EXPECT_EQ(indicator(), "1 up");
    EXPECT_EQ(view.sortProxy().sortDirection(), SortDirection::ascending);

    // While sorted, every command lands row by row where it belongs, and the selection follows its entry.
    QAbstractItemModelTester tester(&view.sortProxy(), fatal);
    const auto apple = view.sortProxy().index(1, EntryTableModel::title);
    table.setCurrentIndex(apple);
    ASSERT_TRUE(session.editField(entry("AAAAAAAAAAAAAAAAAAAABA=="), "UserName", "aaron"));
    EXPECT_THAT(tableTitles(view), ElementsAre("apple", "Item 9", "item 10"));
    EXPECT_EQ(table.currentIndex().row(), 0);
    const auto masked = table.model()->index(2, EntryTableModel::password).data().toString();
    EXPECT_EQ(masked, QString(8, QChar(0x2022)));
    const auto added = session.newEntry(top(), "new");
    ASSERT_TRUE(added);
    ASSERT_TRUE(session.editField(*added, "UserName", "Bz"));
    EXPECT_THAT(tableTitles(view), ElementsAre("apple", "Item 9", "new", "item 10"));
    ASSERT_TRUE(session.reorder(*added, entry("AAAAAAAAAAAAAAAAAAAAAg==")));
    EXPECT_THAT(tableTitles(view), ElementsAre("apple", "Item 9", "new", "item 10"));
    EXPECT_EQ(session.deleteEntry(entry("AAAAAAAAAAAAAAAAAAAAAw==")), model::DeleteResult::movedToBin);
    EXPECT_THAT(tableTitles(view), ElementsAre("apple", "new", "item 10"));
    EXPECT_EQ(table.currentIndex().data().toString(), "apple");
    clickHeader(table, EntryTableModel::username);
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "new", "apple"));
    EXPECT_EQ(table.currentIndex().data().toString(), "apple");
    while (session.undo()) {
    }
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "apple", "Item 9"));
    clickHeader(table, EntryTableModel::username);
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "Item 9", "apple"));
    EXPECT_EQ(resets, 0);
}

// The search lists matches from the whole database as keys arrive and follows edits; Escape clears it and
// leaves for the table, which shows the selected group again.
TEST_F(BrowseViewTest, searchNarrowsAsKeysArriveAndEscapeClears)
{
    test::adoptSampleVault(session);
    QWidget window; // the search field sits in the window's toolbar, outside the view
    auto* layout = new QVBoxLayout(&window);
    auto& view = *new BrowseView(session, &window);
    auto* search = view.searchField();
    layout->addWidget(search);
    layout->addWidget(&view);
    search->show();
    window.show();
    window.activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(&window));
    view.entryTable()->setFocus();
    QTest::keyClick(view.entryTable(), Qt::Key_F, Qt::ControlModifier);
    EXPECT_EQ(QApplication::focusWidget(), search);

    QTest::keyClick(search, Qt::Key_O);
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "Item 9", "apple", "Office deep"));
    QTest::keyClick(search, Qt::Key_F);
    EXPECT_THAT(tableTitles(view), ElementsAre("Item 9", "Office deep"));
    QTest::keyClicks(search, "F");
    EXPECT_THAT(tableTitles(view), ElementsAre("Item 9", "Office deep"));

    int resets = 0;
    QObject::connect(&view.entryModel(), &QAbstractItemModel::modelReset, [&] { ++resets; });
    QAbstractItemModelTester tester(&view.entryModel(), fatal);
    ASSERT_TRUE(session.editField(entry("AAAAAAAAAAAAAAAAAAAABg=="), "Notes", "Office"));
    EXPECT_THAT(tableTitles(view), ElementsAre("Item 9", "W1", "Office deep"));
    EXPECT_EQ(session.deleteEntry(entry("AAAAAAAAAAAAAAAAAAAACA==")), model::DeleteResult::movedToBin);
    EXPECT_THAT(tableTitles(view), ElementsAre("Item 9", "W1"));
    session.undo();
    EXPECT_THAT(tableTitles(view), ElementsAre("Item 9", "W1", "Office deep"));
    session.deletePermanently(group("AAAAAAAAAAAAAAAAAAAABQ==")); // Work, holding W1 and Deep
    EXPECT_THAT(tableTitles(view), ElementsAre("Item 9"));
    session.undo();
    EXPECT_THAT(tableTitles(view), ElementsAre("Item 9", "W1", "Office deep"));
    EXPECT_EQ(resets, 0);

    view.setSearchScope(model::SearchScope::password);
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10"));
    view.setSearchScope(model::SearchScope::everywhere);

    QTest::keyClick(search, Qt::Key_Escape);
    EXPECT_TRUE(search->text().isEmpty());
    EXPECT_THAT(tableTitles(view), ElementsAre("item 10", "Item 9", "apple"));
    EXPECT_FALSE(view.entryModel().isSearching());
    EXPECT_EQ(QApplication::focusWidget(), view.entryTable());

    // From the tree to the entries without a mouse.
    view.groupTree()->setFocus();
    view.entryTable()->clearSelection();
    view.entryTable()->setCurrentIndex({});
    QTest::keyClick(view.groupTree(), Qt::Key_Return);
    EXPECT_EQ(QApplication::focusWidget(), view.entryTable());
    ASSERT_TRUE(view.selectedEntry());
    EXPECT_EQ(view.selectedEntry()->title(), "item 10");
}

// Draws the demo database; with QUILLON_SCREENSHOT_DIR set the picture is saved there to be looked at.
TEST_F(BrowseViewTest, drawsTheDemoDatabase)
{
    session.adopt(std::nullopt, app::makeDemoDatabase(), test::passwordOnly("pw"), std::nullopt);
    BrowseView view(session);
    view.resize(960, 540);
    view.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&view));
    const auto topGroups = top().groups().size();
    EXPECT_EQ(view.groupModel().rowCount(view.groupModel().topIndex()), int(topGroups));
    EXPECT_TRUE(view.groupTree()->isExpanded(view.groupModel().topIndex()));
    EXPECT_EQ(view.entryTable()->model()->rowCount(), int(top().entries().size()));
    view.selectGroup(top().groups().front());
    EXPECT_EQ(view.entryTable()->model()->rowCount(), int(top().groups().front().entries().size()));
    clickHeader(*view.entryTable(), EntryTableModel::title);
    view.entryTable()->selectRow(0);
    view.entryTable()->setFocus();
    const auto picture = view.grab();
    EXPECT_FALSE(picture.isNull());
    if (const auto dir = qEnvironmentVariable("QUILLON_SCREENSHOT_DIR"); !dir.isEmpty())
        picture.save(dir + QStringLiteral("/browse.png"));
}

} // namespace

TEST(OpenUrl, onlyHttpAndHttpsOpenAndABareAddressGetsHttps)
{
    EXPECT_EQ(ui::urlToOpen(QStringLiteral("  example.com/login ")), QUrl(QStringLiteral("https://example.com/login")));
    EXPECT_EQ(ui::urlToOpen(QStringLiteral("HTTP://example.com")), QUrl(QStringLiteral("http://example.com")));
    EXPECT_EQ(ui::urlToOpen(QStringLiteral("ftp://example.com")), std::nullopt);
    EXPECT_EQ(ui::urlToOpen(QStringLiteral("javascript://alert(1)")), std::nullopt);
    EXPECT_EQ(ui::urlToOpen(QStringLiteral(" \t")), std::nullopt);
    EXPECT_EQ(ui::urlToOpen(QStringLiteral("https://exa mple.com")), std::nullopt);
}
