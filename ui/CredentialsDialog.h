// ui/CredentialsDialog.h: a page that asks for a secret twice and, where one may go with it, a key file.
#pragma once

#include "kdbx/SecureBytes.h"

#include <QDialog>

#include <filesystem>
#include <functional>
#include <optional>

class QDialogButtonBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QToolButton;

namespace quillon::ui {

class Asker;

// The words of one page; the two fields show theirs as placeholders and accessible names.
struct CredentialsPage {
    QString title;
    QString explanation;
    QString first;
    QString second;
    QString accept;
    bool offersKeyFile = true;
    std::optional<std::filesystem::path> keyFile;
};

// Draws the page and hands what was typed to its owner. Window-modal and deleted once closed; both fields are
// emptied whenever they are read and when the page closes, so no secret stays in a widget.
class CredentialsDialog : public QDialog {
    Q_OBJECT

public:
    // Given both texts and the key file, the text that says why they were refused, or none to close the page.
    using Accept = std::function<std::optional<QString>(kdbx::SecureBytes first, kdbx::SecureBytes second,
                                                        const std::optional<std::filesystem::path>& keyFile)>;

    CredentialsDialog(const CredentialsPage& page, Asker& asker, Accept accept, QWidget* parent);

    QLabel* titleLabel() const noexcept { return title_; }
    QLabel* explanationLabel() const noexcept { return explanation_; }
    QLineEdit* firstField() const noexcept { return first_; }
    QLineEdit* secondField() const noexcept { return second_; }
    // The refusal, hidden while there is none.
    QLabel* messageLabel() const noexcept { return message_; }
    QLabel* keyFileLabel() const noexcept { return keyFileName_; }
    QPushButton* keyFileButton() const noexcept { return chooseKeyFile_; }
    QToolButton* removeKeyFileButton() const noexcept { return removeKeyFile_; }
    QPushButton* acceptButton() const noexcept { return accept_; }
    QPushButton* cancelButton() const noexcept { return cancel_; }
    const std::optional<std::filesystem::path>& keyFile() const noexcept { return keyFile_; }

    // Window-modal over the parent's window, without waiting for the answer.
    void showPage();
    void done(int result) override;

private:
    void submit();
    void chooseKeyFile();
    void refresh();

    Asker& asker_;
    Accept onAccept_;
    std::optional<std::filesystem::path> keyFile_;
    QLabel* title_;
    QLabel* explanation_;
    QLineEdit* first_;
    QLineEdit* second_;
    QLabel* message_;
    QLabel* keyFileName_;
    QPushButton* chooseKeyFile_;
    QToolButton* removeKeyFile_;
    QDialogButtonBox* buttons_;
    QPushButton* accept_;
    QPushButton* cancel_;
};

} // namespace quillon::ui
