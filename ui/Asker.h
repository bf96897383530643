// ui/Asker.h: the one seam through which the windows ask the user anything or tell them something.
#pragma once

#include <QString>

#include <optional>

class QMessageBox;
class QWidget;

namespace quillon::ui {

// Every alert and chooser goes through here, so tests answer them instead of blocking on a dialog.
class Asker {
public:
    virtual ~Asker() = default;
    // A warning alert with one "OK" button.
    virtual void warn(QWidget* parent, const QString& message) = 0;
    // A file to open, or none when the user cancelled.
    virtual std::optional<QString> chooseFile(QWidget* parent, const QString& message, const QString& filter) = 0;
};

// The real dialogs, modal to the window that asks.
class DialogAsker final : public Asker {
public:
    void warn(QWidget* parent, const QString& message) override;
    std::optional<QString> chooseFile(QWidget* parent, const QString& message, const QString& filter) override;

    // The warning as warn() shows it, not yet shown.
    static QMessageBox* makeWarning(QWidget* parent, const QString& message);
};

// The filters of the file choosers.
inline const QString databaseFilter = QStringLiteral("KeePass databases (*.kdbx);;All files (*)");
inline const QString anyFileFilter = QStringLiteral("All files (*)");

} // namespace quillon::ui
