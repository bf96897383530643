// ui/SaveFlow.h: what a vault window asks before it writes, overwrites or drops unsaved changes.
#pragma once

#include "files/Backups.h"
#include "files/DiskStamp.h"
#include "files/OpenFiles.h"
#include "state/DatabaseSession.h"

#include <QObject>
#include <QString>
#include <QUrl>

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

class QWidget;

namespace quillon::ui {

class Asker;

// The answer of the check made before writing over a file: go on expecting the file to have `stamp` (none: no
// file), or cancel.
struct DiskCheck {
    bool cancel = false;
    std::optional<files::DiskStamp> stamp;
};

// Save, Save As, the question before closing, the backups folder and the offer of a killed save's changes, for
// one session. The writing itself runs on the session's worker; every question goes through the Asker. Drives no
// widget, so a test can run it with no window at all.
class SaveFlow : public QObject {
    Q_OBJECT

public:
    // The window around it.
    struct Window {
        std::function<QWidget*()> parent = [] { return nullptr; };
        // Ends the edit of the field being typed in, so that its text is saved.
        std::function<void()> commitEditing = [] {};
        // The 1.5-second status line.
        std::function<void(const QString&)> showSubtitle = [](const QString&) {};
        // A status line that stays until replaced by an empty one ("Saving…").
        std::function<void(const QString&)> setStatus = [](const QString&) {};
        // A save succeeded: the window remembers the database and its key file and updates its title.
        std::function<void()> saved = [] {};
        std::function<void(const QUrl&)> openFolder;
    };
    // Called once with true when the database was saved (or, for closing, may close), false otherwise.
    using Done = std::function<void(bool)>;

    SaveFlow(state::DatabaseSession& session, Asker& asker, files::OpenFiles* openFiles,
             const files::Backups* backups, Window window, QObject* parent = nullptr);

    // A database without a location goes to Save As.
    void save(Done done = {});
    // suggested: the name the save panel starts with; by default the current file, else "Quillon.kdbx".
    void saveAs(Done done = {}, const QString& suggested = {});
    // Commits the field being edited, then asks about unsaved changes: Save (true once saved), Don't Save
    // (true), Cancel (false). Waits for a running save first.
    void askToClose(Done done);
    void showBackups();

    // Before writing over the file at location that was recorded with stamp `recorded`: asks when it was moved,
    // deleted or changed. afterConflict: the writer found it changed, so with no record a file there is asked
    // about too.
    DiskCheck checkDisk(const std::filesystem::path& location, const std::optional<files::DiskStamp>& recorded,
                        bool afterConflict);

    // Medium date and short time in the user's locale, as the recovery question shows them.
    static QString dateAndTime(const QDateTime& when);

private:
    void start(const std::filesystem::path& location, const std::optional<files::DiskStamp>& expected, Done done);
    void saved(files::PreSaveBackup::Outcome backup);
    void saveFailed(const QString& cause, bool changedOnDisk);
    void afterSave();

    state::DatabaseSession& session_;
    Asker& asker_;
    files::OpenFiles* openFiles_;
    const files::Backups* backups_;
    Window window_;
    struct Running {
        std::filesystem::path location;
        std::optional<files::DiskStamp> expected;
        Done done;
    };
    std::optional<Running> running_;
    // Waiting for the running save to end.
    std::vector<std::function<void()>> waiting_;
};

} // namespace quillon::ui
