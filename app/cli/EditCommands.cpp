// add, edit, rm, mkdir and mv: changing a database's entries and groups, each saved at once.
#include "app/cli/Database.h"
#include "model/History.h"
#include "model/Moves.h"
#include "model/RecycleBin.h"
#include "tools/OtpAuthUri.h"
#include "tools/PasswordGenerator.h"

#include <algorithm>
#include <limits>

namespace quillon::cli {
namespace {

const std::vector<OptionDefinition>& entryFieldOptions()
{
    static const std::vector<OptionDefinition> options = {
        {"username", 'u', "TEXT", "the user name"},
        {"url", 0, "URL", "the URL"},
        {"notes", 0, "TEXT", "the notes"},
        {"password-prompt", 'p', {},
         "ask for the entry's password (the next line of standard input with --password-stdin)"},
        {"generate", 'g', {}, "give the entry a generated password"},
        {"length", 'L', "N", "length of the generated password (default 20, kept within 4..1024)"},
    };
    return options;
}

// The entry's new password from -p or -g, when one of them was given.
std::optional<kdbx::SecureBytes> newEntryPassword(Invocation& call)
{
    const auto& o = call.options;
    if (o.has("password-prompt") && o.has("generate"))
        throw UsageError("give --password-prompt or --generate, not both.");
    if (o.has("generate")) {
        constexpr std::int64_t any = std::numeric_limits<std::int32_t>::max();
        const auto length = std::clamp<std::int64_t>(o.integer("length", -any, any).value_or(20), 4, 1024);
        return tools::characterPassword(static_cast<std::size_t>(length));
    }
    if (o.has("password-prompt"))
        return readNewSecret(call, "Entry password: ", "Repeat entry password: ");
    return std::nullopt;
}

int add(Invocation& call)
{
    const auto& args = call.options.arguments;
    OpenDatabase db(call, pathArgument(args[0]));
    const auto place = resolveNewItem(db.document(), args[1]);
    for (const auto& e : place.parent.entries())
        if (e.title() == place.name)
            throw Failure("An entry named " + place.name + " already exists in that group. Nothing was changed.");
    const auto password = newEntryPassword(call);

    const auto& o = call.options;
    std::vector<state::FieldEdit> fields;
    std::vector<std::string> texts; // keeps the option values alive while fields point into them
    texts.reserve(3);
    for (const auto& [option, field] : {std::pair("username", "UserName"), {"url", "URL"}, {"notes", "Notes"}})
        if (const auto v = o.value(option)) {
            texts.push_back(*v);
            fields.push_back({field, texts.back(), false});
        }
    if (password)
        fields.push_back({"Password", password->view(), true});
    const auto entry = db.session().newEntry(place.parent, place.name, fields);
    db.save();
    call.io.out << "Added entry " << entryPath(*entry) << ".\n";
    return exitSuccess;
}

int edit(Invocation& call)
{
    const auto& args = call.options.arguments;
    const auto& o = call.options;
    if (!o.has("title") && !o.has("username") && !o.has("url") && !o.has("notes") && !o.has("password-prompt") &&
        !o.has("generate") && !o.has("otp"))
        throw UsageError("nothing to change; see --help for the fields.");
    OpenDatabase db(call, pathArgument(args[0]));
    const auto entry = resolveEntry(db.document(), args[1]);
    if (const auto title = o.value("title"); title && *title != entry.title()) {
        const auto parent = entry.parent();
        for (const auto& e : parent ? parent->entries() : std::vector<model::Entry>{})
            if (e.title() == *title)
                throw Failure("An entry named " + *title + " already exists in that group. Nothing was changed.");
    }
    const auto password = newEntryPassword(call);
    std::optional<kdbx::SecureBytes> otpText;
    if (o.has("otp"))
        otpText = readNewSecret(call, "One-time password URI or secret: ", "Repeat it: ");

    // Each field with the protection the entry editor gives it; the entry's present state goes into its history
    // once for the whole command.
    std::vector<state::FieldEdit> changes;
    const std::pair<const char*, const char*> plain[] = {
        {"title", "Title"}, {"username", "UserName"}, {"url", "URL"}, {"notes", "Notes"}};
    std::vector<std::string> texts; // keeps the option values alive while changes point into them
    texts.reserve(std::size(plain));
    for (const auto& [option, field] : plain)
        if (const auto v = o.value(option)) {
            texts.push_back(*v);
            changes.push_back({field, texts.back(), std::string_view(field) == "Notes" && entry.notesProtected()});
        }
    if (password)
        changes.push_back({"Password", password->view(), true});
    std::optional<kdbx::SecureBytes> otpValue;
    if (otpText) {
        otpValue = tools::otpFieldValue(otpText->view());
        changes.push_back({"otp", otpValue ? std::optional(otpValue->view()) : std::nullopt, true});
    }
    if (!db.session().editFields(entry, changes)) {
        call.io.out << "Nothing changed.\n";
        return exitSuccess;
    }
    db.save();
    call.io.out << "Edited entry " << entryPath(entry) << ".\n";
    return exitSuccess;
}

// An entry unless the path ends in "/" or names only a group.
struct Item {
    std::optional<model::Entry> entry;
    std::optional<model::Group> group;
};

Item resolveItem(model::Document& document, std::string_view path)
{
    if (!path.ends_with('/'))
        if (auto entry = findEntry(document, path))
            return {entry, std::nullopt};
    return {std::nullopt, resolveGroup(document, path)};
}

int rm(Invocation& call)
{
    const auto& args = call.options.arguments;
    OpenDatabase db(call, pathArgument(args[0]));
    const auto item = resolveItem(db.document(), args[1]);
    const std::string shown = item.entry ? entryPath(*item.entry) : groupPath(*item.group);
    const auto bin = model::findBin(db.document());
    const bool isBin = item.group && bin && item.group->sameItem(*bin);
    auto& session = db.session();
    const auto result = item.entry ? session.deleteEntry(*item.entry)
                        : isBin    ? session.emptyBin()
                                   : session.deleteGroup(*item.group);
    if (const auto refusal = model::refusalText(result); !refusal.empty())
        throw Failure(std::string(refusal));
    db.save();
    if (result == model::DeleteResult::movedToBin)
        call.io.out << model::movedToBinStatus << ": " << shown << '\n';
    else
        call.io.out << "Deleted permanently: " << shown << '\n';
    return exitSuccess;
}

int mkdir(Invocation& call)
{
    const auto& args = call.options.arguments;
    OpenDatabase db(call, pathArgument(args[0]));
    const auto place = resolveNewItem(db.document(), args[1]);
    for (const auto& g : place.parent.groups())
        if (g.name() == place.name)
            throw Failure("A group named " + place.name + " already exists there. Nothing was changed.");
    const auto group = *db.session().newGroup(place.parent, place.name);
    db.save();
    call.io.out << "Added group " << groupPath(group) << ".\n";
    return exitSuccess;
}

int mv(Invocation& call)
{
    const auto& args = call.options.arguments;
    OpenDatabase db(call, pathArgument(args[0]));
    const auto item = resolveItem(db.document(), args[1]);
    const auto target = resolveGroup(db.document(), args[2]);
    const std::string path = item.entry ? entryPath(*item.entry) : groupPath(*item.group);
    auto result = model::MoveResult::refused;
    if (item.entry) {
        result = db.session().moveEntry(*item.entry, target);
    } else {
        if (!model::canMoveGroup(*item.group, target))
            throw Failure(path + " can't be moved into " +
                          (groupPath(target).empty() ? "the top group" : groupPath(target)) + ".");
        const auto parent = item.group->parent();
        if (!(parent && parent->sameItem(target)))
            result = db.session().moveGroup(*item.group, target);
    }
    switch (result) {
    case model::MoveResult::refused:
        call.io.out << "Nothing changed.\n";
        return exitSuccess;
    case model::MoveResult::moved:
        db.save();
        call.io.out << "Moved " << path << ".\n";
        return exitSuccess;
    case model::MoveResult::movedToBin:
        db.save();
        call.io.out << model::movedToBinStatus << ": " << path << '\n';
        return exitSuccess;
    case model::MoveResult::deletedPermanently:
        db.save();
        call.io.out << "Deleted permanently: " << path << '\n';
        return exitSuccess;
    }
    return exitSuccess;
}

} // namespace

void addEditCommands(std::vector<CommandDefinition>& table)
{
    table.push_back({"add", "DATABASE ENTRY", "Add an entry; ENTRY is \"Group/Sub/Title\".",
                     withOptions({credentialOptions(), entryFieldOptions()}), 2, 2, add,
                     "The group must exist, and hold no entry of that title yet. Passwords never come from the\n"
                     "command line: use -p (asked on the terminal, or read from standard input with\n"
                     "--password-stdin, after the database's own) or -g."});
    table.push_back({"edit", "DATABASE ENTRY", "Change an entry's fields, keeping the old values in its history.",
                     withOptions({credentialOptions(),
                                  {{"title", 't', "TEXT", "the new title"}},
                                  entryFieldOptions(),
                                  {{"otp", 0, {}, "set the one-time password from an otpauth URI or base32 secret "
                                                  "(asked like a password; an empty line removes it)"}}}),
                     2, 2, edit});
    table.push_back({"rm", "DATABASE PATH", "Move an entry or group to the Recycle Bin (deleted for good there).",
                     credentialOptions(), 2, 2, rm,
                     "An item already in the Recycle Bin, or any item when the bin is turned off, is deleted\n"
                     "permanently and recorded as deleted. Removing the Recycle Bin itself empties it. A path\n"
                     "ending in \"/\" names a group."});
    table.push_back({"mkdir", "DATABASE GROUP", "Add a group; its parent must exist.", credentialOptions(), 2, 2,
                     mkdir});
    table.push_back({"mv", "DATABASE PATH GROUP", "Move an entry or group into another group.", credentialOptions(),
                     3, 3, mv,
                     "Moving onto the Recycle Bin deletes as rm does. A group never moves into itself or below\n"
                     "itself, and the top group and the Recycle Bin stay where they are."});
}

} // namespace quillon::cli
