// create, db-edit and keyfile-create: new databases, their credentials and settings, and new key files.
#include "app/cli/Database.h"
#include "files/Backups.h"
#include "files/CanonicalPath.h"
#include "files/SafeWrite.h"
#include "files/SecretFile.h"
#include "kdbx/KeyFile.h"
#include "model/DatabaseSettings.h"

namespace quillon::cli {
namespace {

const std::vector<OptionDefinition>& settingOptions()
{
    static const std::vector<OptionDefinition> options = {
        {"cipher", 0, "CIPHER", "aes256 or chacha20"},
        {"kdf", 0, "KDF", "argon2id or argon2d"},
        {"memory", 0, "MiB", "Argon2 memory in MiB (8..8192)"},
        {"iterations", 0, "N", "Argon2 passes (1..1000)"},
        {"parallelism", 0, "N", "Argon2 lanes (1..64)"},
    };
    return options;
}

bool hasSettings(const ParsedOptions& o)
{
    return o.has("cipher") || o.has("kdf") || o.has("memory") || o.has("iterations") || o.has("parallelism");
}

std::optional<std::int64_t> inRange(const ParsedOptions& o, std::string_view name, const model::SettingRange& range)
{
    return o.integer(name, range.low, range.high);
}

// Checked before anything is read or asked, so a typo costs nobody a password.
model::DatabaseSettings readSettings(const ParsedOptions& o)
{
    model::DatabaseSettings s;
    if (const auto c = o.value("cipher")) {
        if (*c == "aes256")
            s.cipher = model::Cipher::aes256;
        else if (*c == "chacha20")
            s.cipher = model::Cipher::chaCha20;
        else
            throw UsageError("--cipher is aes256 or chacha20.");
    }
    if (const auto k = o.value("kdf")) {
        if (*k == "argon2id")
            s.kdf = model::Kdf::argon2id;
        else if (*k == "argon2d")
            s.kdf = model::Kdf::argon2d;
        else
            throw UsageError("--kdf is argon2id or argon2d.");
    }
    s.memoryMiB = inRange(o, "memory", model::memoryMiBRange);
    s.iterations = inRange(o, "iterations", model::iterationsRange);
    s.threads = inRange(o, "parallelism", model::threadsRange);
    // -1 keeps every version.
    if (const auto limit = o.integer("history-max-items", -1, model::historyHigh)) {
        s.unlimitedHistory = *limit == -1;
        s.historyMaxItems = limit;
    }
    return s;
}

kdbx::SecureBytes readKeyFile(const std::string& path)
{
    return files::readSecretFile(pathArgument(path));
}

void refuseExisting(const std::filesystem::path& path)
{
    std::error_code error;
    if (std::filesystem::exists(std::filesystem::symlink_status(path, error)))
        throw Failure(path.string() + " already exists. Nothing was written.");
}

int create(Invocation& call)
{
    const auto& o = call.options;
    const auto path = pathArgument(o.arguments[0]);
    checkCredentialOptions(call);
    const auto settings = readSettings(o);
    refuseExisting(path);

    kdbx::Credentials credentials;
    if (const auto keyFile = o.value("key-file"))
        credentials.keyFile = readKeyFile(*keyFile);
    if (!o.has("no-password"))
        credentials.password = readNewSecret(call, "Password: ", "Repeat password: ");

    auto file = kdbx::KdbxFile::newDatabase();
    files::DatabaseFile db(path, std::move(file), std::nullopt);
    model::Document document(db.file().document);
    settings.applyTo(db.file().header, document);
    if (const auto name = o.value("name"))
        document.setMetaText("DatabaseName", *name);
    // No stamp: the writer refuses to replace a file that appeared in the meantime.
    {
        const SignalsHeld held;
        db.save(credentials, {});
    }
    call.io.out << "Created " << path.string() << ".\n";
    return exitSuccess;
}

int dbEdit(Invocation& call)
{
    const auto& o = call.options;
    const bool anything = hasSettings(o) || o.has("set-password") || o.has("remove-password") ||
                          o.has("set-key-file") || o.has("remove-key-file") || o.has("history-max-items");
    if (!anything)
        throw UsageError("nothing to change; see --help.");
    if (o.has("set-password") && o.has("remove-password"))
        throw UsageError("give --set-password or --remove-password, not both.");
    if (o.has("set-key-file") && o.has("remove-key-file"))
        throw UsageError("give --set-key-file or --remove-key-file, not both.");
    const auto settings = readSettings(o);
    std::optional<kdbx::SecureBytes> newKeyFile;
    if (const auto keyFile = o.value("set-key-file"))
        newKeyFile = readKeyFile(*keyFile);

    OpenDatabase db(call, pathArgument(o.arguments[0]));
    auto credentials = db.credentials().copy();
    if (o.has("remove-password"))
        credentials.password.reset();
    if (o.has("remove-key-file"))
        credentials.keyFile.reset();
    if (newKeyFile)
        credentials.keyFile = std::move(newKeyFile);
    if (o.has("set-password"))
        credentials.password = readNewSecret(call, "New password: ", "Repeat new password: ");
    if (!credentials.password && !credentials.keyFile)
        throw Failure("A database needs a password, a key file or both. Nothing was changed.");

    db.session().changeSettings(QStringLiteral("Database Settings"),
                                [&](kdbx::OuterHeader& header, model::Document& document) {
                                    settings.applyTo(header, document);
                                });
    db.save(std::move(credentials));
    call.io.out << "Saved " << db.location().string() << ".\n";

    const bool keysChanged = o.has("set-password") || o.has("remove-password") || o.has("set-key-file") ||
                             o.has("remove-key-file");
    if (keysChanged && !call.io.backupRoot.empty()) {
        const files::Backups backups(call.io.backupRoot);
        const auto database = files::canonicalPath(db.location());
        if (const auto count = backups.listBackups(database).size(); count > 0)
            call.io.err << "Note: " << count << (count == 1 ? " earlier backup" : " earlier backups") << " in "
                        << backups.backupFolder(database).string() << " still open with the old credentials.\n";
    }
    return exitSuccess;
}

int keyfileCreate(Invocation& call)
{
    const auto path = pathArgument(call.options.arguments[0]);
    const bool force = call.options.has("force");
    if (!force)
        refuseExisting(path);
    const auto key = kdbx::generateKeyFile();
    const SignalsHeld held;
    files::SafeWrite::write(key.span(), path, force ? files::DiskStamp::ofFile(path) : std::nullopt);
    call.io.out << "Created key file " << path.string() << ".\n";
    return exitSuccess;
}

} // namespace

void addDatabaseCommands(std::vector<CommandDefinition>& table)
{
    table.push_back({"create", "DATABASE", "Create a new, empty database.",
                     withOptions({credentialOptions(), settingOptions(),
                                  {{"name", 0, "TEXT", "the database's name (default \"Vault\")"}}}),
                     1, 1, create,
                     "The password is asked twice on the terminal, or read once from standard input with\n"
                     "--password-stdin. --key-file names an existing key file (see keyfile-create). Defaults:\n"
                     "AES-256, Argon2id with 64 MiB, 10 passes and 2 lanes. An existing file is never replaced."});
    table.push_back({"db-edit", "DATABASE",
                     "Change a database's password, key file, cipher, key derivation or history limit.",
                     withOptions({credentialOptions(), settingOptions(),
                                  {{"set-password", 0, {}, "set a new password (asked like the current one, after it)"},
                                   {"remove-password", 0, {}, "unlock with the key file alone from now on"},
                                   {"set-key-file", 0, "PATH", "unlock with this key file from now on"},
                                   {"remove-key-file", 0, {}, "unlock with the password alone from now on"},
                                   {"history-max-items", 0, "N", "versions kept per entry; -1 keeps every one"}}}),
                     1, 1, dbEdit,
                     "The credentials options (--key-file, --no-password) describe how the database unlocks now.\n"
                     "The file is backed up before it is replaced; earlier backups keep the old credentials."});
    table.push_back({"keyfile-create", "PATH", "Write a new key file (KeePass XML key file version 2.0).",
                     {{"force", 0, {}, "replace an existing file (databases it unlocks will no longer open)"}}, 1, 1,
                     keyfileCreate});
}

} // namespace quillon::cli
