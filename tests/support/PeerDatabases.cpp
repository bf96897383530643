#include "tests/support/PeerDatabases.h"

#include "tests/support/Peers.h"

#include <unistd.h>

namespace quillon::test {
namespace {

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
import os, sys
from pykeepass import PyKeePass
template, path, has_password, password, key_file, cipher, kdf, memory, iterations, lanes, groups = sys.argv[1:12]
kp = PyKeePass(template, password="template")
kp.filename, kp.password, kp.keyfile = path, password if has_password == "1" else None, key_file or None
header = kp.kdbx.header.value.dynamic_header
params = header.kdf_parameters.data.dict
params["$UUID"].value = bytes.fromhex({"argon2d": "ef636ddf8c29444b91f7a9a403e30a0c",
                                       "argon2id": "9e298b1956db4773b23dfc3ec6f0a1e6"}[kdf])
params.M.value, params.I.value, params.P.value = int(memory) * 1024, int(iterations), int(lanes)
params.S.value = os.urandom(32)
header.cipher_id.data = cipher
header.master_seed.data = os.urandom(32)
header.encryption_iv.data = os.urandom(12 if cipher == "chacha20" else 16)
del kp.kdbx.header["data"]
made = {"": kp.root_group}
for path_ in filter(None, groups.split("\n")):
    parent, _, name = path_.rpartition("/")
    made[path_] = kp.add_group(made[parent], name)
for text in sys.argv[12:]:
    group, title, username, password_, url, notes, *fields = text.split("\x1f")
    entry = kp.add_entry(made[group], title, username, password_, url=url or None, notes=notes or None)
    for key, value in zip(fields[::2], fields[1::2]):
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
    // Everything as arguments: groups one a line, each entry's texts joined by the unit separator.
    std::vector<std::string> args{templatePath.string(), path.string(), wanted.credentials.password ? "1" : "0",
                                  wanted.credentials.password.value_or(""),
                                  wanted.credentials.keyFile ? wanted.credentials.keyFile->string() : "",
                                  wanted.cipher, wanted.kdf, std::to_string(wanted.kdfMemoryKiB),
                                  std::to_string(wanted.kdfIterations), std::to_string(wanted.kdfParallelism), ""};
    for (const auto& group : wanted.groups)
        args[10] += group + "\n";
    for (const auto& e : wanted.entries) {
        std::string text = e.group + '\x1f' + e.title + '\x1f' + e.username + '\x1f' + e.password + '\x1f' + e.url +
                           '\x1f' + e.notes;
        for (const auto& [key, value] : e.fields)
            text += '\x1f' + key + '\x1f' + value;
        args.push_back(std::move(text));
    }
    return pykeepass(makeScript, args);
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

} // namespace quillon::test
