// state/UnlockTexts.h: every word the lock and unlock screen shows, in one place.
#pragma once

#include <QString>

namespace quillon::state::unlockText {

inline const QString lockedSuffix = QStringLiteral(" is locked");
inline const QString untitledDatabase = QStringLiteral("Database");
inline const QString hintPIN = QStringLiteral("Enter your PIN or password.");
inline const QString hintSnapshot = QStringLiteral("Enter the password to continue. Changes can still be saved.");
inline const QString hintFile = QStringLiteral("Enter the password. Add a key file if the database uses one.");
inline const QString hintUnlocking = QStringLiteral("Unlocking…");
inline const QString hintTypePasswordFirst =
    QStringLiteral("Type the password first, then choose Unlock and Set PIN.");
inline const QString hintChoosePIN =
    QStringLiteral("Choose a PIN for while Quillon stays open. Return on its own just unlocks.");
inline const QString hintPINTooShort = QStringLiteral("A PIN needs at least %1 characters.");
inline const QString placeholderPIN = QStringLiteral("PIN or password");
inline const QString placeholderPassword = QStringLiteral("Password");
inline const QString placeholderNewPIN = QStringLiteral("New PIN");
inline const QString noKeyFile = QStringLiteral("No key file");
inline const QString keyFileUnreadable = QStringLiteral("Could not read the key file.");
inline const QString lockFailed = QStringLiteral(
    "Quillon could not lock the database because it could not encrypt your unsaved changes (%1). Save them, "
    "then lock again.");

} // namespace quillon::state::unlockText
