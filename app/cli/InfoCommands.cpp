// info, stats and export: what a database is, what it holds, and its decrypted XML.
#include "app/cli/Command.h"
#include "files/DatabaseFile.h"
#include "kdbx/ByteReader.h"
#include "kdbx/Encoding.h"
#include "kdbx/Identifiers.h"
#include "kdbx/OuterHeader.h"

#include <cstring>
#include <string>

namespace quillon::cli {

std::string cipherName(const std::vector<std::uint8_t>& id)
{
    if (kdbx::isIdentifier(id, kdbx::cipherAes256))
        return "AES-256";
    if (kdbx::isIdentifier(id, kdbx::cipherChaCha20))
        return "ChaCha20";
    return "unknown (" + kdbx::base64Encode(id) + ")";
}

std::string kdfName(const kdbx::VariantDictionary& kdf)
{
    const auto* id = kdf.get<std::vector<std::uint8_t>>("$UUID");
    if (!id)
        return "none";
    if (kdbx::isIdentifier(*id, kdbx::kdfArgon2id))
        return "Argon2id";
    if (kdbx::isIdentifier(*id, kdbx::kdfArgon2d))
        return "Argon2d";
    if (kdbx::isIdentifier(*id, kdbx::kdfAesKdf))
        return "AES-KDF";
    return "unknown (" + kdbx::base64Encode(*id) + ")";
}

namespace {

std::string memoryText(std::uint64_t bytes)
{
    if (bytes % (1u << 20) == 0)
        return std::to_string(bytes >> 20) + " MiB";
    if (bytes % 1024 == 0)
        return std::to_string(bytes >> 10) + " KiB";
    return std::to_string(bytes) + " bytes";
}

int info(Invocation& call)
{
    const auto path = pathArgument(call.options.arguments[0]);
    const auto bytes = files::readDiskBytes(path).bytes;
    kdbx::ByteReader reader(bytes);
    const auto parsed = kdbx::parseOuterHeader(reader);
    const auto& h = parsed.header;
    // The same first check that opening makes, before any key is derived.
    bool intact = false;
    if (reader.remaining() >= 32) {
        const auto stored = reader.bytes(32);
        const auto digest = kdbx::headerDigest(parsed.raw);
        intact = std::memcmp(stored.data(), digest.data(), digest.size()) == 0;
    }
    const std::string version = std::to_string(h.major) + "." + std::to_string(h.minor);
    const auto kdf = kdfName(h.kdf);
    const auto* memory = h.kdf.get<std::uint64_t>("M");
    const auto* iterations = h.kdf.get<std::uint64_t>("I");
    const auto* lanes = h.kdf.get<std::uint32_t>("P");
    const auto* argonVersion = h.kdf.get<std::uint32_t>("V");
    const auto* rounds = h.kdf.get<std::uint64_t>("R");

    if (call.options.has("json")) {
        Json j;
        j.beginObject();
        j.field("formatVersion", version).field("cipher", cipherName(h.cipher)).field("kdf", kdf);
        if (memory)
            j.field("kdfMemoryBytes", *memory);
        if (iterations)
            j.field("kdfIterations", *iterations);
        if (lanes)
            j.field("kdfParallelism", *lanes);
        if (argonVersion)
            j.field("kdfVersion", *argonVersion);
        if (rounds)
            j.field("kdfRounds", *rounds);
        j.field("compression", h.compressed ? "gzip" : "none");
        j.field("fileSize", static_cast<std::uint64_t>(bytes.size()));
        j.field("headerIntact", intact);
        j.endObject();
        writeJson(call, j);
        return exitSuccess;
    }
    auto& out = call.io.out;
    out << "format version: KDBX " << version << '\n' << "cipher: " << cipherName(h.cipher) << '\n';
    out << "key derivation: " << kdf << '\n';
    if (memory)
        out << "  memory: " << memoryText(*memory) << '\n';
    if (iterations)
        out << "  iterations: " << *iterations << '\n';
    if (lanes)
        out << "  parallelism: " << *lanes << '\n';
    if (argonVersion)
        out << "  version: 0x" << std::hex << *argonVersion << std::dec << '\n';
    if (rounds)
        out << "  rounds: " << *rounds << '\n';
    out << "compression: " << (h.compressed ? "gzip" : "none") << '\n';
    out << "file size: " << bytes.size() << " bytes\n";
    out << "header: " << (intact ? "intact" : "damaged (its SHA-256 does not match)") << '\n';
    return exitSuccess;
}

int stats(Invocation& call)
{
    const auto path = pathArgument(call.options.arguments[0]);
    const auto file = openForReading(call, path);
    const auto counts = kdbx::countDocument(file->document);
    std::uint64_t attachmentBytes = 0;
    for (const auto& b : file->inner.binaries)
        attachmentBytes += b.data.size();
    const auto binaries = static_cast<std::uint64_t>(file->inner.binaries.size());
    if (call.options.has("json")) {
        Json j;
        j.beginObject()
            .field("entries", static_cast<std::uint64_t>(counts.entries))
            .field("protectedValues", static_cast<std::uint64_t>(counts.protectedValues))
            .field("binaries", binaries)
            .field("groups", static_cast<std::uint64_t>(counts.groups))
            .field("historyVersions", static_cast<std::uint64_t>(counts.historyVersions))
            .field("attachmentBytes", attachmentBytes)
            .endObject();
        writeJson(call, j);
        return exitSuccess;
    }
    call.io.out << "entries: " << counts.entries << ", protected values: " << counts.protectedValues
                << ", binaries: " << binaries << '\n'
                << "groups: " << counts.groups << '\n'
                << "history versions: " << counts.historyVersions << '\n'
                << "attachment bytes: " << attachmentBytes << '\n';
    return exitSuccess;
}

int exportXml(Invocation& call)
{
    if (const auto format = call.options.value("format"); format && *format != "xml")
        throw UsageError("the only export format is xml.");
    if (call.io.outIsTerminal && !call.options.has("force"))
        throw Failure("The export holds every password in the clear, so it is not printed on a terminal. Redirect "
                      "standard output to a file, or add --force.");
    const auto path = pathArgument(call.options.arguments[0]);
    const auto file = openForReading(call, path);
    const auto xml = kdbx::serialiseXml(file->document);
    writeText(call.io.out, xml.view());
    return exitSuccess;
}

} // namespace

void addDatabaseInfoCommands(std::vector<CommandDefinition>& table)
{
    table.push_back({"info", "DATABASE", "Show the outer header: format, cipher, key derivation, compression, size.",
                     {jsonOption}, 1, 1, info,
                     "No credentials are needed: the outer header is not encrypted."});
    table.push_back({"stats", "DATABASE",
                     "Count entries (history included), protected values, binaries, groups and history versions.",
                     withOptions({credentialOptions(), {jsonOption}}), 1, 1, stats,
                     "The first line counts as `quillon --verify` does: every Entry element, history versions\n"
                     "included, every protected value, and the attachments in the inner header."});
    table.push_back({"export", "DATABASE", "Write the decrypted XML document to standard output.",
                     withOptions({credentialOptions(),
                                  {{"format", 0, "FORMAT", "xml (the only format)"},
                                   {"force", 0, {}, "write even when standard output is a terminal"}}}),
                     1, 1, exportXml,
                     "Protected values appear in the clear. Standard output must be redirected unless --force."});
}

} // namespace quillon::cli
