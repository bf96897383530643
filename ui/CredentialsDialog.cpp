#include "ui/CredentialsDialog.h"

#include "state/CredentialsForm.h"
#include "state/UnlockTexts.h"
#include "ui/Asker.h"
#include "ui/KeyFileRow.h"
#include "ui/TypedSecret.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace quillon::ui {
namespace {

QLineEdit* secretField(const QString& name, QWidget* parent)
{
    auto* field = new QLineEdit(parent);
    field->setEchoMode(QLineEdit::Password);
    field->setPlaceholderText(name);
    field->setAccessibleName(name);
    field->setMinimumWidth(280);
    return field;
}

} // namespace

CredentialsDialog::CredentialsDialog(const CredentialsPage& page, Asker& asker, Accept accept, QWidget* parent)
    : QDialog(parent), asker_(asker), onAccept_(std::move(accept)), keyFile_(page.keyFile)
{
    setWindowTitle(page.title);
    setAttribute(Qt::WA_DeleteOnClose);

    // The unlock screen's look: a heading, a quieter line under it, then the fields.
    title_ = new QLabel(page.title, this);
    title_->setObjectName(QStringLiteral("pageTitle"));
    QFont titleFont = title_->font();
    titleFont.setPointSize(15);
    titleFont.setWeight(QFont::DemiBold);
    title_->setFont(titleFont);
    title_->setAlignment(Qt::AlignCenter);

    explanation_ = new QLabel(page.explanation, this);
    explanation_->setObjectName(QStringLiteral("pageExplanation"));
    explanation_->setForegroundRole(QPalette::PlaceholderText);
    explanation_->setAlignment(Qt::AlignCenter);
    explanation_->setWordWrap(true);

    first_ = secretField(page.first, this);
    second_ = secretField(page.second, this);
    connect(first_, &QLineEdit::returnPressed, this, [this] { second_->setFocus(Qt::TabFocusReason); });
    connect(second_, &QLineEdit::returnPressed, this, &CredentialsDialog::submit);
    connect(first_, &QLineEdit::textChanged, this, &CredentialsDialog::refresh);
    connect(second_, &QLineEdit::textChanged, this, &CredentialsDialog::refresh);

    message_ = new QLabel(this);
    message_->setObjectName(QStringLiteral("pageMessage"));
    message_->setAlignment(Qt::AlignCenter);
    message_->setWordWrap(true);
    QFont messageFont = message_->font();
    messageFont.setWeight(QFont::DemiBold);
    message_->setFont(messageFont);
    message_->hide();

    const KeyFileRow keyFileRow = makeKeyFileRow(this);
    keyFileName_ = keyFileRow.name;
    chooseKeyFile_ = keyFileRow.choose;
    removeKeyFile_ = keyFileRow.remove;
    connect(chooseKeyFile_, &QPushButton::clicked, this, &CredentialsDialog::chooseKeyFile);
    connect(removeKeyFile_, &QToolButton::clicked, this, [this] {
        keyFile_.reset();
        refresh();
    });
    QHBoxLayout* keyRow = keyFileRow.layout;
    for (QWidget* part : {static_cast<QWidget*>(keyFileName_), static_cast<QWidget*>(chooseKeyFile_),
                          static_cast<QWidget*>(removeKeyFile_)})
        part->setVisible(page.offersKeyFile);

    buttons_ = new QDialogButtonBox(this);
    accept_ = buttons_->addButton(page.accept, QDialogButtonBox::AcceptRole);
    accept_->setObjectName(QStringLiteral("acceptPage"));
    accept_->setDefault(true);
    cancel_ = buttons_->addButton(state::credentialsText::cancel, QDialogButtonBox::RejectRole);
    cancel_->setObjectName(QStringLiteral("cancelPage"));
    connect(accept_, &QPushButton::clicked, this, &CredentialsDialog::submit);
    connect(cancel_, &QPushButton::clicked, this, &QDialog::reject);

    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(28, 22, 28, 18);
    // Grows with the refusal's line rather than squeezing the rest.
    column->setSizeConstraint(QLayout::SetFixedSize);
    explanation_->setFixedWidth(360);
    message_->setFixedWidth(360);
    column->addWidget(title_);
    column->addWidget(explanation_);
    column->addSpacing(10);
    column->addWidget(first_, 0, Qt::AlignHCenter);
    column->addWidget(second_, 0, Qt::AlignHCenter);
    column->addWidget(message_);
    column->addLayout(keyRow); // hidden where no key file is offered, and owned by the page either way
    column->addSpacing(6);
    column->addWidget(buttons_);

    setTabOrder(first_, second_);
    setTabOrder(second_, chooseKeyFile_);
    first_->setFocus(Qt::OtherFocusReason);
    refresh();
}

void CredentialsDialog::showPage()
{
    setWindowModality(Qt::WindowModal);
    open();
    first_->setFocus(Qt::OtherFocusReason);
}

void CredentialsDialog::refresh()
{
    if (keyFile_) {
        keyFileName_->setText(QString::fromStdString(keyFile_->filename().string()));
        keyFileName_->setToolTip(QString::fromStdString(keyFile_->string()));
    } else {
        keyFileName_->setText(state::unlockText::noKeyFile);
        keyFileName_->setToolTip(QString());
    }
    removeKeyFile_->setVisible(keyFile_.has_value() && !chooseKeyFile_->isHidden());
    // A password, a key file, or both: an empty page has nothing to accept.
    accept_->setEnabled(!first_->text().isEmpty() || !second_->text().isEmpty() || keyFile_.has_value());
}

void CredentialsDialog::chooseKeyFile()
{
    const auto chosen = asker_.chooseFile(this, QStringLiteral("Choose the key file"), anyFileFilter);
    if (!chosen)
        return;
    keyFile_ = std::filesystem::path(chosen->toStdString());
    refresh();
}

void CredentialsDialog::submit()
{
    if (!accept_->isEnabled())
        return;
    auto first = takeTyped(first_);
    auto second = takeTyped(second_);
    const auto refusal = onAccept_(std::move(first), std::move(second), keyFile_);
    if (!refusal) {
        accept();
        return;
    }
    message_->setText(*refusal);
    message_->show();
    first_->setFocus(Qt::OtherFocusReason);
}

void CredentialsDialog::done(int result)
{
    emptyField(first_);
    emptyField(second_);
    QDialog::done(result);
}

} // namespace quillon::ui
