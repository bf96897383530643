#include "state/Session.h"

#include "state/Preferences.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <limits>

namespace quillon::state {

namespace {

const QString groupsKey = QStringLiteral("groups");
const QString pathsKey = QStringLiteral("paths");
const QString selectedKey = QStringLiteral("selected");

bool isUnicode(const QString& text)
{
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c.isHighSurrogate() && i + 1 < text.size() && text[i + 1].isLowSurrogate())
            ++i;
        else if (c.isSurrogate())
            return false;
    }
    return true;
}

std::optional<int> wholeNumber(const QJsonValue& value)
{
    if (!value.isDouble())
        return std::nullopt;
    const double number = value.toDouble();
    if (number != std::floor(number) || number < std::numeric_limits<int>::min() ||
        number > std::numeric_limits<int>::max())
        return std::nullopt;
    return static_cast<int>(number);
}

} // namespace

std::optional<QByteArray> Session::encode() const
{
    QJsonArray jsonGroups;
    for (const auto& group : groups) {
        QJsonArray paths;
        for (const auto& path : group.paths) {
            // The encoder would quietly replace a lone surrogate and restore a path that never existed.
            if (!isUnicode(path))
                return std::nullopt;
            paths.append(path);
        }
        jsonGroups.append(QJsonObject{{pathsKey, paths}, {selectedKey, group.selected}});
    }
    return QJsonDocument(QJsonObject{{groupsKey, jsonGroups}}).toJson(QJsonDocument::Compact);
}

std::optional<Session> Session::decode(const QByteArray& json)
{
    QJsonParseError error;
    const auto document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return std::nullopt;
    const auto jsonGroups = document.object().value(groupsKey);
    if (!jsonGroups.isArray())
        return std::nullopt;
    Session session;
    for (const auto& jsonGroup : jsonGroups.toArray()) {
        if (!jsonGroup.isObject())
            return std::nullopt;
        const auto object = jsonGroup.toObject();
        const auto paths = object.value(pathsKey);
        const auto selected = wholeNumber(object.value(selectedKey));
        if (!paths.isArray() || !selected)
            return std::nullopt;
        TabGroup group;
        group.selected = *selected;
        for (const auto& path : paths.toArray()) {
            if (!path.isString())
                return std::nullopt;
            group.paths.append(path.toString());
        }
        session.groups.append(group);
    }
    return session;
}

Session Session::cleaned(const std::function<bool(const QString&)>& fileExists) const
{
    Session out;
    for (const auto& group : groups) {
        TabGroup kept;
        const bool selectedInRange = group.selected >= 0 && group.selected < group.paths.size();
        for (qsizetype i = 0; i < group.paths.size(); ++i) {
            if (!fileExists(group.paths[i]))
                continue;
            if (selectedInRange && i == group.selected)
                kept.selected = static_cast<int>(kept.paths.size());
            kept.paths.append(group.paths[i]);
        }
        if (!kept.paths.isEmpty())
            out.groups.append(kept);
    }
    return out;
}

Session Session::cleaned() const
{
    return cleaned([](const QString& path) { return QFileInfo(path).isFile(); });
}

Session buildSession(const QList<WindowTabs>& windows)
{
    Session session;
    for (const auto& window : windows) {
        TabGroup group;
        for (qsizetype i = 0; i < window.tabs.size(); ++i) {
            if (!window.tabs[i])
                continue;
            if (i == window.current)
                group.selected = static_cast<int>(group.paths.size());
            group.paths.append(*window.tabs[i]);
        }
        if (!group.paths.isEmpty())
            session.groups.append(group);
    }
    return session;
}

QList<RestoreGroup> restorePlan(const Session& cleaned, const std::function<bool(const QString&)>& isOpen)
{
    QList<RestoreGroup> plan;
    for (const auto& group : cleaned.groups) {
        RestoreGroup out;
        for (const auto& path : group.paths)
            if (!isOpen(path))
                out.open.append(path);
        if (group.selected >= 0 && group.selected < out.open.size())
            out.bringForward = group.selected;
        if (!out.open.isEmpty())
            plan.append(out);
    }
    return plan;
}

void saveSession(Preferences& preferences, const Session& session)
{
    if (const auto json = session.encode())
        preferences.setValue(keys::openSession, *json);
    else
        preferences.remove(keys::openSession);
}

std::optional<Session> loadSession(const Preferences& preferences)
{
    const QVariant value = preferences.value(keys::openSession);
    if (value.typeId() != QMetaType::QByteArray)
        return std::nullopt;
    return Session::decode(value.toByteArray());
}

std::optional<Session> sessionToRestore(const Preferences& preferences, bool filesHandedOver)
{
    if (filesHandedOver || !preferences.reopenLastDatabase())
        return std::nullopt;
    auto session = loadSession(preferences);
    if (!session)
        return std::nullopt;
    *session = session->cleaned();
    if (session->groups.isEmpty())
        return std::nullopt;
    return session;
}

} // namespace quillon::state
