// ui/VaultWindow.h: one database in one tab: the start screen, the unlock screen or the unlocked database.
#pragma once

#include "state/DatabaseSession.h"
#include "ui/MenuTable.h"

#include <QHash>
#include <QLineEdit>
#include <QPointer>
#include <QStackedWidget>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QTimer;

namespace quillon::state {
class Preferences;
}

namespace quillon::ui {

class Asker;
class BrowseView;
class Clipboard;
class DeleteFlow;
class SaveFlow;
class RecentDatabases;
class StartScreen;
class UnlockView;

// What every vault window of the run shares.
struct VaultContext {
    Asker& asker;
    Clipboard& clipboard;
    state::Preferences& preferences;
    RecentDatabases& recents;
    state::SessionServices services;
};

// The per-tab controller: owns the database session and shows the page for its state. The session runs the
// lifecycle; this class only picks the page and passes the session's requests on (alerts, clipboard, the
// recent list and the remembered key file).
class VaultWindow : public QStackedWidget {
    Q_OBJECT

public:
    explicit VaultWindow(VaultContext& context, QWidget* parent = nullptr);
    ~VaultWindow() override;

    state::DatabaseSession& session() noexcept { return *session_; }
    VaultContext& context() const noexcept { return context_; }
    // Claims the file and shows its unlock screen, with the key file remembered for it; the owner of the file
    // is returned instead when another window holds it.
    files::Owner openFile(const QString& path);
    // No database in it: the next file opened may use this window.
    bool isEmpty() const;
    std::optional<QString> path() const;
    // Never holds a secret: the file name, "… is locked", or the application's name.
    QString title() const;

    StartScreen* startScreen() const noexcept { return start_; }
    UnlockView* unlockView() const noexcept { return unlock_; }
    // Made at each unlock and dropped at each lock.
    QWidget* unlockedPage() const noexcept { return unlocked_; }
    // The browsing view of the unlocked page; none while locked.
    BrowseView* browseView() const;
    SaveFlow& saveFlow() const noexcept { return *saveFlow_; }
    DeleteFlow& deleteFlow() const noexcept { return *deleteFlow_; }
    void setRecent(const QStringList& paths);
    // The unlocked page's search field, which the top-level window shows in its toolbar while this tab is in
    // front; none while locked.
    QLineEdit* searchField() const { return searchField_; }
    void setSearchField(QLineEdit* field) { searchField_ = field; }

    // The menu's commands that act on one database.
    void perform(Command command);
    // A part of the window takes on a menu command for as long as `owner` lives; a later handler replaces it.
    void setHandler(Command command, QObject* owner, std::function<void()> handler);
    bool hasHandler(Command command) const;

    // A short status line ("Password copied"), shown for 1.5 seconds unless another replaces it.
    void showSubtitle(const QString& text);
    // A status line that stays until cleared with an empty text ("Saving…"); a short one shows over it.
    void setStatus(const QString& text);
    QString subtitle() const { return subtitle_.isEmpty() ? status_ : subtitle_; }
    // Asks about unsaved changes; done(true) when the window may close. Each window of the list in turn, stopping
    // at the first that may not; windows gone meanwhile are passed by.
    void askToClose(std::function<void(bool)> done);
    // show brings each forward before it asks.
    static void askEachToClose(std::vector<QPointer<VaultWindow>> windows, std::function<void(VaultWindow*)> show,
                               std::function<void(bool)> done);
    // What the menu shows for a command as it opens: whether it can act now, and its title now (empty: the
    // table's).
    bool canPerform(Command command) const;
    QString menuTitle(Command command) const;
    // Ends the edit of the field being typed in, so that its text reaches the database before a save or a close.
    void commitEditing();

Q_SIGNALS:
    void titleChanged();
    void subtitleChanged();
    void lockedChanged(bool locked);
    void openRequested(const QString& path);
    void chooseDatabaseRequested();

private:
    void showPage();
    // Opened from its file or saved: the recent list, the last database and the key file used.
    void rememberDatabase();

    VaultContext& context_;
    std::unique_ptr<state::DatabaseSession> session_;
    StartScreen* start_;
    UnlockView* unlock_;
    QWidget* unlocked_ = nullptr;
    QPointer<QLineEdit> searchField_;
    struct Handler {
        QPointer<QObject> owner;
        std::function<void()> run;
    };
    QHash<Command, Handler> handlers_;
    QString subtitle_;
    QString status_;
    QTimer* subtitleTimer_;
    SaveFlow* saveFlow_;
    std::unique_ptr<DeleteFlow> deleteFlow_;
};

} // namespace quillon::ui
