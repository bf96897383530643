// ui/AppDelegate.h: launch and quit: files handed over early, the remembered session, the clipboard at quit.
#pragma once

#include <QObject>
#include <QStringList>

namespace quillon::state {
class Preferences;
}

namespace quillon::ui {

class Clipboard;
class Windows;

class AppDelegate : public QObject {
    Q_OBJECT

public:
    AppDelegate(Windows& windows, state::Preferences& preferences, Clipboard& clipboard, QObject* parent = nullptr);

    // Files handed over by the command line or another process: kept until launch has finished, then opened.
    void openFiles(const QStringList& paths);
    // Handed-over files win over the remembered session; without either, one window with the start screen,
    // or with the last database when reopenLastDatabase is on.
    void finishLaunching();
    // Remembers the windows and clears the clipboard if it still holds this application's copy. Runs once.
    void willTerminate();

    bool isLaunched() const noexcept { return launched_; }
    const QStringList& pending() const noexcept { return pending_; }

private:
    Windows& windows_;
    state::Preferences& preferences_;
    Clipboard& clipboard_;
    bool launched_ = false;
    bool terminated_ = false;
    QStringList pending_;
};

} // namespace quillon::ui
