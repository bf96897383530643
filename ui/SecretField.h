// ui/SecretField.h: a masked line edit with the eye that reveals it and a button that copies it.
#pragma once

#include <QString>
#include <QWidget>

class QLineEdit;
class QToolButton;

namespace quillon::ui {

// The field never copies by itself: it asks, so the owner copies what the database holds.
class SecretField : public QWidget {
    Q_OBJECT

public:
    // `lowerName` completes "Show …", "Hide …", "Reveal …" and "Copy …" ("password", "secret").
    SecretField(const QString& accessibleName, const QString& lowerName, QWidget* parent = nullptr);

    QLineEdit* edit() const noexcept { return edit_; }
    QToolButton* revealButton() const noexcept { return reveal_; }
    QToolButton* copyButton() const noexcept { return copy_; }
    bool isRevealed() const noexcept { return revealed_; }
    void setRevealed(bool revealed);

Q_SIGNALS:
    void copyRequested();

private:
    QString lowerName_;
    QLineEdit* edit_;
    QToolButton* reveal_;
    QToolButton* copy_;
    bool revealed_ = false;
};

} // namespace quillon::ui
