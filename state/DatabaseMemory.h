// state/DatabaseMemory.h: what is remembered per database: the key file used and the expanded groups.
#pragma once

#include <QSet>
#include <QString>
#include <QVariantMap>

#include <optional>

namespace quillon::state {

class Preferences;

// Kept under `databases`, keyed by the database's canonical path, so a database reached through a
// symbolic link is remembered as itself. Entries are never pruned; a damaged entry reads as empty.
class DatabaseMemory {
public:
    explicit DatabaseMemory(Preferences& preferences) : preferences_(preferences) {}

    // Offered only while a file exists at the stored path.
    std::optional<QString> keyFile(const QString& database) const;
    void setKeyFile(const std::optional<QString>& keyFile, const QString& database);
    QSet<QString> expandedGroups(const QString& database) const;
    void setExpandedGroups(const QSet<QString>& groups, const QString& database);

private:
    QVariantMap entry(const QString& database) const;
    // Writes one database's entry back, keeping every other database and field as stored.
    void update(const QString& database, const QString& field, const std::optional<QVariant>& value);

    Preferences& preferences_;
};

} // namespace quillon::state
