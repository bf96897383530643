// ls, show, search and totp: reading a database's groups and entries.
#include "app/cli/Database.h"
#include "model/RecycleBin.h"
#include "model/Search.h"
#include "tools/OtpAuthUri.h"
#include "tools/TOTP.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>

namespace quillon::cli {
namespace {

constexpr std::string_view masked = "[protected]";

struct FieldView {
    std::string_view name;
    std::string_view value;
    bool isProtected = false;
};

// The standard fields in their usual order, then the custom ones in document order.
std::vector<FieldView> fieldsOf(const model::Entry& entry)
{
    std::vector<FieldView> fields;
    for (const auto name : model::standardFieldNames)
        if (const auto value = entry.field(name))
            fields.push_back({name, *value, entry.isFieldProtected(name)});
    for (const auto& f : entry.customFields())
        fields.push_back({f.name, f.value, f.isProtected});
    return fields;
}

struct AttachmentView {
    std::string_view name;
    std::optional<std::size_t> size; // none: the reference points at no binary
};

std::vector<AttachmentView> attachmentsOf(const model::Entry& entry, const kdbx::KdbxFile& file)
{
    std::vector<AttachmentView> out;
    for (const auto b : entry.element().children("Binary")) {
        AttachmentView a{b.child_value("Key"), std::nullopt};
        const auto ref = b.child("Value").attribute("Ref");
        if (!ref.empty() && ref.as_uint(~0u) < file.inner.binaries.size())
            a.size = file.inner.binaries[ref.as_uint()].data.size();
        out.push_back(a);
    }
    return out;
}

void entryJson(Json& j, const model::Entry& entry)
{
    j.beginObject()
        .field("type", "entry")
        .field("path", entryPath(entry))
        .field("title", entry.title())
        .field("userName", entry.userName())
        .field("url", entry.url())
        .field("uuid", entry.uuid())
        .endObject();
}

void groupJson(Json& j, const model::Group& group)
{
    j.beginObject()
        .field("type", "group")
        .field("path", groupPath(group))
        .field("name", group.name())
        .field("uuid", group.uuid())
        .endObject();
}

int ls(Invocation& call)
{
    const auto& args = call.options.arguments;
    OpenDatabase db(call, pathArgument(args[0]));
    const auto start = resolveGroup(db.document(), args.size() > 1 ? args[1] : std::string_view());
    const bool recursive = call.options.has("recursive");
    const bool json = call.options.has("json");

    // Depth-first without recursion (a hostile file may nest groups very deeply): a group's subgroups, each
    // followed by its own contents when recursive, then the group's entries.
    struct Frame {
        std::vector<model::Group> groups;
        std::vector<model::Entry> entries;
        std::size_t next = 0;
        std::size_t depth = 0;
    };
    auto frameOf = [](const model::Group& g, std::size_t depth) { return Frame{g.groups(), g.entries(), 0, depth}; };
    std::vector<Frame> stack;
    stack.push_back(frameOf(start, 0));
    Json j;
    j.beginArray();
    auto& out = call.io.out;
    while (!stack.empty()) {
        Frame& frame = stack.back();
        const std::string indent(frame.depth * 2, ' ');
        if (frame.next < frame.groups.size()) {
            const auto group = frame.groups[frame.next++];
            const auto depth = frame.depth;
            if (json)
                groupJson(j, group);
            else
                out << indent << group.name() << "/\n";
            if (recursive)
                stack.push_back(frameOf(group, depth + 1));
            continue;
        }
        for (const auto& e : frame.entries) {
            if (json)
                entryJson(j, e);
            else
                out << indent << e.title() << '\n';
        }
        stack.pop_back();
    }
    j.endArray();
    if (json)
        writeJson(call, j);
    return exitSuccess;
}


struct OtpCode {
    kdbx::SecureBytes code;
    std::int64_t secondsLeft = 0;
};

// The entry's one-time code now; none when the entry has no "otp" field, a failure when it cannot be read.
std::optional<OtpCode> otpCodeOf(Invocation& call, const model::Entry& entry)
{
    const auto uri = entry.field("otp");
    if (!uri || uri->empty())
        return std::nullopt;
    const auto totp = tools::parseOtp(*uri);
    if (!totp)
        throw Failure("The one-time password settings of " + entryPath(entry) + " cannot be read.");
    const double now = call.io.now ? call.io.now() : tools::secondsSince1970Now();
    return OtpCode{tools::totpCode(*totp, now), tools::secondsLeftInStep(*totp, now)};
}

int show(Invocation& call)
{
    const auto& args = call.options.arguments;
    const bool reveal = call.options.has("show-protected");
    OpenDatabase db(call, pathArgument(args[0]));
    const auto entry = resolveEntry(db.document(), args[1]);
    const auto fields = fieldsOf(entry);
    auto& out = call.io.out;

    // Only the fields asked for, one value a line, for scripts.
    if (const auto wanted = call.options.values("attribute"); !wanted.empty()) {
        kdbx::SecureBytes text;
        for (const auto& name : wanted) {
            const auto it =
                std::find_if(fields.begin(), fields.end(), [&](const FieldView& f) { return f.name == name; });
            if (it == fields.end())
                throw Failure(entryPath(entry) + " has no field " + name + ".");
            if (it->isProtected && !reveal)
                throw Failure(name + " is protected; add --show-protected to print it.");
            text.append(it->value);
            text.push_back('\n');
        }
        writeText(out, text.view());
        return exitSuccess;
    }

    const auto otp = call.options.has("totp") ? otpCodeOf(call, entry) : std::nullopt;
    if (call.options.has("totp") && !otp)
        throw Failure(entryPath(entry) + " has no one-time password.");
    const auto attachments = attachmentsOf(entry, db.kdbx());
    const auto history = entry.history().size();
    const auto created = entry.creationTime();
    const auto modified = entry.lastModificationTime();
    const auto expires = entry.expiry();

    if (call.options.has("json")) {
        Json j;
        j.beginObject().field("uuid", entry.uuid()).field("path", entryPath(entry));
        const auto parent = entry.parent();
        j.field("group", parent ? groupPath(*parent) : std::string());
        j.key("fields").beginArray();
        for (const auto& f : fields) {
            j.beginObject().field("name", f.name).key("value");
            if (f.isProtected && !reveal)
                j.null();
            else
                j.string(f.value);
            j.field("protected", f.isProtected).endObject();
        }
        j.endArray();
        j.key("attachments").beginArray();
        for (const auto& a : attachments) {
            j.beginObject().field("name", a.name).key("size");
            if (a.size)
                j.number(static_cast<std::uint64_t>(*a.size));
            else
                j.null();
            j.endObject();
        }
        j.endArray();
        auto time = [&](std::string_view key, const std::optional<model::Time>& t) {
            j.key(key);
            if (t)
                j.string(isoTime(*t));
            else
                j.null();
        };
        time("created", created);
        time("modified", modified);
        time("expires", expires);
        j.field("historyVersions", static_cast<std::uint64_t>(history));
        if (otp) {
            j.key("totp").beginObject().field("code", otp->code.view()).field("secondsLeft", otp->secondsLeft);
            j.endObject();
        }
        j.endObject();
        writeJson(call, j);
        return exitSuccess;
    }

    kdbx::SecureBytes text;
    for (const auto& f : fields) {
        text.append(f.name);
        text.append(": ");
        text.append(f.isProtected && !reveal ? masked : f.value);
        text.push_back('\n');
    }
    writeText(out, text.view());
    text.wipe();
    for (const auto& a : attachments)
        out << "Attachment: " << a.name << " (" << (a.size ? std::to_string(*a.size) + " bytes" : "missing") << ")\n";
    out << "UUID: " << entry.uuid() << '\n';
    if (created)
        out << "Created: " << isoTime(*created) << '\n';
    if (modified)
        out << "Modified: " << isoTime(*modified) << '\n';
    out << "Expires: " << (expires ? isoTime(*expires) : "never") << '\n';
    out << "History: " << history << (history == 1 ? " version" : " versions") << '\n';
    if (otp) {
        out << "TOTP: ";
        writeText(out, otp->code.view());
        out << " (" << otp->secondsLeft << " s left)\n";
    }
    return exitSuccess;
}

std::optional<model::SearchScope> scopeNamed(std::string_view name)
{
    using model::SearchScope;
    const std::pair<std::string_view, SearchScope> names[] = {
        {"everywhere", SearchScope::everywhere}, {"title", SearchScope::title}, {"username", SearchScope::username},
        {"url", SearchScope::url},               {"notes", SearchScope::notes}, {"password", SearchScope::password}};
    for (const auto& [n, scope] : names)
        if (n == name)
            return scope;
    return std::nullopt;
}

int search(Invocation& call)
{
    const auto& args = call.options.arguments;
    auto scope = model::SearchScope::everywhere;
    if (const auto name = call.options.value("scope")) {
        const auto found = scopeNamed(*name);
        if (!found)
            throw UsageError("--scope is one of everywhere, title, username, url, notes, password.");
        scope = *found;
    }
    kdbx::SecureBytes text;
    for (std::size_t i = 1; i < args.size(); ++i) {
        if (i > 1)
            text.push_back(' ');
        text.append(args[i]);
    }
    if (model::parseQuery(text.view(), scope).terms.empty())
        throw UsageError("nothing to search for.");
    OpenDatabase db(call, pathArgument(args[0]));
    const auto found = model::entriesToList(db.document(), std::nullopt, text.view(), scope);
    if (call.options.has("json")) {
        Json j;
        j.beginArray();
        for (const auto& e : found)
            entryJson(j, e);
        j.endArray();
        writeJson(call, j);
        return exitSuccess;
    }
    for (const auto& e : found)
        call.io.out << entryPath(e) << '\n';
    return exitSuccess;
}

int totp(Invocation& call)
{
    const auto& args = call.options.arguments;
    OpenDatabase db(call, pathArgument(args[0]));
    const auto entry = resolveEntry(db.document(), args[1]);
    const auto otp = otpCodeOf(call, entry);
    if (!otp)
        throw Failure(entryPath(entry) + " has no one-time password.");
    writeText(call.io.out, otp->code.view());
    call.io.out << '\n';
    if (call.options.has("seconds-left"))
        call.io.err << otp->secondsLeft << " s left\n";
    return exitSuccess;
}

} // namespace

void addBrowseCommands(std::vector<CommandDefinition>& table)
{
    table.push_back({"ls", "DATABASE [GROUP]", "List a group's subgroups (ending in \"/\") and entries.",
                     withOptions({credentialOptions(),
                                  {{"recursive", 'R', {}, "list every group below, indented"}, jsonOption}}),
                     1, 2, ls,
                     "GROUP is a path from the top group (\"Work/Servers\"), or a UUID; without it, the top group."});
    table.push_back({"show", "DATABASE ENTRY", "Show an entry's fields, attachments and times.",
                     withOptions({credentialOptions(),
                                  {{"show-protected", 0, {}, "print protected values (passwords) in the clear"},
                                   {"attribute", 'a', "FIELD", "print only this field's value (may be repeated)"},
                                   {"totp", 0, {}, "also print the current one-time code"},
                                   jsonOption}}),
                     2, 2, show,
                     "ENTRY is \"Group/Sub/Title\" or the entry's UUID. Protected values are shown as\n"
                     "[protected] (null in JSON) unless --show-protected is given."});
    table.push_back({"search", "DATABASE TERMS...", "Find entries holding every term (case ignored).",
                     withOptions({credentialOptions(),
                                  {{"scope", 0, "SCOPE",
                                    "everywhere (default), title, username, url, notes or password"},
                                   jsonOption}}),
                     2, SIZE_MAX, search,
                     "The terms are joined with spaces and read as in the search field: \"quoted words\" form one\n"
                     "term. Passwords are searched only with --scope password; the Recycle Bin, groups with\n"
                     "searching turned off and history versions are never searched."});
    table.push_back({"totp", "DATABASE ENTRY", "Print the entry's current one-time password.",
                     withOptions({credentialOptions(),
                                  {{"seconds-left", 0, {},
                                    "also print the seconds until it changes, on standard error"}}}),
                     2, 2, totp});
}

} // namespace quillon::cli
