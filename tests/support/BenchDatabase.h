// tests/support/BenchDatabase.h: a large, realistic database document for benchmarks and load tests.
#pragma once

#include <pugixml.hpp>

#include <cstddef>
#include <cstdint>
#include <string>

namespace quillon::test {

struct BenchDatabaseOptions {
    std::size_t entries = 10'000;
    std::size_t entriesPerGroup = 50;
    std::size_t historyVersions = 3;
    std::uint64_t seed = 1;
};

// Every entry has Title, UserName, a protected Password, URL, 200-character Notes, a plain custom field
// ("Account ID") and a protected one ("Recovery Code"), AutoType, full Times and its history versions.
// Every 1000th entry (0, 1000, ...) carries the word "zebra" in its notes, so a search for it must scan
// everything yet find a known number of hits. Protected values are plain text, as the file pipeline
// leaves them in memory; the bin is on but not made yet; HistoryMaxItems is 10.
std::string benchDatabaseXml(const BenchDatabaseOptions& options = {});

// The same, parsed as the file pipeline parses: white space and the declaration kept.
void loadBenchDatabase(pugi::xml_document& document, const BenchDatabaseOptions& options = {});

// The number of entries benchDatabaseXml gives the word "zebra".
std::size_t benchZebraCount(const BenchDatabaseOptions& options = {});

} // namespace quillon::test
