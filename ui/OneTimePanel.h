// ui/OneTimePanel.h: the entry's one-time password: its stored setting, or the current code with its countdown.
#pragma once

#include "ui/FollowedEntry.h"
#include "ui/OneTimeDisplay.h"

#include <QWidget>

#include <optional>

class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;
class QToolButton;

namespace quillon::state {
class DatabaseSession;
}

namespace quillon::ui {

class Clipboard;

// Draws OneTimeDisplay and forwards to it; what is typed is stored as the entry's protected "otp" field in one
// command. Time is the document's clock, so tests move it.
class OneTimePanel : public QWidget {
    Q_OBJECT

public:
    OneTimePanel(state::DatabaseSession& session, Clipboard& clipboard, QWidget* parent = nullptr);

    // Another entry shows its secret, hidden; none empties and disables the panel.
    void setEntry(std::optional<model::Entry> entry);
    const OneTimeDisplay& display() const noexcept { return display_; }

    QLineEdit* otpField() const noexcept { return masked_; }
    QLineEdit* otpPlain() const noexcept { return plain_; }
    QLabel* codeLabel() const noexcept { return code_; }
    QToolButton* revealButton() const noexcept { return reveal_; }
    QPushButton* modeButton() const noexcept { return mode_; }
    QToolButton* copyButton() const noexcept { return copy_; }
    bool isTicking() const;
    // Redraws the countdown; the 1-second timer calls it while the code shows.
    void tick();

Q_SIGNALS:
    // "Code" or "Secret", for the "… copied" status line.
    void copied(const QString& what);

private:
    void store();
    void reload();
    void redraw();
    void copyNow();

    state::DatabaseSession& session_;
    Clipboard& clipboard_;
    FollowedEntry followed_;
    OneTimeDisplay display_;
    QLineEdit* masked_;
    QLineEdit* plain_;
    QLabel* code_;
    QToolButton* reveal_;
    QToolButton* copy_;
    QPushButton* mode_;
    QTimer* timer_;
};

} // namespace quillon::ui
