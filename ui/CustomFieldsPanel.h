// ui/CustomFieldsPanel.h: an entry's custom fields in the inspector: add, rename, edit, protect, remove.
#pragma once

#include "model/Entry.h"
#include "state/DatabaseSession.h"

#include <QList>
#include <QString>
#include <QWidget>

#include <optional>
#include <vector>

class QLineEdit;
class QPushButton;
class QToolButton;
class QVBoxLayout;

namespace quillon::ui {

class Asker;
class SecretField;

// Each change is one session command, made when the editor's editing ends. The one-time password field
// ("otp") has a panel of its own and is not listed here.
class CustomFieldsPanel : public QWidget {
    Q_OBJECT

public:
    CustomFieldsPanel(state::DatabaseSession& session, Asker& asker, QWidget* parent = nullptr);

    void setEntry(std::optional<model::Entry> entry);
    // Rows are rebuilt only when the names or their protection changed; texts being typed stay.
    void reload();
    // Commits a value typed but not yet committed (before a copy or a change of entry).
    void commitTyped();

    struct Row {
        QString name;
        bool isProtected = false;
        QWidget* box = nullptr;
        QLineEdit* nameEdit = nullptr;
        QLineEdit* valueEdit = nullptr;
        SecretField* secret = nullptr; // protected fields only
        QToolButton* protect = nullptr;
        QToolButton* remove = nullptr;
    };
    const std::vector<Row>& rows() const noexcept { return rows_; }
    QPushButton* addButton() const noexcept { return add_; }
    // The focusable controls in the order they are laid out.
    QList<QWidget*> focusOrder() const;

    void addField();

Q_SIGNALS:
    // A protected field's copy button: the owner copies the stored value.
    void copyRequested(const QString& name);
    // Rows were made or dropped: the tab order needs linking again.
    void rowsRebuilt();

private:
    void rebuild(const std::vector<model::CustomField>& fields);
    void dropRows();
    const Row* rowNamed(const QString& name) const;
    void rename(const QString& name);
    void commitValue(const QString& name);
    void toggleProtection(const QString& name);
    void removeField(const QString& name);

    state::DatabaseSession& session_;
    Asker& asker_;
    std::optional<model::Entry> entry_;
    QVBoxLayout* list_;
    QPushButton* add_;
    std::vector<Row> rows_;
};

} // namespace quillon::ui
