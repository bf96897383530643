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

// Stored under openSession; a session that cannot be encoded removes the key, so no stale one returns.
void saveSession(Preferences& preferences, const Session& session);
std::optional<Session> loadSession(const Preferences& preferences);

} // namespace quillon::state
