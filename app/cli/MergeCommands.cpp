// diff and merge: what changed between two copies of a database, and bringing one copy's changes into the other.
#include "app/cli/Database.h"
#include "files/DatabaseFile.h"
#include "files/SecretFile.h"
#include "model/Diff.h"
#include "model/Merge.h"

#include <string>

namespace quillon::cli {
namespace {

const std::vector<OptionDefinition>& otherCredentialOptions()
{
    static const std::vector<OptionDefinition> options = {
        {"other-key-file", 0, "PATH", "unlock the second database with this key file"},
        {"other-no-password", 0, {}, "the second database has no password (needs --other-key-file)"},
        {"same-credentials", 0, {}, "the second database unlocks with the first one's credentials"},
    };
    return options;
}

void checkOtherCredentialOptions(const Invocation& call)
{
    checkCredentialOptions(call);
    const auto& o = call.options;
    if (o.has("other-no-password") && !o.has("other-key-file"))
        throw UsageError("--other-no-password needs --other-key-file.");
    if (o.has("same-credentials") && (o.has("other-key-file") || o.has("other-no-password")))
        throw UsageError("give --same-credentials or the other database's own options, not both.");
}

// The second database's credentials, asked after the first's: the next line of standard input with
// --password-stdin, else the terminal, naming the file.
kdbx::Credentials otherCredentials(Invocation& call, const kdbx::Credentials& first, const std::filesystem::path& path)
{
    const auto& o = call.options;
    if (o.has("same-credentials"))
        return first.copy();
    kdbx::Credentials credentials;
    if (const auto keyFile = o.value("other-key-file"))
        credentials.keyFile = files::readSecretFile(pathArgument(*keyFile));
    if (o.has("other-no-password"))
        return credentials;
    if (o.has("password-stdin")) {
        credentials.password = readSecretLine(call.io.in);
        return credentials;
    }
    const std::string prompt = "Password for " + path.filename().string() + ": ";
    auto typed = call.io.promptTerminal ? call.io.promptTerminal(prompt) : std::nullopt;
    if (!typed)
        throw Failure("No terminal to read a password from.");
    credentials.password = std::move(*typed);
    return credentials;
}

std::string quoted(const std::optional<kdbx::SecureBytes>& text)
{
    if (!text)
        return "(protected)";
    std::string out = "\"";
    for (const char c : text->view()) {
        if (c == '\n')
            out += "\\n";
        else if (c == '"' || c == '\\')
            out += std::string{'\\', c};
        else
            out += c;
    }
    return out + "\"";
}

std::string where(const std::string& path, const std::string& name)
{
    return path.empty() ? name : path + "/" + name;
}

std::string timeText(const std::optional<model::Time>& t)
{
    return t ? isoTime(*t) : std::string("none");
}

std::string_view changeWord(model::ItemChange change)
{
    switch (change) {
    case model::ItemChange::added:
        return "added";
    case model::ItemChange::removed:
        return "removed";
    case model::ItemChange::changed:
        return "changed";
    }
    return {};
}

// The outer header's settings, which the document does not hold.
void compareHeaders(const kdbx::OuterHeader& a, const kdbx::OuterHeader& b, std::vector<model::SettingChange>& out)
{
    auto add = [&](std::string name, std::string before, std::string after) {
        if (before != after)
            out.push_back({std::move(name), std::move(before), std::move(after)});
    };
    add("Cipher", cipherName(a.cipher), cipherName(b.cipher));
    add("KeyDerivation", kdfName(a.kdf), kdfName(b.kdf));
    auto number = [](const kdbx::VariantDictionary& kdf, const char* key) {
        if (const auto* v = kdf.get<std::uint64_t>(key))
            return std::to_string(*v);
        if (const auto* v = kdf.get<std::uint32_t>(key))
            return std::to_string(*v);
        return std::string();
    };
    for (const auto* key : {"M", "I", "P", "R"})
        add(std::string("KeyDerivation.") + key, number(a.kdf, key), number(b.kdf, key));
    add("Compression", a.compressed ? "gzip" : "none", b.compressed ? "gzip" : "none");
}

void printDiffText(std::ostream& out, const model::Diff& d)
{
    if (d.empty()) {
        out << "No differences.\n";
        return;
    }
    for (const auto& g : d.groups) {
        const char mark = g.change == model::ItemChange::added ? '+' : g.change == model::ItemChange::removed ? '-' : '~';
        out << mark << " group " << where(g.path, g.name);
        if (g.deletedAt)
            out << " (deleted " << isoTime(*g.deletedAt) << ")";
        out << '\n';
        if (g.renamed)
            out << "    renamed from \"" << g.oldName << "\"\n";
        if (g.moved)
            out << "    moved from " << (g.movedFrom.empty() ? "the top group" : g.movedFrom) << '\n';
        for (const auto& other : g.otherChanged)
            out << "    " << other << " changed\n";
    }
    for (const auto& e : d.entries) {
        const char mark = e.change == model::ItemChange::added ? '+' : e.change == model::ItemChange::removed ? '-' : '~';
        out << mark << ' ' << where(e.path, e.title);
        if (e.deletedAt)
            out << " (deleted " << isoTime(*e.deletedAt) << ")";
        out << '\n';
        if (e.moved)
            out << "    moved from " << (e.movedFrom.empty() ? "the top group" : e.movedFrom) << '\n';
        for (const auto& f : e.fields) {
            out << "    " << f.name << ": ";
            if (f.change == model::ItemChange::added)
                out << "added " << quoted(f.after);
            else if (f.change == model::ItemChange::removed)
                out << "removed " << quoted(f.before);
            else if (f.isProtected && !f.after)
                out << "changed (protected)";
            else
                out << quoted(f.before) << " -> " << quoted(f.after);
            out << '\n';
        }
        for (const auto& a : e.attachmentsAdded)
            out << "    attachment added: " << a << '\n';
        for (const auto& a : e.attachmentsRemoved)
            out << "    attachment removed: " << a << '\n';
        for (const auto& a : e.attachmentsChanged)
            out << "    attachment changed: " << a << '\n';
        if (e.expiryChanged)
            out << "    expiry: " << timeText(e.expiryBefore) << " -> " << timeText(e.expiryAfter) << '\n';
        if (e.oneTimeChanged)
            out << "    one-time password settings changed\n";
        if (e.historyAdded > 0)
            out << "    " << e.historyAdded << (e.historyAdded == 1 ? " history version" : " history versions")
                << " added\n";
        for (const auto& other : e.otherChanged)
            out << "    " << other << " changed\n";
    }
    for (const auto& s : d.settings)
        out << "~ setting " << s.name << ": \"" << s.before << "\" -> \"" << s.after << "\"\n";
}

void optionalText(Json& j, std::string_view key, const std::optional<kdbx::SecureBytes>& text)
{
    j.key(key);
    if (text)
        j.string(text->view());
    else
        j.null();
}

void optionalTime(Json& j, std::string_view key, const std::optional<model::Time>& t)
{
    j.key(key);
    if (t)
        j.string(isoTime(*t));
    else
        j.null();
}

void stringArray(Json& j, std::string_view key, const std::vector<std::string>& items)
{
    j.key(key).beginArray();
    for (const auto& i : items)
        j.string(i);
    j.endArray();
}

Json diffJson(const model::Diff& d)
{
    Json j;
    j.beginObject().key("groups").beginArray();
    for (const auto& g : d.groups) {
        j.beginObject().field("uuid", g.uuid).field("name", g.name).field("path", g.path);
        j.field("change", changeWord(g.change));
        optionalTime(j, "deletedAt", g.deletedAt);
        j.field("moved", g.moved).field("movedFrom", g.movedFrom).field("renamed", g.renamed);
        j.field("oldName", g.oldName);
        stringArray(j, "otherChanged", g.otherChanged);
        j.endObject();
    }
    j.endArray().key("entries").beginArray();
    for (const auto& e : d.entries) {
        j.beginObject().field("uuid", e.uuid).field("title", e.title).field("path", e.path);
        j.field("change", changeWord(e.change));
        optionalTime(j, "deletedAt", e.deletedAt);
        j.field("moved", e.moved).field("movedFrom", e.movedFrom);
        j.key("fields").beginArray();
        for (const auto& f : e.fields) {
            j.beginObject().field("name", f.name).field("change", changeWord(f.change));
            j.field("protected", f.isProtected);
            optionalText(j, "before", f.before);
            optionalText(j, "after", f.after);
            j.endObject();
        }
        j.endArray();
        stringArray(j, "attachmentsAdded", e.attachmentsAdded);
        stringArray(j, "attachmentsRemoved", e.attachmentsRemoved);
        stringArray(j, "attachmentsChanged", e.attachmentsChanged);
        j.field("expiryChanged", e.expiryChanged);
        optionalTime(j, "expiryBefore", e.expiryBefore);
        optionalTime(j, "expiryAfter", e.expiryAfter);
        j.field("oneTimeChanged", e.oneTimeChanged).field("historyAdded", std::uint64_t{e.historyAdded});
        stringArray(j, "otherChanged", e.otherChanged);
        j.endObject();
    }
    j.endArray().key("settings").beginArray();
    for (const auto& s : d.settings)
        j.beginObject().field("name", s.name).field("before", s.before).field("after", s.after).endObject();
    j.endArray().endObject();
    return j;
}

int diffCommand(Invocation& call)
{
    const auto& o = call.options;
    checkOtherCredentialOptions(call);
    const auto beforePath = pathArgument(o.arguments[0]);
    const auto afterPath = pathArgument(o.arguments[1]);
    // Both read before anyone types a password, so a wrong path costs nothing.
    auto beforeBytes = files::readDiskBytes(beforePath);
    auto afterBytes = files::readDiskBytes(afterPath);
    const auto credentials = readCredentials(call);
    const auto before = kdbx::KdbxFile::open(std::move(beforeBytes.bytes), credentials);
    const auto afterCredentials = otherCredentials(call, credentials, afterPath);
    const auto after = kdbx::KdbxFile::open(std::move(afterBytes.bytes), afterCredentials);

    model::Document beforeDoc(before->document);
    model::Document afterDoc(after->document);
    auto d = model::diff({beforeDoc, &before->inner.binaries}, {afterDoc, &after->inner.binaries},
                         {o.has("show-protected")});
    compareHeaders(before->header, after->header, d.settings);
    if (o.has("json"))
        writeJson(call, diffJson(d));
    else
        printDiffText(call.io.out, d);
    return exitSuccess;
}

std::string_view eventName(model::MergeEvent event)
{
    switch (event) {
    case model::MergeEvent::entryAdded:
        return "entryAdded";
    case model::MergeEvent::entryUpdated:
        return "entryUpdated";
    case model::MergeEvent::entryConflict:
        return "entryConflict";
    case model::MergeEvent::entryDeleted:
        return "entryDeleted";
    case model::MergeEvent::entryKept:
        return "entryKept";
    case model::MergeEvent::entryMoved:
        return "entryMoved";
    case model::MergeEvent::entryToBin:
        return "entryToBin";
    case model::MergeEvent::groupAdded:
        return "groupAdded";
    case model::MergeEvent::groupUpdated:
        return "groupUpdated";
    case model::MergeEvent::groupDeleted:
        return "groupDeleted";
    case model::MergeEvent::groupKept:
        return "groupKept";
    case model::MergeEvent::groupMoved:
        return "groupMoved";
    case model::MergeEvent::groupToBin:
        return "groupToBin";
    case model::MergeEvent::settingChanged:
        return "settingChanged";
    }
    return {};
}

void printSummaryText(std::ostream& out, const model::MergeSummary& s)
{
    for (const auto& line : s.lines)
        out << "  " << model::describe(line.event) << ": " << line.name << '\n';
    out << "Entries: " << s.entriesAdded << " added, " << s.entriesUpdated << " updated, " << s.conflicts
        << " changed in both, " << s.entriesDeleted << " deleted, " << s.entriesKept << " kept after deletion, "
        << s.entriesMoved << " moved, " << s.intoBin << " to the Recycle Bin. Groups: " << s.groupsAdded
        << " added, " << s.groupsChanged << " changed, " << s.groupsDeleted << " deleted. Settings: "
        << s.settingsChanged << " changed.\n";
}

Json summaryJson(const model::MergeSummary& s, bool saved)
{
    Json j;
    j.beginObject();
    j.field("entriesAdded", std::uint64_t{s.entriesAdded}).field("entriesUpdated", std::uint64_t{s.entriesUpdated});
    j.field("conflicts", std::uint64_t{s.conflicts}).field("entriesDeleted", std::uint64_t{s.entriesDeleted});
    j.field("entriesKept", std::uint64_t{s.entriesKept}).field("entriesMoved", std::uint64_t{s.entriesMoved});
    j.field("intoRecycleBin", std::uint64_t{s.intoBin}).field("groupsAdded", std::uint64_t{s.groupsAdded});
    j.field("groupsChanged", std::uint64_t{s.groupsChanged}).field("groupsDeleted", std::uint64_t{s.groupsDeleted});
    j.field("settingsChanged", std::uint64_t{s.settingsChanged});
    j.field("deletionRecordsAdded", std::uint64_t{s.deletionRecordsAdded});
    j.key("changes").beginArray();
    for (const auto& line : s.lines)
        j.beginObject().field("event", eventName(line.event)).field("uuid", line.uuid).field("name", line.name).endObject();
    j.endArray().field("saved", saved).endObject();
    return j;
}

int mergeCommand(Invocation& call)
{
    const auto& o = call.options;
    checkOtherCredentialOptions(call);
    const auto path = pathArgument(o.arguments[0]);
    const auto otherPath = pathArgument(o.arguments[1]);
    auto otherBytes = files::readDiskBytes(otherPath);
    OpenDatabase db(call, path);
    const auto otherCredentialsRead = otherCredentials(call, db.credentials(), otherPath);
    const auto other = kdbx::KdbxFile::open(std::move(otherBytes.bytes), otherCredentialsRead);
    model::Document otherDoc(other->document);

    // No common version is known here, so modification times and deletion records decide.
    const auto summary = model::merge(db.document(), &db.kdbx().inner.binaries,
                                      {otherDoc, &other->inner.binaries}, nullptr);
    const bool write = summary.changed() && !o.has("dry-run");
    if (write)
        db.save();
    if (o.has("json")) {
        writeJson(call, summaryJson(summary, write));
        return exitSuccess;
    }
    auto& out = call.io.out;
    if (!summary.changed()) {
        out << "Nothing to merge: " << path.filename().string() << " already holds every change of "
            << otherPath.filename().string() << ".\n";
        return exitSuccess;
    }
    printSummaryText(out, summary);
    if (write)
        out << "Saved " << db.location().string() << ".\n";
    else
        out << "Dry run: nothing was written.\n";
    return exitSuccess;
}

} // namespace

void addMergeCommands(std::vector<CommandDefinition>& table)
{
    table.push_back({"diff", "DATABASE OTHER", "Show what changed from one database file to another, item by item.",
                     withOptions({credentialOptions(), otherCredentialOptions(),
                                  {jsonOption,
                                   {"show-protected", 0, {}, "print protected values (passwords) in the clear"}}}),
                     2, 2, diffCommand,
                     "Items are matched by UUID, so a renamed or moved entry is one change, not a removal and an\n"
                     "addition. Protected values are named but not shown unless --show-protected is given. With\n"
                     "--password-stdin the first line unlocks DATABASE and the second OTHER."});
    table.push_back({"merge", "DATABASE OTHER", "Merge the changes in OTHER into DATABASE and save it.",
                     withOptions({credentialOptions(), otherCredentialOptions(),
                                  {jsonOption, {"dry-run", 'n', {}, "print what would change and write nothing"}}}),
                     2, 2, mergeCommand,
                     "An entry changed in both keeps the later version current and the other in its history; an\n"
                     "item deleted in one copy is deleted unless the other changed it afterwards; moves and edits\n"
                     "both apply. DATABASE is saved through the conflict-checked writer, after a backup; OTHER is\n"
                     "only read. With --password-stdin the first line unlocks DATABASE and the second OTHER."});
}

} // namespace quillon::cli
