// Writes the benchmark database of N entries (the shared benchmark document) with our own writer, under its
// light Argon2id (1 MiB, 1 pass) so that the codec, not the key derivation, is what gets timed.
//   make_bench_kdbx ENTRIES OUTPUT PASSWORD
#include "bench/support/BenchDatabase.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

using namespace quillon;

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s ENTRIES OUTPUT PASSWORD\n", argv[0]);
        return 2;
    }
    bench::BenchDatabaseOptions options;
    options.entries = std::strtoull(argv[1], nullptr, 10);
    kdbx::Credentials credentials;
    credentials.password = kdbx::SecureBytes::fromText(argv[3]);
    const std::vector<std::uint8_t> bytes = bench::benchDatabaseFile(credentials, options);
    std::ofstream out(argv[2], std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush()) {
        std::fprintf(stderr, "could not write %s\n", argv[2]);
        return 1;
    }
    std::printf("%s: %zu entries, %zu bytes\n", argv[2], options.entries, bytes.size());
    return 0;
}
