#include "ui/OneTimePanel.h"

#include "state/DatabaseSession.h"
#include "tools/OtpAuthUri.h"
#include "ui/Clipboard.h"
#include "ui/Icons.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTimer>
#include <QToolButton>

namespace quillon::ui {
namespace {

// The one colour the panel names; everything else comes from the palette.
const QColor orange(255, 149, 0);

QString fromUtf8(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

void paint(QLabel* label, OneTimeDisplay::Tone tone)
{
    label->setPalette(QPalette()); // back to the inherited palette
    label->setForegroundRole(tone == OneTimeDisplay::Tone::secondary ? QPalette::PlaceholderText
                                                                     : QPalette::WindowText);
    if (tone == OneTimeDisplay::Tone::warning) {
        QPalette palette = label->palette();
        palette.setColor(QPalette::WindowText, orange);
        label->setPalette(palette);
    }
}

void setSecretText(QLineEdit* field, const QString& text)
{
    field->setText(text);
    field->setModified(false);
    field->setCursorPosition(0); // the scheme and the label first
}

} // namespace

OneTimePanel::OneTimePanel(state::DatabaseSession& session, Clipboard& clipboard, QWidget* parent)
    : QWidget(parent), session_(session), clipboard_(clipboard), followed_(session),
      display_([this] {
          if (const auto& entry = followed_.entry())
              return static_cast<double>(entry->document().now().time_since_epoch().count());
          return tools::secondsSince1970Now();
      })
{
    masked_ = new QLineEdit(this);
    masked_->setObjectName(QStringLiteral("otpField"));
    masked_->setEchoMode(QLineEdit::Password);
    plain_ = new QLineEdit(this);
    plain_->setObjectName(QStringLiteral("otpPlain"));
    for (QLineEdit* field : {masked_, plain_}) {
        field->setAccessibleName(QStringLiteral("One-time password setting"));
        field->setPlaceholderText(otpText::placeholder);
        connect(field, &QLineEdit::editingFinished, this, &OneTimePanel::store);
    }
    // Both fields hold what is typed, so that revealing in the middle of typing loses nothing.
    connect(masked_, &QLineEdit::textEdited, plain_, &QLineEdit::setText);
    connect(plain_, &QLineEdit::textEdited, masked_, &QLineEdit::setText);

    code_ = new QLabel(this);
    code_->setObjectName(QStringLiteral("otpCodeLabel"));
    code_->setAccessibleName(QStringLiteral("One-time code"));
    QFont digits = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    if (font().pointSizeF() > 0)
        digits.setPointSizeF(font().pointSizeF() * 1.25);
    code_->setFont(digits);
    // The row keeps its height whichever of the field and the code shows.
    code_->setMinimumHeight(masked_->sizeHint().height());
    code_->setTextInteractionFlags(Qt::NoTextInteraction);

    reveal_ = new QToolButton(this);
    reveal_->setObjectName(QStringLiteral("otpRevealButton"));
    reveal_->setAutoRaise(true);
    connect(reveal_, &QToolButton::clicked, this, [this] {
        display_.toggleReveal();
        redraw();
    });

    copy_ = new QToolButton(this);
    copy_->setObjectName(QStringLiteral("otpCopyButton"));
    copy_->setAutoRaise(true);
    copy_->setIcon(icons::copy());
    connect(copy_, &QToolButton::clicked, this, &OneTimePanel::copyNow);

    mode_ = new QPushButton(this);
    mode_->setObjectName(QStringLiteral("otpModeButton"));
    mode_->setAutoDefault(false);
    connect(mode_, &QPushButton::clicked, this, [this] {
        display_.toggleMode();
        redraw();
    });

    timer_ = new QTimer(this);
    timer_->setInterval(1000);
    connect(timer_, &QTimer::timeout, this, &OneTimePanel::tick);

    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(masked_, 1);
    row->addWidget(plain_, 1);
    row->addWidget(code_, 1);
    row->addWidget(reveal_);
    row->addWidget(copy_);
    row->addWidget(mode_);

    connect(&followed_, &FollowedEntry::changed, this, &OneTimePanel::reload);
    connect(&followed_, &FollowedEntry::gone, this, [this] { setEntry(std::nullopt); });
    setEntry(std::nullopt);
}

void OneTimePanel::setEntry(std::optional<model::Entry> entry)
{
    // The same entry shown again (its inspector refreshed) keeps the mode and what is revealed.
    if (entry && followed_.entry() && entry->element() == followed_.entry()->element()) {
        reload();
        return;
    }
    // What was typed for the entry shown so far is not lost to a change of selection.
    if (followed_.entry() && (masked_->isModified() || plain_->isModified()))
        store();
    followed_.set(std::move(entry));
    const auto& shown = followed_.entry();
    display_.showEntry(shown ? shown->field("otp") : std::nullopt);
    const QString text = shown ? fromUtf8(shown->field("otp").value_or("")) : QString();
    setSecretText(masked_, text);
    setSecretText(plain_, text);
    setEnabled(shown.has_value());
    redraw();
}

void OneTimePanel::reload()
{
    const auto& entry = followed_.entry();
    const auto stored = entry->field("otp");
    display_.storedChanged(stored);
    // An edit elsewhere does not overwrite what is being typed here.
    if (!masked_->isModified() && !plain_->isModified()) {
        const QString text = fromUtf8(stored.value_or(""));
        setSecretText(masked_, text);
        setSecretText(plain_, text);
    }
    redraw();
}

void OneTimePanel::store()
{
    const auto& entry = followed_.entry();
    if (!entry)
        return;
    QLineEdit* typedIn = display_.secretRevealed() ? plain_ : masked_;
    QString typed = typedIn->text();
    masked_->setModified(false);
    plain_->setModified(false);
    const auto current = entry->field("otp");
    // Leaving the field untouched keeps the stored text as it is, even when it is not in canonical form.
    if (current ? typed == fromUtf8(*current) : typed.isEmpty())
        return;
    QByteArray utf8 = typed.toUtf8();
    const auto value = tools::otpFieldValue(std::string_view(utf8.constData(), static_cast<std::size_t>(utf8.size())));
    kdbx::secureWipe(utf8.data(), static_cast<std::size_t>(utf8.size()));
    typed.fill(QChar(u'\0'));
    if (value)
        session_.setField(*entry, "otp", value->view(), true);
    else
        session_.removeField(*entry, "otp");
}

void OneTimePanel::redraw()
{
    const bool code = display_.showingCode();
    const bool revealed = display_.revealed();
    masked_->setVisible(!code && !revealed);
    plain_->setVisible(!code && revealed);
    code_->setVisible(code);

    reveal_->setIcon(revealed ? icons::eyeSlash() : icons::eye());
    reveal_->setToolTip(display_.revealTooltip());
    reveal_->setAccessibleName(display_.revealTooltip());

    copy_->setEnabled(display_.canCopy());
    copy_->setToolTip(display_.copyTooltip());
    copy_->setAccessibleName(display_.copyTooltip());

    mode_->setText(display_.modeTitle());
    mode_->setEnabled(code || display_.hasCode());
    const bool junk = !display_.hasCode() && !masked_->text().isEmpty();
    mode_->setToolTip(junk ? otpText::notACode : QString());
    mode_->setAccessibleName(QStringLiteral("Show ") + display_.modeTitle().toLower() + QStringLiteral(" mode"));
    tick();
}

void OneTimePanel::tick()
{
    if (display_.showingCode()) {
        const auto label = display_.codeLabel();
        code_->setText(label.text);
        paint(code_, label.tone);
    } else {
        code_->clear();
    }
    if (display_.needsTicking() && followed_.entry()) {
        if (!timer_->isActive())
            timer_->start();
    } else {
        timer_->stop();
    }
}

bool OneTimePanel::isTicking() const
{
    return timer_->isActive();
}

void OneTimePanel::copyNow()
{
    auto copy = display_.copy();
    if (!copy)
        return;
    clipboard_.copy(copy->text, true, copy->hold);
    copy->text.fill(QChar(u'\0'));
    Q_EMIT copied(copy->what);
}

} // namespace quillon::ui
