// tests/support/PeerDatabases.h: databases made and changed by the peer programs at test time.
#pragma once

#include "tests/support/Process.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quillon::test {

// What unlocks a peer database. An absent password means none at all (not an empty one).
struct PeerCredentials {
    std::optional<std::string> password = "password";
    std::optional<std::filesystem::path> keyFile;
};

struct PeerEntry {
    std::string group; // path below the root, "A/B"; empty for the root group
    std::string title;
    std::string username;
    std::string password;
    std::string url;
    std::string notes;
    std::vector<std::pair<std::string, std::string>> fields{}; // custom string fields, e.g. {"otp", uri}
};

// A KDBX 4 database as pykeepass writes it. The key-derivation costs default to tiny values so tests
// stay fast; pykeepass's own defaults (64 MiB, 14 passes) take seconds.
struct PeerDatabase {
    PeerCredentials credentials;
    std::string cipher = "aes256"; // or "chacha20"
    std::string kdf = "argon2d";   // or "argon2id"
    std::uint64_t kdfMemoryKiB = 1024;
    std::uint64_t kdfIterations = 2;
    std::uint32_t kdfParallelism = 1;
    std::vector<std::string> groups; // paths below the root, made in order: "A", then "A/B"
    std::vector<PeerEntry> entries;
};

// Writes `wanted` to `path` with pykeepass (run with pykeepassPython(); check for it first with
// QUILLON_REQUIRE_PEER). The key file, if any, must already exist. exitCode 0 means success; on failure
// err holds Python's traceback.
ProcessResult makePykeepassDatabase(const std::filesystem::path& path, const PeerDatabase& wanted);

// Runs `keepassxc-cli <command> -q [-k keyFile] [--no-password] <options...> <database> <args...>`,
// answering its password prompt on standard input; `moreInput` follows the password line (for example a
// new password for `db-edit -p`, or an entry's password for `add -p`, each ending in "\n").
ProcessResult keepassxcOn(const std::string& command, const std::filesystem::path& database,
                          const PeerCredentials& credentials, const std::vector<std::string>& args = {},
                          const std::vector<std::string>& options = {}, const std::string& moreInput = {});

} // namespace quillon::test
