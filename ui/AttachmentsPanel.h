// ui/AttachmentsPanel.h: an entry's attachments in the inspector, each with its size, saved or removed.
#pragma once

#include "model/Entry.h"
#include "state/DatabaseSession.h"

#include <QList>
#include <QString>
#include <QWidget>

#include <optional>
#include <vector>

class QLabel;
class QPushButton;
class QToolButton;
class QVBoxLayout;

namespace quillon::ui {

class Asker;

// Adding reads the chosen file into wiped memory; saving writes the whole file at once or nothing. Both
// tell the user plainly when the file system refuses.
class AttachmentsPanel : public QWidget {
    Q_OBJECT

public:
    AttachmentsPanel(state::DatabaseSession& session, Asker& asker, QWidget* parent = nullptr);

    void setEntry(std::optional<model::Entry> entry);
    void reload();

    struct Row {
        QString name;
        std::optional<std::size_t> poolIndex;
        QLabel* label = nullptr;
        QLabel* size = nullptr;
        QPushButton* save = nullptr;
        QToolButton* remove = nullptr;
        QWidget* box = nullptr;
    };
    const std::vector<Row>& rows() const noexcept { return rows_; }
    QPushButton* addButton() const noexcept { return add_; }
    QList<QWidget*> focusOrder() const;

    void addFromFile();
    void saveToFile(const QString& name);
    void remove(const QString& name);

Q_SIGNALS:
    void rowsRebuilt();
    void saved();

private:
    const kdbx::SecureBytes* content(const QString& name) const;
    void dropRows();

    state::DatabaseSession& session_;
    Asker& asker_;
    std::optional<model::Entry> entry_;
    QVBoxLayout* list_;
    QPushButton* add_;
    std::vector<Row> rows_;
};

} // namespace quillon::ui
