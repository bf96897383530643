// ui/DatabasePages.h: New Database…, Change Password… and Database Settings…: the pages and what follows them.
#pragma once

class QObject;

namespace quillon::ui {

class CredentialsDialog;
class SettingsDialog;
class VaultWindow;
class Windows;

// The new database opens unlocked as "Untitled", unsaved, in the front vault window when that is empty, else
// in a new tab beside it.
CredentialsDialog* showNewDatabase(Windows& windows);
// Replaces the credentials in memory as one command, then offers to delete the earlier backups that still
// open with the old password.
CredentialsDialog* showChangePassword(VaultWindow& vault);
SettingsDialog* showDatabaseSettings(VaultWindow& vault);

// The unlocked page takes on Change Password… and Database Settings… for as long as it lives.
void takeOnDatabasePages(VaultWindow& vault, QObject* page);

} // namespace quillon::ui
