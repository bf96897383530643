// state/CredentialsForm.h: the pages that set what opens a database: their words, and the check of what was
// typed before anything changes.
#pragma once

#include "kdbx/CompositeKey.h"
#include "kdbx/SecureBytes.h"

#include <QString>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <variant>

namespace quillon::state {

namespace credentialsText {
inline const QString newDatabaseTitle = QStringLiteral("New Database");
inline const QString newDatabaseExplanation =
    QStringLiteral("A password, a key file, or both. A lost password or key file can't be recovered.");
inline const QString newDatabaseAccept = QStringLiteral("New Database");
inline const QString password = QStringLiteral("Password");
inline const QString changeTitle = QStringLiteral("Change Password");
inline const QString changeExplanation = QStringLiteral("Replaces the password, and key file, that open this database.");
inline const QString changeAccept = QStringLiteral("Change");
inline const QString newPassword = QStringLiteral("New password");
inline const QString confirm = QStringLiteral("Confirm");
inline const QString cancel = QStringLiteral("Cancel");
inline const QString mismatch = QStringLiteral("The two didn't match. Nothing was changed.");
inline const QString duressTitle = QStringLiteral("Duress Password");
inline const QString duressFirst = QStringLiteral("Duress password");
inline const QString duressSecond = QStringLiteral("Type it again");
inline const QString duressNote =
    QStringLiteral("For every database: typed instead of the real password, it opens an empty database.");
inline const QString duressAccept = QStringLiteral("Set on Apply");
// "Delete the 2 earlier backups? They still open with the old password."
QString deleteEarlierBackups(std::size_t count);
} // namespace credentialsText

// The password typed twice and the key file chosen, as credentials; or the text that says why not (the two
// differ, or the key file cannot be read). An empty password with a key file is no password at all, as at
// unlock.
std::variant<kdbx::Credentials, QString> checkedCredentials(kdbx::SecureBytes password, const kdbx::SecureBytes& confirm,
                                                            const std::optional<std::filesystem::path>& keyFile);

} // namespace quillon::state
