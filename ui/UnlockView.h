// ui/UnlockView.h: the unlock screen: title, hint, one secure field, the key-file row and Unlock.
#pragma once

#include <QWidget>

class QAction;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;
class QToolButton;
class QVariantAnimation;

namespace quillon::state {
class DatabaseSession;
}

namespace quillon::ui {

class Asker;

// Draws the session's unlock screen and hands what is typed to it; the states and texts are the session's.
class UnlockView : public QWidget {
    Q_OBJECT

public:
    UnlockView(state::DatabaseSession& session, Asker& asker, QWidget* parent = nullptr);

    QLabel* titleLabel() const noexcept { return title_; }
    QLabel* hintLabel() const noexcept { return hint_; }
    QLineEdit* field() const noexcept { return field_; }
    QLabel* keyFileLabel() const noexcept { return keyFileName_; }
    QPushButton* keyFileButton() const noexcept { return chooseKeyFile_; }
    QToolButton* removeKeyFileButton() const noexcept { return removeKeyFile_; }
    QToolButton* unlockButton() const noexcept { return unlock_; }
    QAction* setPINAction() const noexcept { return setPIN_; }
    bool isShaking() const;

    void focusField();

private:
    void refresh();
    void unlock();
    void beginSettingPIN();
    void chooseKeyFile();
    void shake();

    state::DatabaseSession& session_;
    Asker& asker_;
    QLabel* title_;
    QLabel* hint_;
    QWidget* fieldHolder_;
    QLineEdit* field_;
    QLabel* keyFileName_;
    QPushButton* chooseKeyFile_;
    QToolButton* removeKeyFile_;
    QToolButton* unlock_;
    QMenu* unlockMenu_;
    QAction* setPIN_;
    QVariantAnimation* shaking_;
};

} // namespace quillon::ui
