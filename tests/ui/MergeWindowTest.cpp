// Reviewing what a save will write, and merging another copy of the database into the window, on real files.
#include "tests/ui/UiTest.h"

#include "files/DatabaseFile.h"
#include "model/Attachments.h"
#include "tests/support/TestDb.h"
#include "ui/ChangesDialog.h"
#include "ui/MergeController.h"
#include "ui/VaultWindow.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QPlainTextEdit>

using namespace quillon;

namespace {

std::vector<std::string> titlesIn(model::Document& document)
{
    std::vector<std::string> titles;
    for (const auto& entry : document.topGroup()->allEntries())
        titles.emplace_back(entry.field("Title").value_or(""));
    std::sort(titles.begin(), titles.end());
    return titles;
}

// Another program's edit of the file: an entry with an attachment added, written back in place.
void addEntryElsewhere(const QString& path, const kdbx::Credentials& credentials, std::string_view title)
{
    auto file = kdbx::KdbxFile::open(files::readDiskBytes(test::pathOf(path)).bytes, credentials);
    model::Document document(file->document);
    const auto entry = document.newEntry(*document.topGroup(), title);
    file->inner.binaries.push_back({0, kdbx::SecureBytes::fromText("receipt")});
    model::setAttachment(entry, "receipt.txt", file->inner.binaries.size() - 1);
    test::writeFile(test::pathOf(path), file->save(credentials));
}

ui::MergeController* controllerOf(ui::VaultWindow* vault)
{
    return vault->findChild<ui::MergeController*>();
}

QString dialogText(ui::VaultWindow* vault)
{
    const auto* dialog = controllerOf(vault)->dialog();
    return dialog ? dialog->headingLabel()->text() + QLatin1Char('\n') + dialog->list()->toPlainText() : QString();
}

} // namespace

TEST(MergeWindow, mergesTheFileAnotherProgramRewroteUndoesItExactlyAndSavesOverItWithoutAsking)
{
    test::UiRig rig;
    const QString path = rig.database("vault.kdbx");
    auto* vault = rig.openUnlocked(path);
    auto& session = vault->session();
    const auto sample = session.document().topGroup()->allEntries().front();
    ASSERT_TRUE(session.editFields(sample, {{"UserName", "bob"}, {"Password", "n3w-secret", true}}));

    // What the next save writes: the fields by name, the protected one never shown, old or new.
    vault->perform(ui::Command::reviewChanges);
    rig.finishJobs();
    const QString review = dialogText(vault);
    EXPECT_TRUE(review.contains(QStringLiteral("UserName: \"alice\" → \"bob\""))) << review.toStdString();
    EXPECT_TRUE(review.contains(QStringLiteral("Password: changed (protected)"))) << review.toStdString();
    EXPECT_FALSE(review.contains(QStringLiteral("secret"))) << review.toStdString();

    addEntryElsewhere(path, test::passwordOnly("right"), "Laptop");
    // Saving asks before writing over it; "No" points at the merge.
    vault->perform(ui::Command::saveDatabase);
    EXPECT_EQ(rig.asker.questions.size(), 1);
    EXPECT_TRUE(vault->subtitle().contains(QStringLiteral("Merge Changes From Disk…")));
    rig.asker.questions.clear();
    const auto stampBefore = session.stamp();
    const auto xmlBefore = test::xmlText(session.kdbx().document);
    const auto poolBefore = session.kdbx().inner.binaries.size();

    vault->perform(ui::Command::mergeFromDisk);
    rig.finishJobs(); // the file as last read
    rig.finishJobs(); // the file on disk, then the merge
    EXPECT_EQ(titlesIn(session.document()), (std::vector<std::string>{"Laptop", "Sample"}));
    EXPECT_EQ(session.document().topGroup()->allEntries().front().field("UserName"), "bob");
    EXPECT_TRUE(dialogText(vault).contains(QStringLiteral("Laptop"))) << dialogText(vault).toStdString();
    EXPECT_TRUE(session.isDirty());
    EXPECT_EQ(session.stamp(), files::readDiskBytes(test::pathOf(path)).stamp);

    // Undone, the window is as it was, attachments and the expected file included, so a save would ask again.
    ASSERT_TRUE(session.undo());
    EXPECT_EQ(test::xmlText(session.kdbx().document), xmlBefore);
    EXPECT_EQ(session.kdbx().inner.binaries.size(), poolBefore);
    EXPECT_EQ(session.stamp(), stampBefore);
    ASSERT_TRUE(session.redo());

    vault->perform(ui::Command::saveDatabase);
    rig.finishJobs();
    EXPECT_TRUE(rig.asker.questions.isEmpty()) << rig.asker.questions.join(QLatin1Char('|')).toStdString();
    EXPECT_TRUE(rig.asker.warnings.isEmpty()) << rig.asker.warnings.join(QLatin1Char('|')).toStdString();
    EXPECT_FALSE(session.isDirty());
    auto onDisk = kdbx::KdbxFile::open(files::readDiskBytes(test::pathOf(path)).bytes, test::passwordOnly("right"));
    model::Document saved(onDisk->document);
    EXPECT_EQ(titlesIn(saved), (std::vector<std::string>{"Laptop", "Sample"}));
    for (const auto& entry : saved.topGroup()->allEntries()) {
        if (entry.field("Title") == "Sample")
            EXPECT_EQ(entry.field("Password"), "n3w-secret");
        else
            EXPECT_EQ(model::attachmentRef(entry, "receipt.txt").has_value(), true);
    }

    // Saved, the review starts from what was just written.
    vault->perform(ui::Command::reviewChanges);
    rig.finishJobs();
    EXPECT_TRUE(dialogText(vault).startsWith(QStringLiteral("No changes to save"))) << dialogText(vault).toStdString();
}

TEST(MergeWindow, mergeFromDatabaseAsksItsPasswordAndAWrongOneChangesNothing)
{
    test::UiRig rig;
    auto* vault = rig.openUnlocked(rig.database("vault.kdbx"));
    auto& session = vault->session();
    const auto other = rig.dir / "other.kdbx";
    test::writeFile(other, test::tinyFile(test::passwordOnly("theirs")));
    addEntryElsewhere(QString::fromStdString(other.string()), test::passwordOnly("theirs"), "Router");
    QStringList typed = {QStringLiteral("wrong"), QStringLiteral("theirs")};
    QStringList askedFor;
    controllerOf(vault)->setPasswordAsker([&](QWidget*, const QString& fileName) {
        askedFor << fileName;
        return std::optional(kdbx::SecureBytes::fromText(typed.takeFirst().toStdString()));
    });
    const auto xmlBefore = test::xmlText(session.kdbx().document);

    rig.asker.answers << QString::fromStdString(other.string());
    vault->perform(ui::Command::mergeFromDatabase);
    rig.finishJobs();
    EXPECT_EQ(askedFor, QStringList{QStringLiteral("other.kdbx")});
    EXPECT_EQ(rig.asker.warnings, QStringList{QStringLiteral("Could not open other.kdbx.")});
    EXPECT_EQ(test::xmlText(session.kdbx().document), xmlBefore);
    EXPECT_FALSE(session.isDirty());
    EXPECT_EQ(session.nextUndo(), nullptr);
    EXPECT_EQ(controllerOf(vault)->dialog(), nullptr);

    // The right one: its entries come in as one command, unsaved. Both files hold an entry "Sample" of their
    // own; told apart by their identifiers, both stay.
    rig.asker.answers << QString::fromStdString(other.string());
    vault->perform(ui::Command::mergeFromDatabase);
    rig.finishJobs();
    EXPECT_EQ(titlesIn(session.document()), (std::vector<std::string>{"Router", "Sample", "Sample"}));
    EXPECT_TRUE(session.isDirty());
    EXPECT_TRUE(dialogText(vault).contains(QStringLiteral("Router")));
    ASSERT_TRUE(session.undo());
    EXPECT_EQ(test::xmlText(session.kdbx().document), xmlBefore);
    EXPECT_FALSE(session.isDirty());
}
