#include "ui/MenuTable.h"

namespace quillon::ui {
namespace {

using K = QKeySequence;
constexpr bool later = false; // built with the browsing and saving windows

// clang-format off
constexpr MenuItem table[] = {
    {"",        "Hide %1",                 Command::hide,             "Ctrl+H",         K::UnknownKey, false, true},
    {"",        "Quit %1",                 Command::terminate,        "Ctrl+Q",         K::Quit},
    {"File",    "New Window",              Command::newWindow,        "Ctrl+N",         K::New},
    {"File",    "New Tab",                 Command::newTab,           "Ctrl+T",         K::AddTab},
    {"File",    "New Database",            Command::newDatabase,      "Ctrl+Shift+N",   K::UnknownKey, false, true},
    {"File",    "Open Database…",          Command::openDatabase,     "Ctrl+O",         K::Open},
    {"File",    "Open Recent",             Command::openRecent,       "",               K::UnknownKey, false, true},
    {"File",    "Close Window",            Command::performClose,     "Ctrl+W",         K::Close},
    {"File",    "Save",                    Command::saveDatabase,     "Ctrl+S",         K::Save,       false, false},
    {"File",    "Save As…",                Command::saveDatabaseAs,   "Ctrl+Shift+S",   K::SaveAs,     false, true},
    {"File",    "Review Changes…",         Command::reviewChanges,    "",               K::UnknownKey, false, false},
    {"File",    "Merge Changes From Disk…", Command::mergeFromDisk,   "",               K::UnknownKey, false, false},
    {"File",    "Merge From Database…",    Command::mergeFromDatabase, "",              K::UnknownKey, false, true},
    {"File",    "Database Settings…",      Command::databaseSettings, "Ctrl+,"},
    {"File",    "Change Password…",        Command::changePassword,   ""},
    {"File",    "Lock Database",           Command::lockDatabase,     "Ctrl+L"},
    {"File",    "Back Up Before Saving",   Command::toggleBackups,    "",               K::UnknownKey, true},
    {"File",    "Show Backups in File Manager", Command::showBackups, "",               K::UnknownKey, false, false},
    {"Edit",    "Undo",                    Command::undo,             "Ctrl+Z",         K::Undo},
    {"Edit",    "Redo",                    Command::redo,             "Ctrl+Shift+Z",   K::Redo,       false, true},
    {"Edit",    "Cut",                     Command::cut,              "Ctrl+X",         K::Cut},
    {"Edit",    "Copy",                    Command::copy,             "Ctrl+C",         K::Copy},
    {"Edit",    "Paste",                   Command::paste,            "Ctrl+V",         K::Paste},
    {"Edit",    "Select All",              Command::selectAll,        "Ctrl+A",         K::SelectAll,  false, true},
    {"Edit",    "Find",                    Command::focusSearch,      "Ctrl+F",         K::Find,       false, false},
    {"Entries", "New Entry",               Command::addEntry,         "Ctrl+E",         K::UnknownKey, false, false},
    {"Entries", "New Group",               Command::addGroup,         "Ctrl+G",         K::UnknownKey, false, true},
    {"Entries", "Copy Password",           Command::copyPassword,     "Ctrl+Shift+C",   K::UnknownKey, false, false},
    {"Entries", "Copy Username",           Command::copyUsername,     "Ctrl+Shift+B",   K::UnknownKey, false, false},
    {"Entries", "Open URL",                Command::openURL,          "Ctrl+U",         K::UnknownKey, false, false},
    {"Entries", "Delete Entry",            Command::deleteEntry,      "Ctrl+Backspace", K::UnknownKey, false, false},
    {"Entries", "Delete Group",            Command::deleteGroup,      "",               K::UnknownKey, false, false},
    {"Entries", "Restore from Recycle Bin", Command::restoreItem,     "",               K::UnknownKey, false, false},
    {"View",    "Wrap Notes",              Command::toggleNotesWrap,  "",               K::UnknownKey, true},
    {"Window",  "Minimize",                Command::performMiniaturize, "Ctrl+M"},
    {"Window",  "Zoom",                    Command::performZoom,      ""},
};
// clang-format on

constexpr const char* names[] = {
    "hide", "terminate",
    "newWindow", "newTab", "newDatabase", "openDatabase", "openRecent", "performClose", "saveDatabase",
    "saveDatabaseAs", "reviewChanges", "mergeFromDisk", "mergeFromDatabase", "databaseSettings", "changePassword", "lockDatabase", "toggleBackups", "showBackups",
    "undo", "redo", "cut", "copy", "paste", "selectAll", "focusSearch",
    "addEntry", "addGroup", "copyPassword", "copyUsername", "openURL", "deleteEntry", "deleteGroup", "restoreItem",
    "toggleNotesWrap",
    "performMiniaturize", "performZoom",
};
static_assert(std::size(names) == static_cast<std::size_t>(Command::performZoom) + 1);

} // namespace

std::span<const MenuItem> menuTable()
{
    return table;
}

const char* commandName(Command command)
{
    return names[static_cast<std::size_t>(command)];
}

} // namespace quillon::ui
