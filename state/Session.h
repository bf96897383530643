// state/Session.h: the windows and tabs that were open, remembered between launches.
#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <functional>
#include <optional>

namespace quillon::state {

class Preferences;

// The databases shown as tabs of one window, in tab order, and the index of the one that was shown.
struct TabGroup {
    QStringList paths;
    int selected = 0;
    bool operator==(const TabGroup&) const = default;
};

// Window groups, front to back.
struct Session {
    QList<TabGroup> groups;
    bool operator==(const Session&) const = default;

    // JSON {"groups":[{"paths":[…],"selected":n}]}; none when a path cannot be written as Unicode.
    std::optional<QByteArray> encode() const;
    // None unless every field is there with the right kind of value.
    static std::optional<Session> decode(const QByteArray& json);

    // Keeps only paths at which a file exists now and drops groups left empty. The selected tab follows
    // its file when tabs before it have gone, and becomes 0 when its own file has gone or it was out
    // of range.
    Session cleaned(const std::function<bool(const QString&)>& fileExists) const;
    Session cleaned() const;
};

// One window as the application holds it at quit: its tabs in order (each the path of the database it
// shows, none for a tab without a file) and the index of the tab on show.
struct WindowTabs {
    QList<std::optional<QString>> tabs;
    int current = 0;
};

// The session to remember from the windows, front to back: per window the tabs that show a file, and
// the selected one counted among those (0 when the tab on show has no file). Windows without a file are
// left out.
Session buildSession(const QList<WindowTabs>& windows);

// What restoring a cleaned session opens: per group, the paths that need a new window (those already
// open somewhere are skipped), each added as a tab beside the one before it, and the index among those new
// windows of the one to bring forward, when there is one at `selected`. Groups that need no window are
// left out.
struct RestoreGroup {
    QStringList open;
    std::optional<int> bringForward;
    bool operator==(const RestoreGroup&) const = default;
};
QList<RestoreGroup> restorePlan(const Session& cleaned, const std::function<bool(const QString&)>& isOpen);

// Stored under openSession; a session that cannot be encoded removes the key, so no stale one returns.
void saveSession(Preferences& preferences, const Session& session);
std::optional<Session> loadSession(const Preferences& preferences);
// The cleaned session to restore at launch: none when files were handed over (they take precedence),
// when reopenLastDatabase is off, or when nothing of it is left on disk.
std::optional<Session> sessionToRestore(const Preferences& preferences, bool filesHandedOver);

} // namespace quillon::state
