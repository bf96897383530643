// attachment-import and attachment-export: files kept in an entry, stored in the inner header's pool.
#include "app/cli/Database.h"
#include "files/SafeWrite.h"
#include "files/SecretFile.h"

#include <cstring>

namespace quillon::cli {
namespace {

pugi::xml_node attachmentNamed(const model::Entry& entry, std::string_view name)
{
    for (const auto b : entry.element().children("Binary"))
        if (name == b.child_value("Key"))
            return b;
    return {};
}

int attachmentImport(Invocation& call)
{
    const auto& args = call.options.arguments;
    const std::string& name = args[2];
    if (name.empty())
        throw UsageError("the attachment needs a name.");
    // The file is read first, so a wrong path fails before anyone types a password.
    const auto secret = files::readSecretFile(pathArgument(args[3]));

    OpenDatabase db(call, pathArgument(args[0]));
    const auto entry = resolveEntry(db.document(), args[1]);
    auto existing = attachmentNamed(entry, name);
    if (existing && !call.options.has("replace"))
        throw Failure(entryPath(entry) + " already has an attachment named " + name +
                      "; add --replace to replace it. Nothing was changed.");
    if (!db.session().addAttachment(entry, name, secret.copy())) {
        call.io.out << "Nothing changed.\n";
        return exitSuccess;
    }
    db.save();
    call.io.out << "Attached " << name << " to " << entryPath(entry) << ".\n";
    return exitSuccess;
}

int attachmentExport(Invocation& call)
{
    const auto& args = call.options.arguments;
    const bool toStdout = call.options.has("stdout");
    if (toStdout == (args.size() == 4))
        throw UsageError("give either a file to write or --stdout.");
    std::optional<std::filesystem::path> target;
    if (!toStdout) {
        target = pathArgument(args[3]);
        if (std::filesystem::exists(*target) && !call.options.has("force"))
            throw Failure(target->string() + " already exists; add --force to replace it. Nothing was written.");
    }
    OpenDatabase db(call, pathArgument(args[0]));
    const auto entry = resolveEntry(db.document(), args[1]);
    const auto node = attachmentNamed(entry, args[2]);
    if (!node)
        throw Failure(entryPath(entry) + " has no attachment named " + args[2] + ".");
    const auto ref = node.child("Value").attribute("Ref");
    const auto& pool = db.kdbx().inner.binaries;
    const auto index = ref.as_uint(~0u);
    if (ref.empty() || index >= pool.size())
        throw Failure("The attachment " + args[2] + " of " + entryPath(entry) + " refers to no stored file.");
    const auto& content = pool[index].data;
    if (toStdout) {
        writeText(call.io.out, content.view());
        return exitSuccess;
    }
    // Whole or not at all, private to the user, and never over a file that appeared meanwhile.
    const SignalsHeld held;
    files::SafeWrite::write(content.span(), *target,
                            call.options.has("force") ? files::DiskStamp::ofFile(*target) : std::nullopt);
    call.io.out << "Wrote " << content.size() << " bytes to " << target->string() << ".\n";
    return exitSuccess;
}

} // namespace

void addAttachmentCommands(std::vector<CommandDefinition>& table)
{
    table.push_back({"attachment-import", "DATABASE ENTRY NAME FILE", "Attach a file to an entry under NAME.",
                     withOptions({credentialOptions(), {{"replace", 0, {}, "replace an attachment of that name"}}}),
                     4, 4, attachmentImport,
                     "The entry's previous state is kept in its history."});
    table.push_back({"attachment-export", "DATABASE ENTRY NAME [FILE]",
                     "Write an entry's attachment to FILE or standard output.",
                     withOptions({credentialOptions(),
                                  {{"stdout", 0, {}, "write to standard output instead of a file"},
                                   {"force", 0, {}, "replace FILE if it exists"}}}),
                     3, 4, attachmentExport, "A new FILE is readable by its owner only."});
}

} // namespace quillon::cli
