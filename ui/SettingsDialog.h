// ui/SettingsDialog.h: "Database Settings…": draws the settings form of one open database.
#pragma once

#include "state/SettingsForm.h"

#include <QDialog>

class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPushButton;

namespace quillon::state {
class DatabaseSession;
class Preferences;
} // namespace quillon::state

namespace quillon::ui {

class Asker;

// Every control writes straight into the form; the form decides the warning, the duress status and what
// applying writes. The database part is one command of the session, so undo takes it back; the preferences
// are written at once. Closes, unapplied, when the database locks.
class SettingsDialog : public QDialog {
    Q_OBJECT

public:
    SettingsDialog(state::DatabaseSession& session, state::Preferences& preferences, Asker& asker, QWidget* parent);

    const state::SettingsForm& form() const noexcept { return form_; }
    QComboBox* cipherBox() const noexcept { return cipher_; }
    QComboBox* kdfBox() const noexcept { return kdf_; }
    QLineEdit* memoryField() const noexcept { return memory_; }
    QLineEdit* iterationsField() const noexcept { return iterations_; }
    QLineEdit* threadsField() const noexcept { return threads_; }
    QLabel* warningLabel() const noexcept { return warning_; }
    bool warningShown() const;
    QPushButton* useRecommendedButton() const noexcept { return useRecommended_; }
    QLineEdit* historyField() const noexcept { return history_; }
    QCheckBox* unlimitedBox() const noexcept { return unlimited_; }
    QLineEdit* autoLockField() const noexcept { return autoLock_; }
    QCheckBox* reopenBox() const noexcept { return reopen_; }
    QLabel* duressStatusLabel() const noexcept { return duressStatus_; }
    QPushButton* chooseDuressButton() const noexcept { return chooseDuress_; }
    QPushButton* removeDuressButton() const noexcept { return removeDuress_; }
    QPushButton* applyButton() const noexcept { return apply_; }
    QPushButton* cancelButton() const noexcept { return cancel_; }

    // Window-modal over the parent's window, without waiting for the answer.
    void showPage();

private:
    void fill();
    void textChanged();
    void showWarning();
    void showDuress();
    void chooseDuressPassword();
    void applySettings();

    state::DatabaseSession& session_;
    state::Preferences& preferences_;
    Asker& asker_;
    state::SettingsForm form_;
    QFormLayout* rows_;
    QComboBox* cipher_;
    QComboBox* kdf_;
    QLineEdit* memory_;
    QLineEdit* iterations_;
    QLineEdit* threads_;
    QLabel* warning_;
    QPushButton* useRecommended_;
    QLineEdit* history_;
    QCheckBox* unlimited_;
    QLineEdit* autoLock_;
    QCheckBox* reopen_;
    QLabel* duressStatus_;
    QPushButton* chooseDuress_;
    QPushButton* removeDuress_;
    QPushButton* apply_;
    QPushButton* cancel_;
};

} // namespace quillon::ui
