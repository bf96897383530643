// bench/support/BenchDatabase.h: a large, realistic database document for benchmarks and load tests.
#pragma once

#include "kdbx/CompositeKey.h"
#include "kdbx/KdbxFile.h"

#include <pugixml.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace quillon::bench {

struct BenchDatabaseOptions {
    std::size_t entries = 10'000;
    std::size_t entriesPerGroup = 50;
    std::size_t historyVersions = 3;
    std::uint64_t seed = 1;
    // Argon2id costs of the file forms. Small by default so that benchmarks of opening and saving measure
    // the codec and the document rather than the key derivation; raise them to time a realistic unlock.
    std::uint64_t kdfMemoryKiB = 1024;
    std::uint64_t kdfIterations = 1;
    std::uint32_t kdfParallelism = 1;
};

// Every entry has Title, UserName, a protected Password, URL, 200-character Notes, a plain custom field
// ("Account ID") and a protected one ("Recovery Code"), AutoType, full Times and its history versions.
// Every 1000th entry (0, 1000, ...) carries the word "zebra" in its notes, so a search for it must scan
// everything yet find a known number of hits. Protected values are plain text, as the file pipeline
// leaves them in memory; the bin is on but not made yet; HistoryMaxItems is 10.
std::string benchDatabaseXml(const BenchDatabaseOptions& options = {});

// The same, parsed as the file pipeline parses: white space and the declaration kept.
void loadBenchDatabase(pugi::xml_document& document, const BenchDatabaseOptions& options = {});

// The same document in a new database (AES-256, Argon2id at the options' costs, compressed), as the
// codec holds it after an open.
std::unique_ptr<kdbx::KdbxFile> benchDatabase(const BenchDatabaseOptions& options = {});
// That database saved by the codec: a KDBX 4 file that keepassxc-cli and pykeepass open too.
std::vector<std::uint8_t> benchDatabaseFile(const kdbx::Credentials& credentials,
                                            const BenchDatabaseOptions& options = {});
// Saved under the password "bench" and opened again: the document laid out in memory as a window holds it
// after an unlock.
std::unique_ptr<kdbx::KdbxFile> openedBenchDatabase(const BenchDatabaseOptions& options = {});

// The number of entries benchDatabaseXml gives the word "zebra".
std::size_t benchZebraCount(const BenchDatabaseOptions& options = {});

} // namespace quillon::bench
