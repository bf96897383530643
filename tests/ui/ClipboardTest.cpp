// The clipboard clears a copy after 15 seconds, and at quit, only while nothing else was copied since.
#include "tests/ui/UiTest.h"
#include "ui/AppDelegate.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QMimeData>

using namespace quillon;

namespace {

void runClearingJobs(test::UiRig& rig)
{
    while (!rig.clipboardJobs.empty()) {
        auto job = std::move(rig.clipboardJobs.front());
        rig.clipboardJobs.pop_front();
        job();
    }
}

TEST(Clipboard, clearsItsOwnCopyOnlyWhileNothingElseWasCopied)
{
    test::UiRig rig;
    QClipboard* board = QApplication::clipboard();

    rig.clipboard.copy(QStringLiteral("s3cret"), true);
    EXPECT_EQ(board->text(), QStringLiteral("s3cret"));
    EXPECT_EQ(board->mimeData()->data(ui::secretHintType), QByteArray("secret"));
    ASSERT_EQ(rig.clipboardJobs.size(), 1u);
    runClearingJobs(rig);
    EXPECT_TRUE(board->text().isEmpty());

    // A username is not marked; a copy in another program within the 15 seconds survives the job.
    rig.clipboard.copy(QStringLiteral("alice"), false);
    EXPECT_FALSE(board->mimeData()->hasFormat(ui::secretHintType));
    board->setText(QStringLiteral("copied elsewhere"));
    runClearingJobs(rig);
    EXPECT_EQ(board->text(), QStringLiteral("copied elsewhere"));

    // Two copies of ours: the first one's job leaves the second alone.
    rig.clipboard.copy(QStringLiteral("one"), true);
    rig.clipboard.copy(QStringLiteral("two"), true);
    auto first = std::move(rig.clipboardJobs.front());
    rig.clipboardJobs.pop_front();
    first();
    EXPECT_EQ(board->text(), QStringLiteral("two"));
    runClearingJobs(rig);
    EXPECT_TRUE(board->text().isEmpty());
}

TEST(Clipboard, quitClearsByTheSameRule)
{
    test::UiRig rig;
    QClipboard* board = QApplication::clipboard();
    {
        ui::AppDelegate delegate(*rig.windows, rig.preferences, rig.clipboard);
        rig.clipboard.copy(QStringLiteral("s3cret"), true);
        delegate.willTerminate();
        EXPECT_TRUE(board->text().isEmpty());
    }
    {
        ui::AppDelegate delegate(*rig.windows, rig.preferences, rig.clipboard);
        rig.clipboard.copy(QStringLiteral("s3cret"), true);
        board->setText(QStringLiteral("copied elsewhere"));
        delegate.willTerminate();
        EXPECT_EQ(board->text(), QStringLiteral("copied elsewhere"));
    }
}

} // namespace
