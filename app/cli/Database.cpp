#include "app/cli/Database.h"

#include "files/Backups.h"
#include "kdbx/Encoding.h"

#include <ctime>
#include <pthread.h>

namespace quillon::cli {
namespace {

bool looksLikeUuid(std::string_view text)
{
    if (text.size() != 24)
        return false;
    const auto bytes = kdbx::base64Decode(text);
    return bytes && bytes->size() == 16;
}

// The one child group of parent with that name; none when there is none, a failure when it is ambiguous.
std::optional<model::Group> childGroup(const model::Group& parent, std::string_view name, std::string_view path)
{
    std::optional<model::Group> found;
    for (const auto& g : parent.groups()) {
        if (g.name() != name)
            continue;
        if (found)
            throw Failure(std::string(path) + " names more than one group; give its UUID instead.");
        found = g;
    }
    return found;
}

model::Group topGroup(model::Document& document)
{
    auto top = document.topGroup();
    if (!top)
        throw Failure("The database has no top-level group.");
    return *top;
}

std::optional<model::Group> walkGroups(model::Document& document, const std::vector<std::string>& parts,
                                       std::size_t count, std::string_view path)
{
    auto group = topGroup(document);
    for (std::size_t i = 0; i < count; ++i) {
        auto next = childGroup(group, parts[i], path);
        if (!next)
            return std::nullopt;
        group = *next;
    }
    return group;
}

} // namespace

SignalsHeld::SignalsHeld()
{
    sigset_t held;
    sigemptyset(&held);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&held, signal);
    pthread_sigmask(SIG_BLOCK, &held, &previous_);
}

SignalsHeld::~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

OpenDatabase::OpenDatabase(Invocation& call, const std::filesystem::path& path) : call_(call)
{
    checkCredentialOptions(call);
    auto read = files::readDiskBytes(path);
    auto credentials = readCredentials(call);
    auto file = kdbx::KdbxFile::open(std::move(read.bytes), credentials);
    const auto& io = call.io;
    if (!io.backupRoot.empty())
        backups_.emplace(io.backupRoot);
    state::SessionServices services;
    services.backups = backups_ ? &*backups_ : nullptr;
    services.backUpBeforeSaving = [&io] { return !io.backUpBeforeSaving || io.backUpBeforeSaving(); };
    services.keepsLastFile = false; // nothing to compare with in one command
    session_ = std::make_unique<state::DatabaseSession>(std::move(services));
    session_->adopt(path, std::move(file), std::move(credentials), read.stamp);
}

void OpenDatabase::save()
{
    const SignalsHeld held;
    if (session_->save() == files::PreSaveBackup::Outcome::failed)
        call_.io.err << files::couldNotBackUpMessage << '\n';
}

void OpenDatabase::save(kdbx::Credentials credentials)
{
    session_->changeCredentials(std::move(credentials));
    save();
}

std::vector<std::string> splitPath(std::string_view path)
{
    std::vector<std::string> parts;
    while (!path.empty()) {
        const auto slash = path.find('/');
        const auto part = path.substr(0, slash);
        if (!part.empty())
            parts.emplace_back(part);
        if (slash == std::string_view::npos)
            break;
        path.remove_prefix(slash + 1);
    }
    return parts;
}

std::string groupPath(const model::Group& group)
{
    std::vector<std::string_view> names;
    for (auto g = std::optional<model::Group>(group); g && g->parent(); g = g->parent())
        names.push_back(g->name());
    std::string path;
    for (auto it = names.rbegin(); it != names.rend(); ++it) {
        if (!path.empty())
            path += '/';
        path += *it;
    }
    return path;
}

std::string entryPath(const model::Entry& entry)
{
    const auto parent = entry.parent();
    std::string path = parent ? groupPath(*parent) : std::string();
    if (!path.empty())
        path += '/';
    path += entry.title();
    return path;
}

model::Group resolveGroup(model::Document& document, std::string_view path)
{
    const auto parts = splitPath(path);
    if (auto group = walkGroups(document, parts, parts.size(), path))
        return *group;
    if (looksLikeUuid(path))
        if (auto group = document.findGroup(path))
            return *group;
    throw Failure("Group not found: " + std::string(path));
}

std::optional<model::Entry> findEntry(model::Document& document, std::string_view path)
{
    const auto parts = splitPath(path);
    if (!parts.empty()) {
        if (const auto parent = walkGroups(document, parts, parts.size() - 1, path)) {
            std::optional<model::Entry> found;
            for (const auto& e : parent->entries()) {
                if (e.title() != parts.back())
                    continue;
                if (found)
                    throw Failure(std::string(path) + " names more than one entry; give its UUID instead.");
                found = e;
            }
            if (found)
                return found;
        }
    }
    if (looksLikeUuid(path))
        return document.findEntry(path);
    return std::nullopt;
}

model::Entry resolveEntry(model::Document& document, std::string_view path)
{
    if (auto entry = findEntry(document, path))
        return *entry;
    throw Failure("Entry not found: " + std::string(path));
}

NewItemPlace resolveNewItem(model::Document& document, std::string_view path)
{
    auto parts = splitPath(path);
    if (parts.empty())
        throw UsageError("the new item needs a name.");
    const auto parent = walkGroups(document, parts, parts.size() - 1, path);
    if (!parent) {
        std::string parentPath;
        for (std::size_t i = 0; i + 1 < parts.size(); ++i)
            parentPath += (i ? "/" : "") + parts[i];
        throw Failure("Group not found: " + parentPath);
    }
    return {*parent, parts.back()};
}

std::string isoTime(model::Time time)
{
    const std::time_t t = static_cast<std::time_t>(time.time_since_epoch().count());
    std::tm parts{};
    if (!::gmtime_r(&t, &parts))
        return {};
    char text[32];
    if (std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
        return {};
    return text;
}

} // namespace quillon::cli
