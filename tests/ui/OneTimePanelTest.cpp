// The one-time-password panel: the RFC 6238 code with its countdown, the copy held for the seconds left, and
// what typing in the field stores.
#include "ui/OneTimePanel.h"

#include "tests/support/TestDb.h"
#include "tests/ui/UiTest.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QToolButton>

using namespace quillon;
using namespace std::chrono_literals;

namespace {

// RFC 6238's SHA-1 key "12345678901234567890", with the RFC's 8 digits.
constexpr const char* rfcUri = "otpauth://totp/RFC?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ&digits=8";

struct OneTimeRig {
    OneTimeRig()
    {
        state::SessionServices services;
        services.isDuress = [](kdbx::ByteView) { return false; };
        services.clock = [this] { return now; };
        session = std::make_unique<state::DatabaseSession>(services);
        session->adopt(std::nullopt, test::tinyDatabase(), test::passwordOnly("pw"), std::nullopt);
    }
    model::Entry entry() { return session->document().topGroup()->entries().front(); }
    void at(std::int64_t seconds) { now = kdbx::SystemTime(std::chrono::seconds(seconds)); }
    QString stored() { return QString::fromStdString(test::field(entry().element(), "otp", "<none>")); }
    int commands() { return test::undoDepth(*session); }

    QApplication& application = test::uiApplication(); // before the clipboard below
    kdbx::SystemTime now{std::chrono::seconds(1'234'567'890)};
    std::unique_ptr<state::DatabaseSession> session;
    std::vector<std::chrono::milliseconds> holds;
    ui::Clipboard clipboard{QApplication::clipboard(),
                            [this](std::chrono::milliseconds hold, std::function<void()>) { holds.push_back(hold); }};
};

QColor shownColour(const QLabel* label)
{
    return label->palette().color(label->foregroundRole());
}

TEST(OneTimePanel, codeModeCountsDownAndTurnsOrangeForTheLastFiveSeconds)
{
    OneTimeRig rig;
    ASSERT_TRUE(rig.entry().setField("otp", rfcUri, true));
    ui::OneTimePanel panel(*rig.session, rig.clipboard);
    panel.show();
    panel.setEntry(rig.entry());
    auto* code = panel.codeLabel();
    auto* mode = panel.modeButton();
    auto* reveal = panel.revealButton();
    const QColor normal = panel.palette().color(QPalette::WindowText);

    // Secret mode first, masked, naming the other mode.
    EXPECT_TRUE(panel.otpField()->isVisible());
    EXPECT_FALSE(panel.otpPlain()->isVisible());
    EXPECT_FALSE(code->isVisible());
    EXPECT_EQ(panel.otpField()->text(), QString::fromLatin1(rfcUri));
    EXPECT_EQ(mode->text(), QStringLiteral("Code"));
    EXPECT_EQ(reveal->toolTip(), QStringLiteral("Show secret"));
    EXPECT_FALSE(panel.copyButton()->isEnabled()); // the secret is copied only while shown
    reveal->click();
    EXPECT_TRUE(panel.otpPlain()->isVisible());
    EXPECT_EQ(reveal->toolTip(), QStringLiteral("Hide secret"));
    EXPECT_TRUE(panel.copyButton()->isEnabled());

    mode->click();
    EXPECT_EQ(mode->text(), QStringLiteral("Secret"));
    EXPECT_TRUE(code->isVisible());
    EXPECT_FALSE(panel.otpPlain()->isVisible());
    EXPECT_EQ(code->text(), QStringLiteral("••••••"));
    EXPECT_EQ(shownColour(code), panel.palette().color(QPalette::PlaceholderText));
    EXPECT_EQ(reveal->toolTip(), QStringLiteral("Show code"));
    EXPECT_FALSE(panel.isTicking());

    reveal->click();
    EXPECT_EQ(reveal->toolTip(), QStringLiteral("Hide code"));
    EXPECT_TRUE(panel.isTicking());
    EXPECT_EQ(code->text(), QStringLiteral("89005924   30s")); // RFC 6238, T = 1234567890
    EXPECT_EQ(shownColour(code), normal);
    rig.at(1'234'567'890 + 24);
    panel.tick();
    EXPECT_EQ(code->text(), QStringLiteral("89005924   6s"));
    EXPECT_EQ(shownColour(code), normal);
    rig.at(1'234'567'890 + 25);
    panel.tick();
    EXPECT_EQ(code->text(), QStringLiteral("89005924   5s"));
    EXPECT_EQ(shownColour(code), QColor(255, 149, 0));
    rig.at(1'234'567'890 + 30);
    panel.tick();
    EXPECT_NE(code->text(), QStringLiteral("89005924   30s"));
    EXPECT_TRUE(code->text().endsWith(QStringLiteral("   30s")));
    EXPECT_EQ(shownColour(code), normal);
    rig.at(59);
    panel.tick();
    EXPECT_EQ(code->text(), QStringLiteral("94287082   1s")); // RFC 6238, T = 59

    // The inspector showing the same entry again keeps the code shown.
    panel.setEntry(rig.entry());
    EXPECT_TRUE(panel.isTicking());

    // Back to the secret and to code mode again: the code is hidden once more.
    mode->click();
    EXPECT_FALSE(panel.isTicking());
    EXPECT_TRUE(panel.otpPlain()->isVisible());
    mode->click();
    EXPECT_EQ(code->text(), QStringLiteral("••••••"));

    // Another entry, or none, starts over in secret mode.
    panel.setEntry(std::nullopt);
    EXPECT_FALSE(panel.isTicking());
    EXPECT_TRUE(panel.otpField()->text().isEmpty());
    EXPECT_EQ(mode->text(), QStringLiteral("Code"));
}

TEST(OneTimePanel, aCopiedCodeIsHeldForExactlyTheSecondsLeftInItsStep)
{
    OneTimeRig rig;
    ASSERT_TRUE(rig.entry().setField("otp", rfcUri, true));
    ui::OneTimePanel panel(*rig.session, rig.clipboard);
    QSignalSpy copied(&panel, &ui::OneTimePanel::copied);
    panel.setEntry(rig.entry());
    QClipboard* board = QApplication::clipboard();

    // Hidden or not, code mode copies the code of this instant.
    rig.at(1'111'111'107); // 3 seconds left in the step of RFC 6238's T = 1111111109
    panel.modeButton()->click();
    panel.copyButton()->click();
    EXPECT_EQ(board->text(), QStringLiteral("07081804"));
    EXPECT_EQ(board->mimeData()->data(ui::secretHintType), QByteArray("secret"));
    ASSERT_EQ(rig.holds, std::vector<std::chrono::milliseconds>{3s});

    // The secret, while shown, for 15 seconds.
    panel.modeButton()->click();
    panel.revealButton()->click();
    panel.copyButton()->click();
    EXPECT_EQ(board->text(), QString::fromLatin1(rfcUri));
    EXPECT_EQ(rig.holds.back(), 15s);
    ASSERT_EQ(copied.size(), 2);
    EXPECT_EQ(copied[0][0].toString(), QStringLiteral("Code"));
    EXPECT_EQ(copied[1][0].toString(), QStringLiteral("Secret"));
}

TEST(OneTimePanel, typedTextIsStoredNormalisedOrAsTypedAndEmptyRemovesTheField)
{
    OneTimeRig rig;
    ui::OneTimePanel panel(*rig.session, rig.clipboard);
    panel.show();
    panel.setEntry(rig.entry());
    auto* field = panel.otpField();
    EXPECT_TRUE(field->text().isEmpty());
    const auto type = [&](const QString& text) {
        test::retype(field, text);
        QTest::keyClick(field, Qt::Key_Return);
    };

    // A bare secret, lower case and spaced, becomes the canonical address; protected; one command.
    type(QStringLiteral("gezd gnbv gy3t qojq gezd gnbv gy3t qojq"));
    const QString canonical = QStringLiteral("otpauth://totp/Account?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ");
    EXPECT_EQ(rig.stored(), canonical);
    EXPECT_TRUE(rig.entry().isFieldProtected("otp"));
    EXPECT_EQ(field->text(), canonical);
    EXPECT_EQ(panel.modeButton()->isEnabled(), true);
    EXPECT_EQ(rig.commands(), 1);

    // Leaving the field untouched changes nothing.
    QTest::keyClick(field, Qt::Key_Return);
    EXPECT_EQ(rig.commands(), 1);

    // Text that does not parse is kept exactly; code mode is then unavailable.
    type(QStringLiteral("otpauth://hotp/X?secret=GEZD&counter=1"));
    EXPECT_EQ(rig.stored(), QStringLiteral("otpauth://hotp/X?secret=GEZD&counter=1"));
    EXPECT_FALSE(panel.modeButton()->isEnabled());

    type(QString());
    EXPECT_EQ(rig.stored(), QStringLiteral("<none>"));
    EXPECT_EQ(rig.commands(), 3);

    // Undo puts each value back, and the field follows.
    ASSERT_TRUE(rig.session->undo());
    EXPECT_EQ(field->text(), QStringLiteral("otpauth://hotp/X?secret=GEZD&counter=1"));
    ASSERT_TRUE(rig.session->undo());
    EXPECT_EQ(field->text(), canonical);
    EXPECT_TRUE(panel.modeButton()->isEnabled());
    ASSERT_TRUE(rig.session->undo());
    EXPECT_EQ(rig.stored(), QStringLiteral("<none>"));
    EXPECT_TRUE(field->text().isEmpty());
}

} // namespace
