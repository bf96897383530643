#include "ui/UnlockView.h"

#include "state/DatabaseSession.h"
#include "state/UnlockTexts.h"
#include "ui/Asker.h"
#include "ui/KeyFileRow.h"
#include "ui/TypedSecret.h"

#include <QAction>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QShortcut>
#include <QToolButton>
#include <QVBoxLayout>
#include <QVariantAnimation>

namespace quillon::ui {

UnlockView::UnlockView(state::DatabaseSession& session, Asker& asker, QWidget* parent)
    : QWidget(parent), session_(session), asker_(asker)
{
    title_ = new QLabel(this);
    title_->setObjectName(QStringLiteral("unlockTitle"));
    QFont titleFont = title_->font();
    titleFont.setPointSize(15);
    titleFont.setWeight(QFont::DemiBold);
    title_->setFont(titleFont);
    title_->setAlignment(Qt::AlignCenter);

    hint_ = new QLabel(this);
    hint_->setObjectName(QStringLiteral("unlockHint"));
    QFont hintFont = hint_->font();
    hintFont.setPointSize(12);
    hint_->setFont(hintFont);
    hint_->setForegroundRole(QPalette::PlaceholderText);
    hint_->setAlignment(Qt::AlignCenter);
    hint_->setWordWrap(true);

    fieldHolder_ = new QWidget(this);
    field_ = new QLineEdit(fieldHolder_);
    field_->setObjectName(QStringLiteral("unlockField"));
    field_->setEchoMode(QLineEdit::Password);
    field_->setAccessibleName(QStringLiteral("Password"));
    field_->setMinimumWidth(280);
    auto* holderLayout = new QHBoxLayout(fieldHolder_);
    holderLayout->setContentsMargins(0, 0, 0, 0);
    holderLayout->addWidget(field_);
    connect(field_, &QLineEdit::returnPressed, this, &UnlockView::unlock);

    const KeyFileRow keyFileRow = makeKeyFileRow(this);
    keyFileName_ = keyFileRow.name;
    chooseKeyFile_ = keyFileRow.choose;
    removeKeyFile_ = keyFileRow.remove;
    connect(chooseKeyFile_, &QPushButton::clicked, this, &UnlockView::chooseKeyFile);
    connect(removeKeyFile_, &QToolButton::clicked, this, [this] { session_.setPendingKeyFile(std::nullopt); });
    QHBoxLayout* keyRow = keyFileRow.layout;

    unlock_ = new QToolButton(this);
    unlock_->setObjectName(QStringLiteral("unlockButton"));
    unlock_->setText(QStringLiteral("Unlock"));
    unlock_->setToolButtonStyle(Qt::ToolButtonTextOnly);
    unlock_->setMinimumWidth(110);
    unlockMenu_ = new QMenu(unlock_);
    setPIN_ = unlockMenu_->addAction(QStringLiteral("Unlock and Set PIN…"));
    setPIN_->setObjectName(QStringLiteral("beginSettingPIN"));
    unlock_->setMenu(unlockMenu_);
    connect(unlock_, &QToolButton::clicked, this, &UnlockView::unlock);
    connect(setPIN_, &QAction::triggered, this, &UnlockView::beginSettingPIN);
    // The button's menu from the keyboard, as a combo box opens.
    auto* openMenu = new QShortcut(QKeySequence(Qt::ALT | Qt::Key_Down), this, nullptr, nullptr, Qt::WidgetWithChildrenShortcut);
    connect(openMenu, &QShortcut::activated, this, [this] {
        if (unlock_->menu() && unlock_->isEnabled())
            unlock_->showMenu();
    });
    auto* buttonRow = new QHBoxLayout;
    buttonRow->addStretch();
    buttonRow->addWidget(unlock_);
    buttonRow->addStretch();

    auto* column = new QVBoxLayout(this);
    column->addStretch(2);
    column->addWidget(title_);
    column->addWidget(hint_);
    column->addSpacing(10);
    column->addWidget(fieldHolder_, 0, Qt::AlignHCenter);
    column->addLayout(keyRow);
    column->addLayout(buttonRow);
    column->addStretch(3);

    // A short side-to-side movement of the field, as a wrong password gets.
    shaking_ = new QVariantAnimation(this);
    shaking_->setDuration(360);
    shaking_->setStartValue(0);
    shaking_->setEndValue(0);
    for (int step = 1; step < 6; ++step)
        shaking_->setKeyValueAt(step / 6.0, step % 2 ? 10 : -10);
    connect(shaking_, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        const int dx = value.toInt();
        fieldHolder_->layout()->setContentsMargins(std::max(dx, 0) + 10, 0, std::max(-dx, 0) + 10, 0);
    });
    fieldHolder_->layout()->setContentsMargins(10, 0, 10, 0);

    connect(&session_, &state::DatabaseSession::unlockScreenChanged, this, &UnlockView::refresh);
    connect(&session_, &state::DatabaseSession::clearField, field_, [this] { emptyField(field_); });
    connect(&session_, &state::DatabaseSession::shake, this, &UnlockView::shake);
    refresh();
}

void UnlockView::refresh()
{
    const state::UnlockScreen& screen = session_.unlockScreen();
    title_->setText(screen.title);
    hint_->setText(screen.hint);
    field_->setPlaceholderText(screen.placeholder);
    field_->setAccessibleName(screen.placeholder);
    if (screen.keyFile) {
        keyFileName_->setText(QString::fromStdString(screen.keyFile->filename().string()));
        keyFileName_->setToolTip(QString::fromStdString(screen.keyFile->string()));
    } else {
        keyFileName_->setText(state::unlockText::noKeyFile);
        keyFileName_->setToolTip(QString());
    }
    removeKeyFile_->setVisible(screen.keyFile.has_value());
    // In PIN mode a single Unlock button; otherwise its menu offers to set a PIN.
    unlock_->setMenu(screen.pinMode ? nullptr : unlockMenu_);
    unlock_->setPopupMode(screen.pinMode ? QToolButton::DelayedPopup : QToolButton::MenuButtonPopup);
    setPIN_->setEnabled(!screen.pinMode);
    const bool idle = !screen.unlocking;
    field_->setEnabled(idle);
    unlock_->setEnabled(idle);
    chooseKeyFile_->setEnabled(idle);
    removeKeyFile_->setEnabled(idle);
    if (idle)
        focusField();
}

void UnlockView::focusField()
{
    if (field_->isEnabled())
        field_->setFocus(Qt::OtherFocusReason);
}

bool UnlockView::isShaking() const
{
    return shaking_->state() == QAbstractAnimation::Running;
}

void UnlockView::unlock()
{
    session_.attemptUnlock(takeTyped(field_));
}

void UnlockView::beginSettingPIN()
{
    session_.beginSettingPIN(takeTyped(field_));
    focusField();
}

void UnlockView::chooseKeyFile()
{
    const auto chosen = asker_.chooseFile(window(), QStringLiteral("Choose the key file"), anyFileFilter);
    if (chosen)
        session_.setPendingKeyFile(std::filesystem::path(chosen->toStdString()));
}

void UnlockView::shake()
{
    shaking_->stop();
    shaking_->start();
    focusField();
}

} // namespace quillon::ui
