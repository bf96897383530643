// state/Preferences.h: the user's application-wide preferences, each read as its default until set.
#pragma once

#include "kdbx/SecureBytes.h"

#include <QByteArray>
#include <QObject>
#include <QSettings>
#include <QString>
#include <QVariant>

#include <memory>
#include <optional>

namespace quillon::state {

namespace keys {
inline const QString idleLockMinutes = QStringLiteral("idleLockMinutes");
inline const QString reopenLastDatabase = QStringLiteral("reopenLastDatabase");
inline const QString backUpBeforeSaving = QStringLiteral("backUpBeforeSaving");
inline const QString lastDatabasePath = QStringLiteral("lastDatabasePath");
inline const QString lastKeyFilePath = QStringLiteral("lastKeyFilePath");
inline const QString wrapNotes = QStringLiteral("wrapNotes");
inline const QString duressCheck = QStringLiteral("duressCheck");
inline const QString openSession = QStringLiteral("openSession");
inline const QString databases = QStringLiteral("databases");
} // namespace keys

inline constexpr int defaultIdleLockMinutes = 10;
inline constexpr int maxIdleLockMinutes = 1440;

// Says which flag was written, so that every window follows a menu toggle (View › Wrap Notes) at once.
class PreferenceChanges : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

Q_SIGNALS:
    void flagChanged(const QString& key);
};

// A key that was never set reads as its default (no defaults are registered). A stored value of the
// wrong kind reads as the default too, key by key, so a hand-edited or damaged file never loses the
// good ones: integers are whole decimal numbers within the key's range; booleans are a stored boolean,
// or the text "true"/"false" or "1"/"0" in any case; paths are non-empty texts; the duress record is a
// byte array. Every change is written at once, to a file only its owner can read or write (0600).
class Preferences {
public:
    // The user's own store: organisation and application "Quillon".
    Preferences();
    // A store in the given file, in the same format.
    explicit Preferences(const QString& filePath);
    ~Preferences();
    Preferences(const Preferences&) = delete;
    Preferences& operator=(const Preferences&) = delete;

    int idleLockMinutes() const;
    void setIdleLockMinutes(int minutes);
    bool reopenLastDatabase() const;
    void setReopenLastDatabase(bool on);
    bool backUpBeforeSaving() const;
    void setBackUpBeforeSaving(bool on);
    bool wrapNotes() const;
    void setWrapNotes(bool on);
    std::optional<QString> lastDatabasePath() const;
    void setLastDatabasePath(const std::optional<QString>& path);
    std::optional<QString> lastKeyFilePath() const;
    void setLastKeyFilePath(const std::optional<QString>& path);
    // lastKeyFilePath, offered only when lastDatabasePath is this database once both are canonical.
    std::optional<QString> rememberedKeyFile(const QString& databasePath) const;

    // The duress password's record (salt and Argon2id hash), absent when none is set.
    bool hasDuressPassword() const;
    // A non-empty password writes a new record, none or an empty one removes it. False when Argon2
    // failed; the stored record is then left as it was.
    bool setDuressPassword(const kdbx::SecureBytes* password);
    bool isDuressPassword(kdbx::ByteView text) const;

    // Other records kept in the same store (session memory).
    QVariant value(const QString& key) const;
    void setValue(const QString& key, const QVariant& value);
    void remove(const QString& key);

    QString fileName() const;
    QSettings::Status status() const;
    PreferenceChanges& changes() const noexcept { return *changes_; }

private:
    std::optional<QString> path(const QString& key) const;
    void setPath(const QString& key, const std::optional<QString>& path);
    bool flag(const QString& key, bool fallback) const;
    void setFlag(const QString& key, bool on);
    // Flushes to disk and keeps the file private.
    void written();

    std::unique_ptr<QSettings> settings_;
    std::unique_ptr<PreferenceChanges> changes_ = std::make_unique<PreferenceChanges>();
};

// "true"/"false"/"1"/"0" in any case, or a stored boolean; anything else is none.
std::optional<bool> readFlag(const QVariant& value);
// kdbx::parseDecimal over typed or stored text.
std::optional<qint64> parseDecimal(QStringView text);

} // namespace quillon::state
