#include "ui/DatabasePages.h"

#include "files/CanonicalPath.h"
#include "state/CredentialsForm.h"
#include "ui/Asker.h"
#include "ui/CredentialsDialog.h"
#include "ui/MainWindow.h"
#include "ui/SettingsDialog.h"
#include "ui/VaultWindow.h"
#include "ui/Windows.h"

#include <QPointer>

namespace quillon::ui {
namespace {

// The credentials of a page, or the refusal to show on it; `use` runs only with good ones.
CredentialsDialog::Accept acceptCredentials(std::function<void(kdbx::Credentials, const std::optional<std::filesystem::path>&)> use)
{
    return [use = std::move(use)](kdbx::SecureBytes first, kdbx::SecureBytes second,
                                  const std::optional<std::filesystem::path>& keyFile) -> std::optional<QString> {
        auto checked = state::checkedCredentials(std::move(first), second, keyFile);
        if (auto* refusal = std::get_if<QString>(&checked))
            return *refusal;
        use(std::move(std::get<kdbx::Credentials>(checked)), keyFile);
        return std::nullopt;
    };
}

// Earlier backups open with the password just replaced; a decoy never has any.
void offerToDeleteBackups(VaultWindow& vault)
{
    auto& session = vault.session();
    const files::Backups* backups = vault.context().services.backups;
    if (!backups || session.isDecoy() || !session.location())
        return;
    const auto database = files::canonicalPath(*session.location());
    const auto count = backups->listBackups(database).size();
    if (count == 0)
        return;
    if (vault.context().asker.confirm(vault.window(), state::credentialsText::deleteEarlierBackups(count)))
        backups->clearBackups(database);
}

} // namespace

CredentialsDialog* showNewDatabase(Windows& windows)
{
    if (!windows.frontWindow())
        windows.newWindow();
    VaultWindow* front = windows.frontVault();
    CredentialsPage page;
    page.title = state::credentialsText::newDatabaseTitle;
    page.explanation = state::credentialsText::newDatabaseExplanation;
    page.first = state::credentialsText::password;
    page.second = state::credentialsText::confirm;
    page.accept = state::credentialsText::newDatabaseAccept;
    QPointer<VaultWindow> asked = front;
    auto* dialog = new CredentialsDialog(
        page, front->context().asker,
        acceptCredentials([&windows, asked](kdbx::Credentials credentials,
                                            const std::optional<std::filesystem::path>& keyFile) {
            VaultWindow* vault = asked && asked->isEmpty() ? asked.data() : windows.newTab();
            vault->session().setPendingKeyFile(keyFile);
            vault->session().createNew(std::move(credentials));
            windows.bringForward(vault);
        }),
        front);
    dialog->setObjectName(QStringLiteral("newDatabasePage"));
    dialog->showPage();
    return dialog;
}

CredentialsDialog* showChangePassword(VaultWindow& vault)
{
    auto& session = vault.session();
    if (!session.isOpen() || session.isLocked())
        return nullptr;
    CredentialsPage page;
    page.title = state::credentialsText::changeTitle;
    page.explanation = state::credentialsText::changeExplanation;
    page.first = state::credentialsText::newPassword;
    page.second = state::credentialsText::confirm;
    page.accept = state::credentialsText::changeAccept;
    page.keyFile = session.unlockScreen().keyFile;
    QPointer<VaultWindow> target = &vault;
    auto* dialog = new CredentialsDialog(
        page, vault.context().asker,
        acceptCredentials([target](kdbx::Credentials credentials, const std::optional<std::filesystem::path>& keyFile) {
            if (!target || !target->session().changeCredentials(std::move(credentials)))
                return;
            // The unlock screen offers the key file that now goes with the database.
            target->session().setPendingKeyFile(keyFile);
            // Asked once the page has gone, over the window rather than over the page.
            QMetaObject::invokeMethod(
                target.data(), [target] {
                    if (target)
                        offerToDeleteBackups(*target);
                },
                Qt::QueuedConnection);
        }),
        &vault);
    dialog->setObjectName(QStringLiteral("changePasswordPage"));
    QObject::connect(&session, &state::DatabaseSession::lockedChanged, dialog, [dialog](bool locked) {
        if (locked)
            dialog->reject();
    });
    dialog->showPage();
    return dialog;
}

SettingsDialog* showDatabaseSettings(VaultWindow& vault)
{
    auto& session = vault.session();
    if (!session.isOpen() || session.isLocked())
        return nullptr;
    auto* dialog = new SettingsDialog(session, vault.context().preferences, vault.context().asker, &vault);
    dialog->setObjectName(QStringLiteral("databaseSettings"));
    dialog->showPage();
    return dialog;
}

void takeOnDatabasePages(VaultWindow& vault, QObject* page)
{
    vault.setHandler(Command::changePassword, page, [&vault] { showChangePassword(vault); });
    vault.setHandler(Command::databaseSettings, page, [&vault] { showDatabaseSettings(vault); });
}

} // namespace quillon::ui
