// ui/EntryInspector.h: the selected entry's fields, times, expiry, attachments and history, edited in place.
#pragma once

#include "model/Entry.h"
#include "state/DatabaseSession.h"

#include <QUrl>
#include <QWidget>

#include <functional>
#include <optional>
#include <string_view>

class QCheckBox;
class QDateTimeEdit;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QStackedWidget;
class QToolButton;
class QFormLayout;
class QVBoxLayout;

namespace quillon::ui {

class AttachmentsPanel;
class CustomFieldsPanel;
class HistoryMenu;
class SecretField;
class VaultWindow;
class VersionView;

// Every edit is one session command, made when the field's editing ends, so it can be undone; the inspector
// reloads from the session's signals (undo, redo, another part's edit) without disturbing a field being typed
// in, and empties itself when its entry goes. Its fields are emptied when it is destroyed (at each lock).
class EntryInspector : public QWidget {
    Q_OBJECT

public:
    explicit EntryInspector(VaultWindow& vault, QWidget* parent = nullptr);
    ~EntryInspector() override;

    void setEntry(std::optional<model::Entry> entry);
    const std::optional<model::Entry>& entry() const noexcept { return entry_; }

    // Places for the one-time password panel and the generator box, under the password row in that order.
    // The inspector takes ownership; a later call replaces the earlier widget.
    void setOneTimePanel(QWidget* panel);
    void setGeneratorBox(QWidget* box);

    // Commits what was typed but not yet committed, as the field's end of editing would.
    void commitTyped();
    void copyPassword();
    void copyUsername();
    void openUrl();
    // The system's browser by default.
    void setUrlOpener(std::function<void(const QUrl&)> open) { openUrl_ = std::move(open); }

    // The version at its 1-based position in the history, shown read-only in place of the editor.
    void openVersion(int position);
    void restoreShownVersion();
    void closeVersion();

    QLineEdit* titleField() const noexcept { return title_; }
    QLineEdit* usernameField() const noexcept { return username_; }
    QToolButton* usernameCopyButton() const noexcept { return usernameCopy_; }
    SecretField* passwordField() const noexcept { return password_; }
    QLineEdit* urlField() const noexcept { return url_; }
    QToolButton* openUrlButton() const noexcept { return openUrlButton_; }
    QPlainTextEdit* notesView() const noexcept { return notes_; }
    CustomFieldsPanel* customFields() const noexcept { return custom_; }
    AttachmentsPanel* attachments() const noexcept { return attachments_; }
    HistoryMenu* historyMenu() const noexcept { return history_; }
    VersionView* versionView() const noexcept { return version_; }
    QCheckBox* expiresCheck() const noexcept { return expires_; }
    QDateTimeEdit* expiresPicker() const noexcept { return picker_; }
    QLabel* createdLabel() const noexcept { return created_; }
    QLabel* modifiedLabel() const noexcept { return modified_; }
    bool isShowingVersion() const;

private:
    void build();
    void reload();
    void emptyFields();
    void relinkTabOrder();
    void applyWrap();
    void commitField(QLineEdit* edit, std::string_view name);
    void commitNotes();
    void keepTyped();
    void changeExpiry(bool expires);
    void copyField(std::string_view name, const QString& shownName, bool secret);
    void placeExtra(QWidget*& slot, QWidget* widget, int index);
    bool eventFilter(QObject* watched, QEvent* event) override;

    VaultWindow& vault_;
    state::DatabaseSession& session_;
    std::optional<model::Entry> entry_;
    std::function<void(const QUrl&)> openUrl_;
    bool loading_ = false;

    QStackedWidget* pages_ = nullptr;
    QWidget* editor_ = nullptr;
    QLabel* empty_ = nullptr;
    VersionView* version_ = nullptr;
    QLineEdit* title_ = nullptr;
    HistoryMenu* history_ = nullptr;
    QLineEdit* username_ = nullptr;
    QToolButton* usernameCopy_ = nullptr;
    SecretField* password_ = nullptr;
    QFormLayout* form_ = nullptr;
    QVBoxLayout* extras_ = nullptr;
    QWidget* oneTimePanel_ = nullptr;
    QWidget* generatorBox_ = nullptr;
    QLineEdit* url_ = nullptr;
    QToolButton* openUrlButton_ = nullptr;
    QPlainTextEdit* notes_ = nullptr;
    CustomFieldsPanel* custom_ = nullptr;
    QCheckBox* expires_ = nullptr;
    QDateTimeEdit* picker_ = nullptr;
    AttachmentsPanel* attachments_ = nullptr;
    QLabel* created_ = nullptr;
    QLabel* modified_ = nullptr;
};

} // namespace quillon::ui
