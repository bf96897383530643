#include "ui/SecretField.h"

#include "ui/Icons.h"
#include "ui/InspectorTexts.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QToolButton>

namespace quillon::ui {

SecretField::SecretField(const QString& accessibleName, const QString& lowerName, QWidget* parent)
    : QWidget(parent), lowerName_(lowerName), edit_(new QLineEdit(this)), reveal_(new QToolButton(this)),
      copy_(new QToolButton(this))
{
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(2);
    layout->addWidget(edit_, 1);
    layout->addWidget(reveal_);
    layout->addWidget(copy_);
    edit_->setAccessibleName(accessibleName);
    // Clipboard managers and screen readers never see a masked field's text.
    edit_->setEchoMode(QLineEdit::Password);
    reveal_->setAccessibleName(inspectorText::revealSecret(lowerName));
    reveal_->setFocusPolicy(Qt::StrongFocus);
    reveal_->setAutoRaise(true);
    copy_->setIcon(icons::copy());
    copy_->setToolTip(inspectorText::copyItem(lowerName));
    copy_->setAccessibleName(inspectorText::copyItem(lowerName));
    copy_->setFocusPolicy(Qt::StrongFocus);
    copy_->setAutoRaise(true);
    setFocusProxy(edit_);
    connect(reveal_, &QToolButton::clicked, this, [this] { setRevealed(!revealed_); });
    connect(copy_, &QToolButton::clicked, this, &SecretField::copyRequested);
    setRevealed(false);
}

void SecretField::setRevealed(bool revealed)
{
    revealed_ = revealed;
    edit_->setEchoMode(revealed ? QLineEdit::Normal : QLineEdit::Password);
    reveal_->setIcon(revealed ? icons::eyeSlash() : icons::eye());
    reveal_->setToolTip(revealed ? inspectorText::hideSecret(lowerName_) : inspectorText::showSecret(lowerName_));
}

} // namespace quillon::ui
