// ui/MergeController.h: File › Review Changes…, Merge Changes From Disk… and Merge From Database… for one window.
#pragma once

#include "kdbx/SecureBytes.h"

#include <QObject>
#include <QPointer>

#include <functional>
#include <optional>

class QWidget;

namespace quillon::ui {

class ChangesDialog;
class VaultWindow;

// Decodes the other version on a worker through the session, compares or merges it there as one command, and
// shows what came of it in a ChangesDialog. Lives with the unlocked page.
class MergeController : public QObject {
    Q_OBJECT

public:
    // The password of another database, asked window-modally; none when the user cancelled.
    using AskPassword = std::function<std::optional<kdbx::SecureBytes>(QWidget* parent, const QString& fileName)>;

    MergeController(VaultWindow& vault, QObject* parent);

    void reviewChanges();
    void mergeFromDisk();
    void mergeFromDatabase();

    void setPasswordAsker(AskPassword ask) { askPassword_ = std::move(ask); }
    // The dialog shown last, while it is open.
    ChangesDialog* dialog() const;

private:
    void show(const QString& title, const QString& heading, const QStringList& lines);
    bool ready() const;

    VaultWindow& vault_;
    AskPassword askPassword_;
    QPointer<ChangesDialog> dialog_;
    bool busy_ = false;
};

} // namespace quillon::ui
