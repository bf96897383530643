#include "bench/support/BenchDatabase.h"

#include "kdbx/Encoding.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxTime.h"

#include <array>
#include <string_view>

namespace quillon::bench {
namespace {

constexpr std::array<std::string_view, 32> words = {
    "alpha",  "bravo",  "castle", "delta",  "echo",   "forest", "garden", "harbor", "island", "jungle", "kettle",
    "lemon",  "marble", "north",  "orange", "pepper", "quartz", "river",  "silver", "tiger",  "umbrella",
    "violet", "window", "yellow", "anchor", "bridge", "copper", "dragon", "ember",  "falcon", "glacier", "hollow"};

// Deterministic, so two runs measure the same document.
class Generator {
public:
    explicit Generator(std::uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15ull + 1) {}

    std::uint64_t next()
    {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return state_;
    }
    std::string uuid()
    {
        std::array<std::uint8_t, 16> b{};
        for (std::size_t i = 0; i < 16; i += 8) {
            const auto v = next();
            for (std::size_t k = 0; k < 8; ++k)
                b[i + k] = static_cast<std::uint8_t>(v >> (8 * k));
        }
        return kdbx::base64Encode(b);
    }
    std::string_view word() { return words[next() % words.size()]; }
    std::string text(std::size_t length)
    {
        std::string out;
        while (out.size() < length) {
            if (!out.empty())
                out += ' ';
            out += word();
        }
        out.resize(length);
        return out;
    }
    std::string secret(std::size_t length)
    {
        static constexpr std::string_view alphabet =
            "abcdefghijkmnopqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789!#%*+-=?@"; // nothing XML escapes
        std::string out;
        for (std::size_t i = 0; i < length; ++i)
            out += alphabet[next() % alphabet.size()];
        return out;
    }

private:
    std::uint64_t state_;
};

// 2023-01-01T00:00:00Z.
constexpr std::int64_t baseTime = kdbx::unixEpochInKdbxSeconds + 1'672'531'200;

std::string timeText(std::int64_t offset)
{
    return kdbx::encodeKdbxTime(baseTime + offset);
}

void appendString(std::string& out, std::string_view indent, std::string_view key, std::string_view value,
                  bool isProtected = false)
{
    out += indent;
    out += "<String>\n";
    out += indent;
    out += "\t<Key>";
    out += key;
    out += "</Key>\n";
    out += indent;
    out += isProtected ? "\t<Value Protected=\"True\">" : "\t<Value>";
    out += value;
    out += "</Value>\n";
    out += indent;
    out += "</String>\n";
}

struct EntryContent {
    std::string title, userName, password, url, notes, accountId, recovery;
    std::int64_t modified = 0;
};

void appendEntryBody(std::string& out, std::string_view indent, std::string_view uuid, std::int64_t created,
                     const EntryContent& c)
{
    out += indent;
    out += "<UUID>";
    out += uuid;
    out += "</UUID>\n";
    out += indent;
    out += "<IconID>0</IconID>\n";
    out += indent;
    out += "<ForegroundColor/>\n";
    out += indent;
    out += "<BackgroundColor/>\n";
    out += indent;
    out += "<OverrideURL/>\n";
    out += indent;
    out += "<Tags/>\n";
    out += indent;
    out += "<Times>\n";
    const auto time = [&](std::string_view name, std::string_view value) {
        out += indent;
        out += '\t';
        out += '<';
        out += name;
        out += '>';
        out += value;
        out += "</";
        out += name;
        out += ">\n";
    };
    time("LastModificationTime", timeText(c.modified));
    time("CreationTime", timeText(created));
    time("LastAccessTime", timeText(c.modified));
    time("ExpiryTime", timeText(created));
    time("Expires", "False");
    time("UsageCount", "0");
    time("LocationChanged", timeText(created));
    out += indent;
    out += "</Times>\n";
    appendString(out, indent, "Account ID", c.accountId);
    appendString(out, indent, "Notes", c.notes);
    appendString(out, indent, "Password", c.password, true);
    appendString(out, indent, "Recovery Code", c.recovery, true);
    appendString(out, indent, "Title", c.title);
    appendString(out, indent, "URL", c.url);
    appendString(out, indent, "UserName", c.userName);
    out += indent;
    out += "<AutoType>\n";
    out += indent;
    out += "\t<Enabled>True</Enabled>\n";
    out += indent;
    out += "\t<DataTransferObfuscation>0</DataTransferObfuscation>\n";
    out += indent;
    out += "</AutoType>\n";
}

EntryContent contentFor(Generator& g, std::size_t index, std::size_t version)
{
    EntryContent c;
    const std::string n = std::to_string(index);
    c.title = std::string(g.word()) + ' ' + std::string(g.word()) + ' ' + n;
    c.userName = std::string(g.word()) + '.' + std::string(g.word()) + "@example.com";
    c.password = g.secret(20);
    c.url = "https://" + std::string(g.word()) + n + ".example.com/login";
    c.notes = g.text(200);
    if (index % 1000 == 0 && version == 0)
        c.notes.replace(0, 5, "zebra");
    c.accountId = "AC-" + n;
    c.recovery = g.secret(16);
    return c;
}

} // namespace

std::string benchDatabaseXml(const BenchDatabaseOptions& options)
{
    Generator g(options.seed);
    std::string out;
    out.reserve(options.entries * (options.historyVersions + 1) * 1400 + 4096);
    out += "<?xml version=\"1.0\" encoding=\"utf-8\" standalone=\"yes\"?>\n<KeePassFile>\n\t<Meta>\n";
    const auto meta = [&](std::string_view name, std::string_view value) {
        out += "\t\t<";
        out += name;
        if (value.empty()) {
            out += "/>\n";
            return;
        }
        out += '>';
        out += value;
        out += "</";
        out += name;
        out += ">\n";
    };
    const std::string zero(kdbx::noUuid);
    meta("Generator", "Quillon bench");
    meta("DatabaseName", "Benchmark vault");
    meta("DatabaseNameChanged", timeText(0));
    meta("DatabaseDescription", "");
    meta("DatabaseDescriptionChanged", timeText(0));
    meta("DefaultUserName", "");
    meta("DefaultUserNameChanged", timeText(0));
    meta("MaintenanceHistoryDays", "365");
    meta("Color", "");
    meta("MasterKeyChanged", timeText(0));
    meta("MasterKeyChangeRec", "-1");
    meta("MasterKeyChangeForce", "-1");
    out += "\t\t<MemoryProtection>\n\t\t\t<ProtectTitle>False</ProtectTitle>\n\t\t\t<ProtectUserName>False</ProtectUserName>\n"
           "\t\t\t<ProtectPassword>True</ProtectPassword>\n\t\t\t<ProtectURL>False</ProtectURL>\n"
           "\t\t\t<ProtectNotes>False</ProtectNotes>\n\t\t</MemoryProtection>\n";
    meta("CustomIcons", "");
    meta("RecycleBinEnabled", "True");
    meta("RecycleBinUUID", zero);
    meta("RecycleBinChanged", timeText(0));
    meta("EntryTemplatesGroup", zero);
    meta("EntryTemplatesGroupChanged", timeText(0));
    meta("LastSelectedGroup", zero);
    meta("LastTopVisibleGroup", zero);
    meta("HistoryMaxItems", "10");
    meta("HistoryMaxSize", "6291456");
    meta("CustomData", "");
    out += "\t</Meta>\n\t<Root>\n\t\t<Group>\n";
    out += "\t\t\t<UUID>" + g.uuid() + "</UUID>\n\t\t\t<Name>Root</Name>\n\t\t\t<Notes/>\n\t\t\t<IconID>48</IconID>\n";
    out += "\t\t\t<Times>\n\t\t\t\t<LastModificationTime>" + timeText(0) + "</LastModificationTime>\n\t\t\t\t<CreationTime>" +
           timeText(0) + "</CreationTime>\n\t\t\t</Times>\n\t\t\t<IsExpanded>True</IsExpanded>\n";

    const std::size_t perGroup = options.entriesPerGroup == 0 ? 1 : options.entriesPerGroup;
    for (std::size_t i = 0; i < options.entries; ++i) {
        if (i % perGroup == 0) {
            if (i != 0)
                out += "\t\t\t</Group>\n";
            out += "\t\t\t<Group>\n\t\t\t\t<UUID>" + g.uuid() + "</UUID>\n\t\t\t\t<Name>Group " + std::to_string(i / perGroup) +
                   "</Name>\n\t\t\t\t<Notes/>\n\t\t\t\t<IconID>48</IconID>\n\t\t\t\t<Times>\n\t\t\t\t\t<CreationTime>" +
                   timeText(0) + "</CreationTime>\n\t\t\t\t</Times>\n\t\t\t\t<IsExpanded>False</IsExpanded>\n";
        }
        const std::string uuid = g.uuid();
        const auto created = static_cast<std::int64_t>(i) * 600;
        out += "\t\t\t\t<Entry>\n";
        EntryContent current = contentFor(g, i, 0);
        current.modified = created + 86400 * static_cast<std::int64_t>(options.historyVersions);
        appendEntryBody(out, "\t\t\t\t\t", uuid, created, current);
        out += "\t\t\t\t\t<History>\n";
        for (std::size_t v = 0; v < options.historyVersions; ++v) {
            EntryContent old = contentFor(g, i, v + 1);
            old.modified = created + 86400 * static_cast<std::int64_t>(v);
            out += "\t\t\t\t\t\t<Entry>\n";
            appendEntryBody(out, "\t\t\t\t\t\t\t", uuid, created, old);
            out += "\t\t\t\t\t\t</Entry>\n";
        }
        out += "\t\t\t\t\t</History>\n\t\t\t\t</Entry>\n";
    }
    if (options.entries != 0)
        out += "\t\t\t</Group>\n";
    out += "\t\t</Group>\n\t\t<DeletedObjects/>\n\t</Root>\n</KeePassFile>\n";
    return out;
}

void loadBenchDatabase(pugi::xml_document& document, const BenchDatabaseOptions& options)
{
    const std::string text = benchDatabaseXml(options);
    document.load_buffer(text.data(), text.size(), kdbx::xmlParseOptions, pugi::encoding_utf8);
}

std::unique_ptr<kdbx::KdbxFile> benchDatabase(const BenchDatabaseOptions& options)
{
    auto file = kdbx::KdbxFile::newDatabase();
    auto& kdf = file->header.kdf.entries;
    kdf["$UUID"] = std::vector<std::uint8_t>(kdbx::kdfArgon2id.begin(), kdbx::kdfArgon2id.end());
    kdf["M"] = std::uint64_t{options.kdfMemoryKiB * 1024};
    kdf["I"] = std::uint64_t{options.kdfIterations};
    kdf["P"] = std::uint32_t{options.kdfParallelism};
    const std::string text = benchDatabaseXml(options);
    file->document.load_buffer(text.data(), text.size(), kdbx::xmlParseOptions, pugi::encoding_utf8);
    return file;
}

std::vector<std::uint8_t> benchDatabaseFile(const kdbx::Credentials& credentials, const BenchDatabaseOptions& options)
{
    return benchDatabase(options)->save(credentials);
}

std::unique_ptr<kdbx::KdbxFile> openedBenchDatabase(const BenchDatabaseOptions& options)
{
    kdbx::Credentials credentials;
    credentials.password = kdbx::SecureBytes::fromText("bench");
    return kdbx::KdbxFile::open(benchDatabaseFile(credentials, options), credentials);
}

std::size_t benchZebraCount(const BenchDatabaseOptions& options)
{
    return (options.entries + 999) / 1000;
}

} // namespace quillon::bench
