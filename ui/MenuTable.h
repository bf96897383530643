// ui/MenuTable.h: every item, key and separator of the main menu, as data.
#pragma once

#include <QKeySequence>
#include <QString>

#include <cstdint>
#include <span>

namespace quillon::ui {

// The menu's commands; names() gives each its action name.
enum class Command : std::uint8_t {
    hide, terminate,
    newWindow, newTab, newDatabase, openDatabase, openRecent, performClose, saveDatabase, saveDatabaseAs,
    reviewChanges, mergeFromDisk, mergeFromDatabase,
    databaseSettings, changePassword, lockDatabase, toggleBackups, showBackups,
    undo, redo, cut, copy, paste, selectAll, focusSearch,
    addEntry, addGroup, copyPassword, copyUsername, openURL, deleteEntry, deleteGroup, restoreItem,
    toggleNotesWrap,
    performMiniaturize, performZoom,
};

struct MenuItem {
    const char* menu;  // "" for the application's own menu, titled with its name
    const char* title; // "%1" stands for the application's name
    Command command;
    // Ctrl (Command on macOS) and the rest, in portable text; empty for none.
    const char* key = "";
    // Further keys Qt's platform theme binds to the same work (Ctrl+F4 for Close on Linux, …).
    QKeySequence::StandardKey standardKey = QKeySequence::UnknownKey;
    bool checkable = false;
    bool separatorAfter = false;
    // False while the work behind the item is not built: the item shows, disabled.
    bool available = true;
};

std::span<const MenuItem> menuTable();
// The action's name, as the handler is called ("lockDatabase").
const char* commandName(Command command);

} // namespace quillon::ui
