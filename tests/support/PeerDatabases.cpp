#include "tests/support/PeerDatabases.h"

#include "tests/support/Peers.h"

#include <cstdio>
#include <unistd.h>

namespace quillon::test {
namespace {

std::string jsonString(const std::string& s)
{
    std::string out = "\"";
    for (const char ch : s) {
        const auto c = static_cast<unsigned char>(ch);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string jsonOptional(const std::optional<std::string>& s) { return s ? jsonString(*s) : "null"; }

std::string describe(const PeerDatabase& wanted)
{
    std::string json = "{\"password\":" + jsonOptional(wanted.credentials.password) +
                       ",\"keyFile\":" + jsonOptional(wanted.credentials.keyFile ? std::optional(wanted.credentials.keyFile->string()) : std::nullopt) +
                       ",\"cipher\":" + jsonString(wanted.cipher) + ",\"kdf\":" + jsonString(wanted.kdf) +
                       ",\"memoryKiB\":" + std::to_string(wanted.kdfMemoryKiB) +
                       ",\"iterations\":" + std::to_string(wanted.kdfIterations) +
                       ",\"parallelism\":" + std::to_string(wanted.kdfParallelism) + ",\"groups\":[";
    for (std::size_t i = 0; i < wanted.groups.size(); ++i)
        json += (i ? "," : "") + jsonString(wanted.groups[i]);
    json += "],\"entries\":[";
    for (std::size_t i = 0; i < wanted.entries.size(); ++i) {
        const auto& e = wanted.entries[i];
        json += std::string(i ? "," : "") + "{\"group\":" + jsonString(e.group) + ",\"title\":" + jsonString(e.title) +
                ",\"username\":" + jsonString(e.username) + ",\"password\":" + jsonString(e.password) +
                ",\"url\":" + jsonString(e.url) + ",\"notes\":" + jsonString(e.notes) + ",\"fields\":[";
        for (std::size_t f = 0; f < e.fields.size(); ++f)
            json += std::string(f ? "," : "") + "[" + jsonString(e.fields[f].first) + "," +
                    jsonString(e.fields[f].second) + "]";
        json += "]}";
    }
    return json + "]}";
}

// pykeepass's blank template costs 64 MiB and 14 passes of Argon2 to open, so it is opened once and
// saved as a cheap template; every database then starts from that copy.
constexpr const char* templateScript = R"PY(
import sys
from pykeepass import create_database
kp = create_database(sys.argv[1], password="template")
params = kp.kdbx.header.value.dynamic_header.kdf_parameters.data.dict
params.M.value, params.I.value, params.P.value = 1024 * 1024, 1, 1
del kp.kdbx.header["data"]
kp.save()
)PY";

// The header is a construct RawCopy: dropping its cached bytes makes save() build the header from the
// edited values, and the key is derived again with the new parameters.
constexpr const char* makeScript = R"PY(
import json, os, sys
from pykeepass import PyKeePass
template, path, wanted = sys.argv[1], sys.argv[2], json.loads(sys.argv[3])
kp = PyKeePass(template, password="template")
kp.filename, kp.password, kp.keyfile = path, wanted["password"], wanted["keyFile"]
header = kp.kdbx.header.value.dynamic_header
params = header.kdf_parameters.data.dict
params["$UUID"].value = bytes.fromhex({"argon2d": "ef636ddf8c29444b91f7a9a403e30a0c",
                                       "argon2id": "9e298b1956db4773b23dfc3ec6f0a1e6"}[wanted["kdf"]])
params.M.value = wanted["memoryKiB"] * 1024
params.I.value = wanted["iterations"]
params.P.value = wanted["parallelism"]
params.S.value = os.urandom(32)
header.cipher_id.data = wanted["cipher"]
header.master_seed.data = os.urandom(32)
header.encryption_iv.data = os.urandom(12 if wanted["cipher"] == "chacha20" else 16)
del kp.kdbx.header["data"]
groups = {"": kp.root_group}
for path_ in wanted["groups"]:
    parent, _, name = path_.rpartition("/")
    groups[path_] = kp.add_group(groups[parent], name)
for e in wanted["entries"]:
    entry = kp.add_entry(groups[e["group"]], e["title"], e["username"], e["password"], url=e["url"] or None,
                         notes=e["notes"] or None)
    for key, value in e["fields"]:
        if key == "otp":  # pykeepass reserves this name for its own property
            entry.otp = value
        else:
            entry.set_custom_property(key, value)
kp.save()
)PY";

// Kept in the temporary directory across test programs (ctest runs each test as a process of its own);
// written beside its final name and renamed, so programs running at once never see half a file.
std::filesystem::path templateDatabase(ProcessResult& failure)
{
    const auto path = std::filesystem::temp_directory_path() / "quillon-pykeepass-template-1.kdbx";
    if (std::filesystem::exists(path))
        return path;
    auto partial = path;
    partial += "." + std::to_string(::getpid());
    failure = pykeepass(templateScript, {partial.string()});
    std::error_code error;
    if (failure.exitCode == 0)
        std::filesystem::rename(partial, path, error);
    if (failure.exitCode == 0 && !error)
        return path;
    if (error) {
        failure.exitCode = 1;
        failure.err = "could not keep the pykeepass template: " + error.message();
    }
    std::filesystem::remove(partial, error);
    return {};
}

} // namespace

ProcessResult makePykeepassDatabase(const std::filesystem::path& path, const PeerDatabase& wanted)
{
    ProcessResult failure;
    const auto templatePath = templateDatabase(failure);
    if (templatePath.empty())
        return failure;
    return pykeepass(makeScript, {templatePath.string(), path.string(), describe(wanted)});
}

ProcessResult keepassxcOn(const std::string& command, const std::filesystem::path& database,
                          const PeerCredentials& credentials, const std::vector<std::string>& args,
                          const std::vector<std::string>& options, const std::string& moreInput)
{
    std::vector<std::string> argv{command, "-q"};
    if (credentials.keyFile) {
        argv.push_back("-k");
        argv.push_back(credentials.keyFile->string());
    }
    if (!credentials.password)
        argv.push_back("--no-password");
    argv.insert(argv.end(), options.begin(), options.end());
    argv.push_back(database.string());
    argv.insert(argv.end(), args.begin(), args.end());
    const std::string passwordLine = credentials.password ? *credentials.password + "\n" : std::string();
    return keepassxc(argv, passwordLine + moreInput);
}

ProcessResult keepassxcCreate(const std::filesystem::path& database, const PeerCredentials& credentials)
{
    std::vector<std::string> argv{"db-create", "-q"};
    std::string input;
    if (credentials.password) {
        argv.push_back("-p");
        input = *credentials.password + "\n" + *credentials.password + "\n";
    }
    if (credentials.keyFile) {
        argv.push_back("--set-key-file");
        argv.push_back(credentials.keyFile->string());
    }
    argv.push_back(database.string());
    return keepassxc(argv, input);
}

} // namespace quillon::test
