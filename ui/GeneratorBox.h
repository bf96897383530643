// ui/GeneratorBox.h: the password generator under the entry's password: characters or words, strength, "Use".
#pragma once

#include "tools/GeneratorPanel.h"
#include "ui/FollowedEntry.h"

#include <QFrame>

#include <optional>
#include <span>
#include <string>

class QLabel;
class QLineEdit;
class QPushButton;

namespace quillon::state {
class DatabaseSession;
}

namespace quillon::ui {

// Draws tools::GeneratorPanel and forwards to it. "Use" writes the value as the entry's password in one command
// (the entry's earlier state goes to its history, and Undo takes it back).
class GeneratorBox : public QFrame {
    Q_OBJECT

public:
    GeneratorBox(state::DatabaseSession& session, QWidget* parent = nullptr);
    // With another word list (an empty one means the list is missing).
    GeneratorBox(state::DatabaseSession& session, std::span<const std::string> words, QWidget* parent = nullptr);

    // "Use" needs an entry; none disables it.
    void setEntry(std::optional<model::Entry> entry);
    // As the host shows the box: Random mode, length 20, a fresh value.
    void reset();

    const tools::GeneratorPanel& panel() const noexcept { return panel_; }
    QPushButton* randomButton() const noexcept { return random_; }
    QPushButton* wordsButton() const noexcept { return words_; }
    QLineEdit* countField() const noexcept { return count_; }
    QLineEdit* output() const noexcept { return output_; }
    QLabel* strengthLabel() const noexcept { return strength_; }
    QPushButton* regenerateButton() const noexcept { return regenerate_; }
    QPushButton* useButton() const noexcept { return use_; }
    QPushButton* cancelButton() const noexcept { return cancel_; }

Q_SIGNALS:
    // Used or cancelled: the host hides the box.
    void finished();

private:
    void redraw();
    void finish();

    state::DatabaseSession& session_;
    FollowedEntry followed_;
    tools::GeneratorPanel panel_;
    QPushButton* random_;
    QPushButton* words_;
    QLineEdit* count_;
    QLineEdit* output_;
    QLabel* strength_;
    QPushButton* regenerate_;
    QPushButton* use_;
    QPushButton* cancel_;
};

} // namespace quillon::ui
