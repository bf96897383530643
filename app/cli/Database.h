// app/cli/Database.h: a database opened by a command, its items named by path, and saving it back.
#pragma once

#include "app/cli/Command.h"
#include "files/Backups.h"
#include "files/DatabaseFile.h"
#include "model/Document.h"
#include "model/Entry.h"
#include "model/Group.h"
#include "state/DatabaseSession.h"

#include <csignal>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::cli {

// While alive, Ctrl-C and the other terminating signals wait: a save interrupted between writing its temporary
// file and the rename would leave that file behind. On destruction a signal that arrived meanwhile ends the
// process with its default action, the file on disk whole.
class SignalsHeld {
public:
    SignalsHeld();
    ~SignalsHeld();
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t previous_;
};

// A command's database: the file (and its stamp) is read first, then the credentials are asked for, then it is
// decoded into a session, through which every change is made. A command that writes saves through the session's
// conflict-checked writer, so a change another program made since the read is never overwritten.
class OpenDatabase {
public:
    OpenDatabase(Invocation& call, const std::filesystem::path& path);
    OpenDatabase(const OpenDatabase&) = delete;
    OpenDatabase& operator=(const OpenDatabase&) = delete;

    state::DatabaseSession& session() noexcept { return *session_; }
    model::Document& document() noexcept { return session_->document(); }
    kdbx::KdbxFile& kdbx() noexcept { return session_->kdbx(); }
    const kdbx::Credentials& credentials() const noexcept { return *session_->credentials(); }
    const std::filesystem::path& location() const noexcept { return *session_->location(); }

    // With a backup of the file as it was, unless the user turned backups off; signals wait meanwhile.
    void save();
    // New credentials first, then the save.
    void save(kdbx::Credentials credentials);

private:
    Invocation& call_;
    std::optional<files::Backups> backups_;
    std::unique_ptr<state::DatabaseSession> session_;
};

// Paths name groups and entries from the top group down, "Group/Sub/Title"; the top group is "" or "/",
// empty components are ignored. When no item has the path, the text is tried as a UUID, which also reaches
// items whose names hold "/" or that share a name with a sibling.
std::vector<std::string> splitPath(std::string_view path);
std::string groupPath(const model::Group& group);
std::string entryPath(const model::Entry& entry);
model::Group resolveGroup(model::Document& document, std::string_view path);
model::Entry resolveEntry(model::Document& document, std::string_view path);
std::optional<model::Entry> findEntry(model::Document& document, std::string_view path);

// Where a new item goes: its parent group (which must exist) and its name (the last component).
struct NewItemPlace {
    model::Group parent;
    std::string name;
};
NewItemPlace resolveNewItem(model::Document& document, std::string_view path);

// "2024-05-01T13:07:42Z"; empty for a time outside what the calendar functions handle.
std::string isoTime(model::Time time);

} // namespace quillon::cli
