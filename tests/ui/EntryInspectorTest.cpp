// The inspector edits through the session's commands, follows the session, copies through the clipboard's
// rules and restores earlier versions; driven through its real widgets on the offscreen platform.
#include "tests/ui/UiTest.h"

#include "model/Attachments.h"
#include "model/Group.h"
#include "model/RecycleBin.h"
#include "tests/support/TestDb.h"
#include "ui/AttachmentsPanel.h"
#include "ui/BrowseView.h"
#include "ui/CustomFieldsPanel.h"
#include "ui/EntryInspector.h"
#include "ui/HistoryMenu.h"
#include "ui/RecentDatabases.h"
#include "ui/SecretField.h"
#include "ui/VaultWindow.h"
#include "ui/VersionView.h"

#include <gmock/gmock.h>

#include <QCheckBox>
#include <QClipboard>
#include <QDateTimeEdit>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPointer>
#include <QPushButton>
#include <QTest>
#include <QToolButton>

#include <fstream>

using namespace quillon;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace {

// Mail has two earlier versions (the older one without a time), a one-time password field and a protected PIN.
constexpr const char* inspectorXml = R"(<?xml version="1.0" encoding="utf-8" standalone="yes"?>
<KeePassFile><Meta><Generator>t</Generator></Meta><Root><Group><UUID>AAAAAAAAAAAAAAAAAAAAAQ==</UUID><Name>Root</Name>
<Entry><UUID>AAAAAAAAAAAAAAAAAAAAAg==</UUID>
<Times><CreationTime>2024-01-01T00:00:00Z</CreationTime><LastModificationTime>2024-05-01T10:00:00Z</LastModificationTime><Expires>False</Expires></Times>
<String><Key>Title</Key><Value>Mail</Value></String><String><Key>UserName</Key><Value>ann</Value></String>
<String><Key>Password</Key><Value Protected="True">s3cret</Value></String><String><Key>URL</Key><Value>mail.example.com</Value></String>
<String><Key>Notes</Key><Value>first line</Value></String>
<String><Key>otp</Key><Value Protected="True">otpauth://totp/a?secret=JBSWY3DPEHPK3PXP</Value></String>
<String><Key>PIN</Key><Value Protected="True">1234</Value></String>
<History>
<Entry><UUID>AAAAAAAAAAAAAAAAAAAAAg==</UUID><String><Key>Title</Key><Value>Mail older</Value></String></Entry>
<Entry><UUID>AAAAAAAAAAAAAAAAAAAAAg==</UUID><Times><LastModificationTime>2024-02-01T09:30:00Z</LastModificationTime></Times>
<String><Key>Title</Key><Value>Mail old</Value></String><String><Key>Password</Key><Value Protected="True">old</Value></String></Entry>
</History></Entry>
<Entry><UUID>AAAAAAAAAAAAAAAAAAAAAw==</UUID><Times><LastModificationTime>2024-01-01T00:00:00Z</LastModificationTime><Expires>False</Expires></Times>
<String><Key>Title</Key><Value>Bank</Value></String><String><Key>PIN</Key><Value Protected="True">9876</Value></String></Entry>
</Group></Root></KeePassFile>)";

class EntryInspectorTest : public ::testing::Test {
protected:
    EntryInspectorTest()
    {
        auto file = test::tinyDatabase();
        test::setDocument(*file, inspectorXml);
        vault.session().adopt(std::nullopt, std::move(file), test::passwordOnly("pw"), std::nullopt);
        vault.resize(1100, 700);
        vault.show();
        vault.activateWindow();
        EXPECT_TRUE(QTest::qWaitForWindowActive(&vault));
        browse = qobject_cast<ui::BrowseView*>(vault.unlockedPage());
        inspector = vault.unlockedPage()->findChild<ui::EntryInspector*>();
        browse->selectEntry(mail());
    }

    model::Entry mail() { return *session().document().findEntry("AAAAAAAAAAAAAAAAAAAAAg=="); }
    state::DatabaseSession& session() { return vault.session(); }
    std::string xml() { return test::xmlText(session().document().xml()); }
    // Tab leaves the field, as the user's editing ends.
    static void leave(QWidget* field) { field->clearFocus(); }
    int commands() { return test::undoDepth(session()); }

    test::UiRig rig;
    ui::RecentDatabases recents{rig.preferences};
    ui::VaultContext context{rig.asker, rig.clipboard, rig.preferences, recents, rig.services()};
    ui::VaultWindow vault{context};
    ui::BrowseView* browse = nullptr;
    ui::EntryInspector* inspector = nullptr;
};

// Each field typed and left is one command; leaving a field unchanged is none. Undo returns the document to
// exactly what it was, and the inspector follows undo, redo, another part's edit and the entry's removal, never
// disturbing a field being typed in.
TEST_F(EntryInspectorTest, editsAreOneUndoableCommandEachAndTheInspectorFollowsTheSession)
{
    ASSERT_TRUE(inspector);
    const std::string before = xml();
    EXPECT_EQ(inspector->passwordField()->edit()->echoMode(), QLineEdit::Password);

    test::retype(inspector->titleField(), QStringLiteral("Mailbox"));
    leave(inspector->titleField());
    test::retype(inspector->usernameField(), QStringLiteral("ann@example.com"));
    QTest::keyClick(inspector->usernameField(), Qt::Key_Return);
    test::retype(inspector->passwordField()->edit(), QStringLiteral("n3w"));
    leave(inspector->passwordField()->edit());
    test::retype(inspector->urlField(), QStringLiteral("mail.example.com")); // the same text: no command
    leave(inspector->urlField());
    test::retype(inspector->notesView(), QStringLiteral("second"));
    leave(inspector->notesView());
    inspector->expiresCheck()->click();
    EXPECT_TRUE(inspector->expiresPicker()->isEnabled());
    const QDateTime expiry(QDate(2030, 1, 2), QTime(3, 4, 5), Qt::UTC);
    inspector->expiresPicker()->setFocus();
    inspector->expiresPicker()->setDateTime(expiry.toLocalTime());
    leave(inspector->expiresPicker());
    EXPECT_EQ(commands(), 6);
    EXPECT_EQ(mail().title(), "Mailbox");
    EXPECT_EQ(mail().userName(), "ann@example.com");
    EXPECT_EQ(mail().password(), "n3w");
    EXPECT_TRUE(mail().isFieldProtected("Password"));
    EXPECT_EQ(mail().notes(), "second");
    EXPECT_EQ(mail().expiry(), model::Time(std::chrono::seconds(expiry.toSecsSinceEpoch())));
    EXPECT_EQ(mail().history().size(), 8u);

    while (session().undo()) {
    }
    EXPECT_EQ(xml(), before);
    EXPECT_EQ(inspector->titleField()->text(), "Mail");
    EXPECT_EQ(inspector->notesView()->toPlainText(), "first line");
    EXPECT_FALSE(inspector->expiresCheck()->isChecked());
    EXPECT_FALSE(inspector->expiresPicker()->isEnabled());
    session().redo();
    EXPECT_EQ(inspector->titleField()->text(), "Mailbox");

    // Another part's edit arrives while the user types in the title: the typing and its caret stay.
    test::retype(inspector->titleField(), QStringLiteral("Mail hub"));
    inspector->titleField()->setCursorPosition(4);
    ASSERT_TRUE(session().editField(mail(), "UserName", "bob"));
    EXPECT_EQ(inspector->usernameField()->text(), "bob");
    EXPECT_EQ(inspector->titleField()->text(), "Mail hub");
    EXPECT_EQ(inspector->titleField()->cursorPosition(), 4);
    leave(inspector->titleField());
    EXPECT_EQ(mail().title(), "Mail hub");

    // Wrapping follows View › Wrap Notes at once.
    rig.preferences.setWrapNotes(false);
    EXPECT_EQ(inspector->notesView()->lineWrapMode(), QPlainTextEdit::NoWrap);
    rig.preferences.setWrapNotes(true);
    EXPECT_EQ(inspector->notesView()->lineWrapMode(), QPlainTextEdit::WidgetWidth);

    // The entry leaves the table in the middle of another command (into the bin) while its title is typed in:
    // the typing still reaches it, as a command of its own once that one is done.
    test::retype(inspector->titleField(), QStringLiteral("Binned"));
    EXPECT_EQ(session().deleteEntry(mail()), model::DeleteResult::movedToBin);
    EXPECT_EQ(inspector->titleField()->text(), "Bank");
    QApplication::processEvents();
    EXPECT_EQ(mail().title(), "Binned");
    ASSERT_TRUE(session().undo());
    ASSERT_TRUE(session().undo());
    EXPECT_EQ(mail().title(), "Mail hub");
    EXPECT_EQ(mail().parent()->name(), "Root");

    // The entry's removal empties an inspector that shows it; the page's own follows the table to the next row.
    ui::EntryInspector alone(vault);
    alone.setEntry(mail());
    EXPECT_EQ(alone.passwordField()->edit()->text(), "s3cret");
    session().deletePermanently(mail());
    EXPECT_FALSE(alone.entry());
    EXPECT_TRUE(alone.titleField()->text().isEmpty());
    EXPECT_TRUE(alone.passwordField()->edit()->text().isEmpty());
    EXPECT_EQ(inspector->titleField()->text(), "Bank");

    // Locking while a field is typed in commits it and then drops the page with every field in it.
    test::retype(inspector->passwordField()->edit(), QStringLiteral("typed"));
    int edits = 0;
    QObject::connect(&session(), &state::DatabaseSession::itemChanged, inspector, [&] { ++edits; });
    const QPointer<ui::EntryInspector> gone(inspector);
    vault.perform(ui::Command::lockDatabase);
    EXPECT_EQ(edits, 1);
    EXPECT_FALSE(gone);
    EXPECT_FALSE(vault.unlockedPage());
}

// Reveal flips the mask, icon and tooltip; copies mark secrets for clipboard managers and name what was copied
// in the status line; Open URL adds https:// to a bare address.
TEST_F(EntryInspectorTest, revealCopyAndOpenUrl)
{
    ASSERT_TRUE(inspector);
    auto* password = inspector->passwordField();
    EXPECT_EQ(password->revealButton()->toolTip(), "Show password");
    const auto hiddenIcon = password->revealButton()->icon().cacheKey();
    password->revealButton()->click();
    EXPECT_EQ(password->edit()->echoMode(), QLineEdit::Normal);
    EXPECT_EQ(password->revealButton()->toolTip(), "Hide password");
    EXPECT_NE(password->revealButton()->icon().cacheKey(), hiddenIcon);

    QClipboard* board = QApplication::clipboard();
    password->copyButton()->click();
    EXPECT_EQ(board->text(), "s3cret");
    EXPECT_EQ(board->mimeData()->data(ui::secretHintType), QByteArray("secret"));
    EXPECT_EQ(vault.subtitle(), "Password copied");
    inspector->usernameCopyButton()->click();
    EXPECT_EQ(board->text(), "ann");
    EXPECT_FALSE(board->mimeData()->hasFormat(ui::secretHintType));
    EXPECT_EQ(vault.subtitle(), "Username copied");

    const auto& rows = inspector->customFields()->rows();
    ASSERT_EQ(rows.size(), 1u); // the one-time password has a panel of its own
    ASSERT_TRUE(rows[0].secret);
    EXPECT_EQ(rows[0].valueEdit->echoMode(), QLineEdit::Password);
    rows[0].secret->copyButton()->click();
    EXPECT_EQ(board->text(), "1234");
    // Another entry with the same fields takes over the rows, masked again.
    rows[0].secret->revealButton()->click();
    EXPECT_EQ(rows[0].valueEdit->echoMode(), QLineEdit::Normal);
    browse->selectEntry(*session().document().findEntry("AAAAAAAAAAAAAAAAAAAAAw=="));
    ASSERT_EQ(inspector->customFields()->rows().size(), 1u);
    EXPECT_EQ(rows[0].valueEdit->echoMode(), QLineEdit::Password);
    EXPECT_EQ(rows[0].valueEdit->text(), "9876");
    EXPECT_EQ(password->edit()->echoMode(), QLineEdit::Password);
    browse->selectEntry(mail());
    EXPECT_TRUE(board->mimeData()->hasFormat(ui::secretHintType));
    EXPECT_EQ(vault.subtitle(), "PIN copied");

    // Tab walks the controls in the order they are laid out.
    inspector->titleField()->setFocus(Qt::TabFocusReason);
    QStringList walked;
    for (int i = 0; i < 20; ++i) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        walked << QApplication::focusWidget()->accessibleName();
    }
    EXPECT_THAT(walked, ElementsAre("History", "Username", "Copy username", "Password", "Reveal password",
                                    "Copy password", "Generate Password…", "One-time password setting", "Show secret",
                                    "Show code mode", "URL", "Open URL", "Notes", "Field name", "Protect PIN",
                                    "Remove field PIN", "Value of PIN", "Reveal PIN", "Copy PIN", "Add Field"));

    QList<QUrl> opened;
    inspector->setUrlOpener([&](const QUrl& url) { opened << url; });
    inspector->openUrlButton()->click();
    test::retype(inspector->urlField(), QStringLiteral("ftp://mail.example.com"));
    inspector->openUrlButton()->click(); // typed text counts, and ftp is not opened
    EXPECT_THAT(opened, ElementsAre(QUrl(QStringLiteral("https://mail.example.com"))));
    EXPECT_EQ(mail().url(), "ftp://mail.example.com");
}

TEST_F(EntryInspectorTest, customFieldsAddRenameProtectAndRemove)
{
    ASSERT_TRUE(inspector);
    const std::string before = xml();
    auto* panel = inspector->customFields();
    panel->addButton()->click();
    ASSERT_EQ(panel->rows().size(), 2u);
    EXPECT_EQ(panel->rows()[1].name, "New Field");
    EXPECT_EQ(QApplication::focusWidget(), panel->rows()[1].nameEdit);

    QTest::keyClicks(panel->rows()[1].nameEdit, "Recovery");
    QTest::keyClick(panel->rows()[1].nameEdit, Qt::Key_Return);
    ASSERT_EQ(panel->rows()[1].name, "Recovery");
    test::retype(panel->rows()[1].valueEdit, QStringLiteral("words"));
    panel->rows()[1].protect->click(); // the typed value goes in with the protection
    ASSERT_EQ(panel->rows().size(), 2u);
    EXPECT_TRUE(panel->rows()[1].secret);
    EXPECT_EQ(mail().field("Recovery"), "words");
    EXPECT_TRUE(mail().isFieldProtected("Recovery"));
    panel->rows()[1].protect->click(); // protection alone changes too
    EXPECT_FALSE(mail().isFieldProtected("Recovery"));
    panel->rows()[1].protect->click();

    // Names kept for the standard fields and names in use are refused with a word to the user.
    test::retype(panel->rows()[1].nameEdit, QStringLiteral("Title"));
    leave(panel->rows()[1].nameEdit);
    test::retype(panel->rows()[1].nameEdit, QStringLiteral("PIN"));
    leave(panel->rows()[1].nameEdit);
    EXPECT_THAT(rig.asker.warnings, ElementsAre("That name is kept for a standard field.",
                                                "A field with that name already exists."));
    EXPECT_EQ(panel->rows()[1].nameEdit->text(), "Recovery");

    panel->rows()[0].remove->click();
    ASSERT_EQ(panel->rows().size(), 1u);
    EXPECT_FALSE(mail().field("PIN"));
    EXPECT_TRUE(mail().field("otp"));
    EXPECT_EQ(commands(), 6);
    while (session().undo()) {
    }
    EXPECT_EQ(xml(), before);
    ASSERT_EQ(panel->rows().size(), 1u);
    EXPECT_EQ(panel->rows()[0].name, "PIN");
}

TEST_F(EntryInspectorTest, attachmentsAddSaveAndRemoveKeepTheBytes)
{
    ASSERT_TRUE(inspector);
    std::string bytes("\x00\x01 attachment \xff\n", 16);
    for (int i = 0; i < 2000; ++i)
        bytes += char(i * 7);
    const auto source = rig.dir / "scan.bin";
    test::writeFile(source, std::string_view(bytes));
    auto* panel = inspector->attachments();

    rig.asker.answers << QString::fromStdString((rig.dir / "nowhere").string());
    panel->addButton()->click();
    EXPECT_THAT(rig.asker.warnings, ElementsAre("The attachment could not be added."));

    rig.asker.answers << QString::fromStdString(source.string());
    panel->addButton()->click();
    ASSERT_EQ(panel->rows().size(), 1u);
    EXPECT_EQ(panel->rows()[0].name, "scan.bin");
    EXPECT_FALSE(panel->rows()[0].size->text().isEmpty());

    const auto copy = rig.dir / "saved.bin";
    rig.asker.answers << QString::fromStdString(copy.string());
    panel->rows()[0].save->click();
    EXPECT_THAT(rig.asker.suggestions, ElementsAre("scan.bin"));
    std::ifstream in(copy, std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), bytes);

    panel->rows()[0].remove->click();
    EXPECT_THAT(panel->rows(), IsEmpty());
    EXPECT_THAT(model::attachments(mail()), IsEmpty());
    session().undo();
    EXPECT_EQ(panel->rows().size(), 1u);
}

// The pop-up lists the present version's time, then each version oldest first; Restore makes the version
// current through one command, with the present state kept in history.
TEST_F(EntryInspectorTest, historyMenuOpensAVersionAndRestoresIt)
{
    ASSERT_TRUE(inspector);
    const std::string before = xml();
    auto* history = inspector->historyMenu();
    EXPECT_TRUE(history->isVisibleTo(inspector));
    EXPECT_EQ(history->text(), "History (2)");
    QStringList items;
    for (auto* action : history->versionsMenu()->actions())
        items << (action->isSeparator() ? QStringLiteral("-") : action->text() + (action->isEnabled() ? "" : " (off)"));
    ASSERT_EQ(items.size(), 4);
    EXPECT_THAT(items[0].toStdString(), ::testing::HasSubstr("2024"));
    EXPECT_THAT(items[0].toStdString(), ::testing::EndsWith(" (off)"));
    EXPECT_EQ(items[1], "-");
    EXPECT_EQ(items[2], "Earlier version");
    EXPECT_THAT(items[3].toStdString(), ::testing::HasSubstr("2024"));

    history->versionsMenu()->actions()[3]->trigger();
    ASSERT_TRUE(inspector->isShowingVersion());
    auto* view = inspector->versionView();
    EXPECT_EQ(view->valueOf(QStringLiteral("Title")), "Mail old");
    EXPECT_EQ(view->valueOf(QStringLiteral("Password")), "old");
    view->closeButton()->click();
    EXPECT_FALSE(inspector->isShowingVersion());
    EXPECT_EQ(commands(), 0);

    history->versionsMenu()->actions()[3]->trigger();
    view->restoreButton()->click();
    EXPECT_FALSE(inspector->isShowingVersion());
    EXPECT_EQ(mail().title(), "Mail old");
    EXPECT_EQ(inspector->titleField()->text(), "Mail old");
    EXPECT_THAT(vault.subtitle().toStdString(), StartsWith("Restored "));
    EXPECT_EQ(history->text(), "History (3)");
    EXPECT_EQ(commands(), 1);
    session().undo();
    EXPECT_EQ(xml(), before);
    EXPECT_EQ(inspector->titleField()->text(), "Mail");
}

} // namespace
