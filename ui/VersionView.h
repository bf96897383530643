// ui/VersionView.h: one earlier version of an entry, read-only, with "Restore" and "Close".
#pragma once

#include "model/Entry.h"

#include <QWidget>

class QFormLayout;
class QLabel;
class QPushButton;

namespace quillon::ui {

class SecretField;

// Draws a copy of the version's texts; it holds no handle into the tree, which may change under it.
class VersionView : public QWidget {
    Q_OBJECT

public:
    explicit VersionView(QWidget* parent = nullptr);
    ~VersionView() override;

    void showVersion(const model::Entry& version, int position);
    // Empties every field, secrets first.
    void clear();
    int position() const noexcept { return position_; }

    QLabel* heading() const noexcept { return heading_; }
    SecretField* passwordField() const noexcept { return password_; }
    QPushButton* restoreButton() const noexcept { return restore_; }
    QPushButton* closeButton() const noexcept { return close_; }
    // The read-only value shown for a label ("Title", a custom field's name), empty when none.
    QString valueOf(const QString& label) const;

Q_SIGNALS:
    void restoreRequested();
    void closeRequested();

private:
    void addRow(const QString& label, QWidget* value);

    QLabel* heading_;
    QLabel* when_;
    QFormLayout* form_;
    SecretField* password_;
    QPushButton* restore_;
    QPushButton* close_;
    int position_ = 0;
};

} // namespace quillon::ui
