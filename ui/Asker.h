// ui/Asker.h: the one seam through which the windows ask the user anything or tell them something.
#pragma once

#include <QString>

#include <optional>

class QMessageBox;
class QWidget;

namespace quillon::ui {

// The answers to "Do you want to save the changes to …?".
enum class SaveAnswer { save, cancel, dontSave };

// Every alert, question and chooser goes through here, so tests answer them instead of blocking on a dialog.
class Asker {
public:
    virtual ~Asker() = default;
    // A warning alert with one "OK" button; the note, when given, is its informative text.
    virtual void warn(QWidget* parent, const QString& message, const QString& note = {}) = 0;
    // A question with "No" as the first, default button and "Yes" second: true only for "Yes", so Return never
    // confirms a destructive action.
    virtual bool confirm(QWidget* parent, const QString& question, const QString& note = {}) = 0;
    // "Save", "Cancel" and "Don't Save" (Ctrl+D).
    virtual SaveAnswer askToSave(QWidget* parent, const QString& message, const QString& note) = 0;
    // A file to open, or none when the user cancelled.
    virtual std::optional<QString> chooseFile(QWidget* parent, const QString& message, const QString& filter) = 0;
    // A file to write, starting from the suggested path, or none when the user cancelled.
    virtual std::optional<QString> chooseSaveFile(QWidget* parent, const QString& message, const QString& suggested,
                                                  const QString& filter) = 0;
};

// The real dialogs, modal to the window that asks.
class DialogAsker final : public Asker {
public:
    void warn(QWidget* parent, const QString& message, const QString& note = {}) override;
    bool confirm(QWidget* parent, const QString& question, const QString& note = {}) override;
    SaveAnswer askToSave(QWidget* parent, const QString& message, const QString& note) override;
    std::optional<QString> chooseFile(QWidget* parent, const QString& message, const QString& filter) override;
    std::optional<QString> chooseSaveFile(QWidget* parent, const QString& message, const QString& suggested,
                                          const QString& filter) override;

    // The dialogs as they are shown, not yet shown, for screenshots and tests of their buttons.
    static QMessageBox* makeWarning(QWidget* parent, const QString& message, const QString& note = {});
    static QMessageBox* makeQuestion(QWidget* parent, const QString& question, const QString& note = {});
    static QMessageBox* makeSaveQuestion(QWidget* parent, const QString& message, const QString& note);
};

// The filters of the file choosers.
inline const QString databaseFilter = QStringLiteral("KeePass databases (*.kdbx);;All files (*)");
inline const QString kdbxOnlyFilter = QStringLiteral("KeePass databases (*.kdbx)");
inline const QString anyFileFilter = QStringLiteral("All files (*)");

} // namespace quillon::ui
