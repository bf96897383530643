// ui/RecentDatabases.h: the "Open Recent" list, kept in the user's settings.
#pragma once

#include <QString>
#include <QStringList>

namespace quillon::state {
class Preferences;
}

namespace quillon::ui {

// Newest first, each database once (by its canonical path), at most `limit`.
class RecentDatabases {
public:
    static constexpr int limit = 10;

    explicit RecentDatabases(state::Preferences& preferences) : preferences_(preferences) {}

    QStringList paths() const;
    void add(const QString& path);
    void clear();

private:
    state::Preferences& preferences_;
};

} // namespace quillon::ui
