#include "state/CredentialsForm.h"

#include "files/SecretFile.h"
#include "kdbx/Crypto.h"
#include "state/UnlockTexts.h"

namespace quillon::state {

QString credentialsText::deleteEarlierBackups(std::size_t count)
{
    return QStringLiteral("Delete the %1 earlier %2? They still open with the old password.")
        .arg(count)
        .arg(count == 1 ? QStringLiteral("backup") : QStringLiteral("backups"));
}

std::variant<kdbx::Credentials, QString> checkedCredentials(kdbx::SecureBytes password, const kdbx::SecureBytes& confirm,
                                                            const std::optional<std::filesystem::path>& keyFile)
{
    if (!kdbx::constantTimeEqual(password.span(), confirm.span()))
        return credentialsText::mismatch;
    kdbx::Credentials credentials;
    if (!password.empty() || !keyFile)
        credentials.password = std::move(password);
    if (keyFile) {
        try {
            credentials.keyFile = files::readSecretFile(*keyFile);
        } catch (const std::exception&) {
            return unlockText::keyFileUnreadable;
        }
    }
    return credentials;
}

} // namespace quillon::state
