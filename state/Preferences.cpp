#include "state/Preferences.h"

#include "kdbx/Encoding.h"
#include "lock/DuressRecord.h"
#include "state/CanonicalText.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace quillon::state {

namespace {

constexpr auto privateFile = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
constexpr auto privateFolder = QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

std::optional<qint64> readInteger(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
        return value.toLongLong();
    case QMetaType::QString:
        return parseDecimal(value.toString());
    default:
        return std::nullopt;
    }
}

QByteArray asBytes(kdbx::ByteView bytes)
{
    return QByteArray(reinterpret_cast<const char*>(bytes.data()), static_cast<qsizetype>(bytes.size()));
}

} // namespace

std::optional<qint64> parseDecimal(QStringView text)
{
    // Anything beyond ASCII becomes bytes that are not digits, so it is refused like any other character.
    const QByteArray utf8 = text.toUtf8();
    return kdbx::parseDecimal(std::string_view(utf8.constData(), static_cast<std::size_t>(utf8.size())));
}

std::optional<bool> readFlag(const QVariant& value)
{
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    if (value.typeId() != QMetaType::QString)
        return std::nullopt;
    const QString text = value.toString();
    if (text.compare(u"true", Qt::CaseInsensitive) == 0 || text == u"1")
        return true;
    if (text.compare(u"false", Qt::CaseInsensitive) == 0 || text == u"0")
        return false;
    return std::nullopt;
}

Preferences::Preferences()
    : settings_(std::make_unique<QSettings>(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("Quillon"),
                                            QStringLiteral("Quillon")))
{
}

Preferences::Preferences(const QString& filePath)
    : settings_(std::make_unique<QSettings>(filePath, QSettings::IniFormat))
{
}

Preferences::~Preferences() = default;

int Preferences::idleLockMinutes() const
{
    if (!settings_->contains(keys::idleLockMinutes))
        return defaultIdleLockMinutes;
    const auto minutes = readInteger(settings_->value(keys::idleLockMinutes));
    if (!minutes || *minutes < 0 || *minutes > maxIdleLockMinutes)
        return defaultIdleLockMinutes;
    return static_cast<int>(*minutes);
}

void Preferences::setIdleLockMinutes(int minutes)
{
    settings_->setValue(keys::idleLockMinutes, minutes);
    written();
}

bool Preferences::flag(const QString& key, bool fallback) const
{
    if (!settings_->contains(key))
        return fallback;
    return readFlag(settings_->value(key)).value_or(fallback);
}

void Preferences::setFlag(const QString& key, bool on)
{
    settings_->setValue(key, on);
    written();
    Q_EMIT changes_->flagChanged(key);
}

bool Preferences::reopenLastDatabase() const { return flag(keys::reopenLastDatabase, true); }
void Preferences::setReopenLastDatabase(bool on) { setFlag(keys::reopenLastDatabase, on); }
bool Preferences::backUpBeforeSaving() const { return flag(keys::backUpBeforeSaving, true); }
void Preferences::setBackUpBeforeSaving(bool on) { setFlag(keys::backUpBeforeSaving, on); }
bool Preferences::wrapNotes() const { return flag(keys::wrapNotes, true); }
void Preferences::setWrapNotes(bool on) { setFlag(keys::wrapNotes, on); }

std::optional<QString> Preferences::path(const QString& key) const
{
    const QVariant value = settings_->value(key);
    if (value.typeId() != QMetaType::QString || value.toString().isEmpty())
        return std::nullopt;
    return value.toString();
}

void Preferences::setPath(const QString& key, const std::optional<QString>& path)
{
    if (path && !path->isEmpty())
        settings_->setValue(key, *path);
    else
        settings_->remove(key);
    written();
}

std::optional<QString> Preferences::lastDatabasePath() const { return path(keys::lastDatabasePath); }
void Preferences::setLastDatabasePath(const std::optional<QString>& path) { setPath(keys::lastDatabasePath, path); }
std::optional<QString> Preferences::lastKeyFilePath() const { return path(keys::lastKeyFilePath); }
void Preferences::setLastKeyFilePath(const std::optional<QString>& path) { setPath(keys::lastKeyFilePath, path); }

std::optional<QString> Preferences::rememberedKeyFile(const QString& databasePath) const
{
    const auto last = lastDatabasePath();
    if (!last || canonicalText(*last) != canonicalText(databasePath))
        return std::nullopt;
    return lastKeyFilePath();
}

bool Preferences::hasDuressPassword() const
{
    return settings_->value(keys::duressCheck).typeId() == QMetaType::QByteArray;
}

bool Preferences::setDuressPassword(const kdbx::SecureBytes* password)
{
    if (!password || password->empty()) {
        settings_->remove(keys::duressCheck);
        written();
        return true;
    }
    try {
        const auto record = lock::DuressRecord::make(password->span());
        settings_->setValue(keys::duressCheck, asBytes(record));
    } catch (...) {
        return false;
    }
    written();
    return true;
}

bool Preferences::isDuressPassword(kdbx::ByteView text) const
{
    const QVariant value = settings_->value(keys::duressCheck);
    if (value.typeId() != QMetaType::QByteArray)
        return false;
    const QByteArray record = value.toByteArray();
    return lock::DuressRecord::check(
        kdbx::ByteView(reinterpret_cast<const std::uint8_t*>(record.constData()), static_cast<std::size_t>(record.size())),
        text);
}

QVariant Preferences::value(const QString& key) const { return settings_->value(key); }

void Preferences::setValue(const QString& key, const QVariant& value)
{
    settings_->setValue(key, value);
    written();
}

void Preferences::remove(const QString& key)
{
    settings_->remove(key);
    written();
}

QString Preferences::fileName() const { return settings_->fileName(); }
QSettings::Status Preferences::status() const { return settings_->status(); }

void Preferences::written()
{
    // The store is rewritten through a temporary file that takes the existing file's permissions, so
    // the file is made private before its first write, in a folder of its own made private too.
    const QString file = settings_->fileName();
    const QFileInfo info(file);
    if (!info.dir().exists()) {
        QDir().mkpath(info.absolutePath());
        QFile::setPermissions(info.absolutePath(), privateFolder);
    }
    if (!info.exists()) {
        QFile create(file);
        if (create.open(QIODevice::WriteOnly | QIODevice::NewOnly, privateFile))
            create.close();
    }
    settings_->sync();
    QFile::setPermissions(file, privateFile);
}

} // namespace quillon::state
