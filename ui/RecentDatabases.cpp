#include "ui/RecentDatabases.h"

#include "files/CanonicalPath.h"
#include "state/Preferences.h"
#include "ui/Paths.h"

#include <QVariant>

namespace quillon::ui {
namespace {

const QString recentKey = QStringLiteral("recentDatabases");

QString canonical(const QString& path)
{
    return fromPath(files::canonicalPath(toPath(path)));
}

} // namespace

QStringList RecentDatabases::paths() const
{
    const QVariant stored = preferences_.value(recentKey);
    QStringList paths;
    // The settings file gives a list of one back as a plain text.
    if (stored.typeId() == QMetaType::QString)
        return stored.toString().isEmpty() ? paths : QStringList{stored.toString()};
    // A damaged value reads as an empty list rather than as a list of odd texts.
    if (stored.typeId() != QMetaType::QStringList && stored.typeId() != QMetaType::QVariantList)
        return paths;
    for (const QVariant& item : stored.toList())
        if (item.typeId() == QMetaType::QString && !item.toString().isEmpty() && paths.size() < limit)
            paths << item.toString();
    return paths;
}

void RecentDatabases::add(const QString& path)
{
    const QString added = canonical(path);
    QStringList paths = this->paths();
    paths.removeAll(added);
    paths.prepend(added);
    while (paths.size() > limit)
        paths.removeLast();
    preferences_.setValue(recentKey, paths);
}

void RecentDatabases::clear()
{
    preferences_.remove(recentKey);
}

} // namespace quillon::ui
