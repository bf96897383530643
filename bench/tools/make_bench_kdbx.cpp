// Writes the benchmark database of N entries (the shared benchmark document) with our own writer, under a
// light Argon2id (1 MiB, 1 pass) so that the codec, not the key derivation, is what gets timed.
//   make_bench_kdbx ENTRIES OUTPUT PASSWORD
#include "kdbx/KdbxFile.h"
#include "tests/support/BenchDatabase.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string_view>

using namespace quillon;

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s ENTRIES OUTPUT PASSWORD\n", argv[0]);
        return 2;
    }
    auto file = kdbx::KdbxFile::newDatabase();
    file->header.kdf.entries["M"] = std::uint64_t{1} << 20;
    file->header.kdf.entries["I"] = std::uint64_t{1};
    file->header.kdf.entries["P"] = std::uint32_t{1};
    test::BenchDatabaseOptions options;
    options.entries = std::strtoull(argv[1], nullptr, 10);
    test::loadBenchDatabase(file->document, options);
    kdbx::Credentials credentials;
    credentials.password = kdbx::SecureBytes::fromText(argv[3]);
    const std::vector<std::uint8_t> bytes = file->save(credentials);
    std::ofstream(argv[2], std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    std::printf("%s: %zu entries, %zu bytes\n", argv[2], kdbx::countDocument(file->document).entries, bytes.size());
    return 0;
}
