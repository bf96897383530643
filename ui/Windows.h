// ui/Windows.h: the window manager: every vault window, the open-file registry and the recent list.
#pragma once

#include "files/OpenFiles.h"
#include "state/Session.h"
#include "ui/MenuBar.h"
#include "ui/RecentDatabases.h"
#include "ui/VaultWindow.h"

#include <QObject>
#include <QPointer>

#include <vector>

namespace quillon::ui {

class MainWindow;

// One per run. Vault windows live as tabs of top-level windows; "front" is the window the user touched last.
class Windows : public QObject {
    Q_OBJECT

public:
    // The context's services get the registry; its recents are this object's.
    Windows(Asker& asker, Clipboard& clipboard, state::Preferences& preferences, state::SessionServices services,
            QObject* parent = nullptr);
    ~Windows() override;

    // A new top-level window holding one empty vault window.
    MainWindow* newWindow();
    // A new empty vault window as a tab of the front window (a new window when there is none).
    VaultWindow* newTab();
    // Opens the file: brings forward the window that holds it, or uses `reusable` when it is empty, or makes a
    // new vault window (a tab of `host` when given). Returns the window that shows the file.
    VaultWindow* open(const QString& path, MainWindow* host, VaultWindow* reusable = nullptr);
    // Opens files handed over from outside, as tabs of the front window.
    void openHandedOver(const QStringList& paths);
    // Asks about unsaved changes first; the vault stays when the user cancels or the save fails.
    void closeVault(VaultWindow* vault);
    // Asks each window in turn, front first, stopping at the first "Cancel"; then quitRequested.
    void quit();
    void bringForward(VaultWindow* vault);

    // Front to back.
    std::vector<MainWindow*> windows() const;
    MainWindow* frontWindow() const;
    VaultWindow* frontVault() const;
    // In creation order.
    const std::vector<VaultWindow*>& all() const noexcept { return all_; }

    void lockAll();
    void noteActivity();
    void checkIdle();

    state::Session currentSession() const;
    // Opens the groups of a cleaned session; false when it opened nothing.
    bool restore(const state::Session& session);

    RecentDatabases& recents() noexcept { return recents_; }
    files::OpenFiles& openFiles() noexcept { return files_; }

    void perform(Command command);
    void chooseAndOpen(VaultWindow* reusable);

Q_SIGNALS:
    void quitRequested();

private:
    VaultWindow* makeVault();
    MainWindow* makeWindow();
    void forget(MainWindow* window);
    void discardVault(VaultWindow* vault);
    void refreshRecent();

    files::OpenFiles files_;
    RecentDatabases recents_;
    VaultContext context_;
    std::vector<VaultWindow*> all_;
    // Front first.
    std::vector<QPointer<MainWindow>> order_;
};

} // namespace quillon::ui
