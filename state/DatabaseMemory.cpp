#include "state/DatabaseMemory.h"

#include "state/CanonicalText.h"
#include "state/Preferences.h"

#include <QFileInfo>

namespace quillon::state {

namespace {

const QString keyFileField = QStringLiteral("keyFile");
const QString expandedGroupsField = QStringLiteral("expandedGroups");

QVariantMap asMap(const QVariant& value)
{
    return value.typeId() == QMetaType::QVariantMap ? value.toMap() : QVariantMap();
}

} // namespace

QVariantMap DatabaseMemory::entry(const QString& database) const
{
    return asMap(asMap(preferences_.value(keys::databases)).value(canonicalText(database)));
}

void DatabaseMemory::update(const QString& database, const QString& field, const std::optional<QVariant>& value)
{
    QVariantMap all = asMap(preferences_.value(keys::databases));
    const QString key = canonicalText(database);
    QVariantMap one = asMap(all.value(key));
    if (value)
        one.insert(field, *value);
    else
        one.remove(field);
    all.insert(key, one);
    preferences_.setValue(keys::databases, all);
}

std::optional<QString> DatabaseMemory::keyFile(const QString& database) const
{
    const QVariant stored = entry(database).value(keyFileField);
    if (stored.typeId() != QMetaType::QString || !QFileInfo(stored.toString()).isFile())
        return std::nullopt;
    return stored.toString();
}

void DatabaseMemory::setKeyFile(const std::optional<QString>& keyFile, const QString& database)
{
    update(database, keyFileField, keyFile ? std::optional<QVariant>(*keyFile) : std::nullopt);
}

QSet<QString> DatabaseMemory::expandedGroups(const QString& database) const
{
    const QVariant stored = entry(database).value(expandedGroupsField);
    QSet<QString> groups;
    if (stored.typeId() != QMetaType::QStringList && stored.typeId() != QMetaType::QVariantList)
        return groups;
    for (const QVariant& item : stored.toList())
        if (item.typeId() == QMetaType::QString)
            groups.insert(item.toString());
    return groups;
}

void DatabaseMemory::setExpandedGroups(const QSet<QString>& groups, const QString& database)
{
    update(database, expandedGroupsField, QVariant(QStringList(groups.begin(), groups.end())));
}

} // namespace quillon::state
