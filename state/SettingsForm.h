// state/SettingsForm.h: the "Database Settings…" form's logic: what it loads, warns about and writes, no widgets.
#pragma once

#include "kdbx/OuterHeader.h"
#include "kdbx/SecureBytes.h"
#include "model/DatabaseSettings.h"
#include "model/Document.h"

#include <QString>
#include <QStringView>

#include <cstdint>
#include <optional>

namespace quillon::state {

class Preferences;

inline constexpr model::SettingRange autoLockRange{10, 0, 1440}; // minutes, 0 = never

// "Use Recommended" fills in the values a number that does not parse falls back to.
inline constexpr int recommendedMemoryMiB = static_cast<int>(model::memoryMiBRange.fallback);
inline constexpr int recommendedIterations = static_cast<int>(model::iterationsRange.fallback);
inline constexpr int recommendedThreads = static_cast<int>(model::threadsRange.fallback);
// The warning advises from here; the memory clamp only refuses absurd values, well below it.
inline constexpr int warningFloorMiB = 16;

namespace settingsText {
inline const QString databaseHeading = QStringLiteral("Saved in the database");
inline const QString databaseNote = QStringLiteral("Takes effect the next time the database is saved.");
inline const QString appHeading = QStringLiteral("Quillon");
inline const QString appNote = QStringLiteral("Takes effect at once, for every database.");
inline const QString lowMemory = QStringLiteral("Memory below 16 MB gives up most of Argon2's resistance to GPU attacks.");
inline const QString duressSet = QStringLiteral("Set");
inline const QString duressNotSet = QStringLiteral("Not set");
inline const QString duressSetOnApply = QStringLiteral("Set on Apply");
inline const QString duressRemovedOnApply = QStringLiteral("Removed on Apply");
inline const QString duressMismatch = QStringLiteral("The two didn't match. Nothing was changed.");
inline const QString duressNotWritten = QStringLiteral("The duress password could not be stored.");
QString belowRecommended(); // "Below the recommended 64 MB."
} // namespace settingsText

// The form's controls as a window would hold them: pop-up indices, check boxes and the typed texts.
class SettingsForm {
public:
    enum Cipher : int { aes256 = 0, chaCha20 = 1 };
    enum Kdf : int { argon2id = 0, argon2d = 1 };

    QString historyField;
    bool historyUnlimited = false;
    bool reopenLast = true;
    int cipher = aes256;
    int kdf = argon2id;
    QString memory;
    QString iterations;
    QString parallelism;
    QString autoLock;
    // Empty when there is nothing to warn about; the row is hidden then.
    QString warning;

    static SettingsForm load(const kdbx::OuterHeader& header, const model::Document& document,
                             const Preferences& preferences);

    // Recomputed whenever a field's text changes, and at load.
    void updateWarning();
    bool warningVisible() const { return !warning.isEmpty(); }
    bool historyFieldEnabled() const { return !historyUnlimited; }
    void historyToggled(bool unlimited) { historyUnlimited = unlimited; }
    // "Use Recommended": 64 MB, 10 iterations, 2 threads, Argon2id, AES-256.
    void useRecommended();

    // The duress row: what its status label reads, and a change held until the form is applied.
    QString duressStatus() const;
    // The password typed twice; a mismatch changes nothing and gives the text to show.
    std::optional<QString> chooseDuress(kdbx::SecureBytes first, const kdbx::SecureBytes& second);
    void removeDuress();

    // Every field set: a typed number that does not parse takes its fallback; a history limit that does not
    // parse is left out, so the database keeps its own.
    model::DatabaseSettings databaseSettings() const;
    // The database part goes to the header and the document's history limit, in memory; the preferences
    // are written at once. False when a duress change could not be written: the stored record is then
    // as it was.
    bool apply(kdbx::OuterHeader& header, model::Document& document, Preferences& preferences);
    // The preferences alone (auto-lock, reopen, the duress change), for a window that changes the database
    // part through an undoable command of its own.
    bool applyPreferences(Preferences& preferences);

private:
    enum class DuressChange : std::uint8_t { none, set, remove };
    bool duressStored_ = false;
    DuressChange duressChange_ = DuressChange::none;
    kdbx::SecureBytes pendingDuress_;
};

} // namespace quillon::state
