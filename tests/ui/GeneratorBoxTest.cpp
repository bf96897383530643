// The generator box: the strength line follows the mode and the count, and "Use" writes the password as one
// command that Undo takes back.
#include "ui/GeneratorBox.h"

#include "tests/support/TestDb.h"
#include "tests/ui/UiTest.h"

#include <gtest/gtest.h>

#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

using namespace quillon;

namespace {

struct GeneratorRig {
    GeneratorRig()
    {
        state::SessionServices services;
        services.isDuress = [](kdbx::ByteView) { return false; };
        session = std::make_unique<state::DatabaseSession>(services);
        session->adopt(std::nullopt, test::tinyDatabase(), test::passwordOnly("pw"), std::nullopt);
    }
    model::Entry entry() { return session->document().topGroup()->entries().front(); }

    QApplication& application = test::uiApplication();
    std::unique_ptr<state::DatabaseSession> session;
};

TEST(GeneratorBox, strengthFollowsTheOptionsAndUseWritesThePasswordAsOneUndoableCommand)
{
    GeneratorRig rig;
    const std::vector<std::string> words = {"ant", "bee", "cat", "dog"};
    ui::GeneratorBox box(*rig.session, words);
    QSignalSpy finished(&box, &ui::GeneratorBox::finished);
    box.show();

    EXPECT_FALSE(box.useButton()->isEnabled()); // no entry yet
    EXPECT_TRUE(box.randomButton()->isChecked());
    EXPECT_EQ(box.countField()->text(), QStringLiteral("20"));
    EXPECT_EQ(box.output()->text().size(), 20);
    EXPECT_EQ(box.strengthLabel()->text(), QStringLiteral("20 characters · 129 bits"));

    // Typed counts reach the panel, which clamps them.
    box.countField()->selectAll();
    QTest::keyClicks(box.countField(), QStringLiteral("3"));
    EXPECT_EQ(box.output()->text().size(), 4);

    box.wordsButton()->click();
    EXPECT_TRUE(box.wordsButton()->isChecked());
    EXPECT_EQ(box.countField()->text(), QStringLiteral("5"));
    EXPECT_EQ(box.strengthLabel()->text(), QStringLiteral("5 words · 10 bits"));
    EXPECT_EQ(box.output()->text().count(QLatin1Char(' ')), 4);

    box.setEntry(rig.entry());
    ASSERT_TRUE(box.useButton()->isEnabled());
    const QString chosen = box.output()->text();
    box.useButton()->click();
    EXPECT_EQ(QString::fromStdString(test::field(rig.entry().element(), "Password")), chosen);
    EXPECT_TRUE(rig.entry().isFieldProtected("Password"));
    EXPECT_EQ(rig.entry().history().size(), 1u);
    EXPECT_EQ(finished.size(), 1);
    // Put away, it starts afresh: Random, 20.
    EXPECT_TRUE(box.randomButton()->isChecked());
    EXPECT_EQ(box.countField()->text(), QStringLiteral("20"));

    ASSERT_TRUE(rig.session->undo());
    EXPECT_EQ(test::field(rig.entry().element(), "Password"), "s3cret");
    EXPECT_TRUE(rig.entry().history().empty());
    EXPECT_FALSE(rig.session->undo());

    box.cancelButton()->click();
    EXPECT_EQ(finished.size(), 2);
    EXPECT_EQ(test::field(rig.entry().element(), "Password"), "s3cret");
}

} // namespace
