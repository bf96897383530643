// The floor under opening a database: inflating its payload and parsing the XML with pugixml, with
// nothing else (no decryption, no wiping heap, no protected values), beside the codec's whole open of the
// same file in the same process, and the two halves of saving it.
//   QUILLON_BENCH_FILE=db.kdbx QUILLON_BENCH_PASSWORD=pw bench_open_floor
#include "kdbx/Argon2Kdf.h"
#include "kdbx/KdbxFile.h"
#include "kdbx/PayloadCipher.h"

#include <benchmark/benchmark.h>
#include <pugixml.hpp>
#include <zlib.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

using namespace quillon::kdbx;

namespace {

std::vector<std::uint8_t> fileBytes()
{
    const char* path = std::getenv("QUILLON_BENCH_FILE");
    if (!path)
        throw std::runtime_error("set QUILLON_BENCH_FILE and QUILLON_BENCH_PASSWORD");
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Credentials credentials()
{
    Credentials c;
    const char* password = std::getenv("QUILLON_BENCH_PASSWORD");
    c.password = SecureBytes::fromText(password ? password : "");
    return c;
}

// The decrypted gzip member of the file, made once outside the timed loop.
std::vector<std::uint8_t> gzipPayload(const std::vector<std::uint8_t>& file)
{
    ByteReader reader(file);
    const ParsedOuterHeader parsed = parseOuterHeader(reader);
    reader.skip(64);
    const DerivedKeys keys = deriveKeys(parsed.header.masterSeed,
                                        transformKey(compositeKey(credentials()), parsed.header.kdf));
    SecureBytes plain = decryptPayload(reader, parsed.header, keys);
    return {plain.span().begin(), plain.span().end()};
}

void* plainAllocate(std::size_t size) { return std::malloc(size); }

void floorInflateAndParse(benchmark::State& state)
{
    const std::vector<std::uint8_t> member = gzipPayload(fileBytes());
    const auto wipingAllocate = pugi::get_memory_allocation_function();
    const auto wipingDeallocate = pugi::get_memory_deallocation_function();
    pugi::set_memory_management_functions(plainAllocate, std::free);
    // The gzip trailer's size field gives the inflated length: one buffer of exactly that size, not zeroed.
    const std::size_t inflated = loadU32(ByteView(member).last(4));
    for (auto _ : state) {
        const auto out = std::make_unique_for_overwrite<char[]>(inflated);
        z_stream z{};
        inflateInit2(&z, 16 + MAX_WBITS);
        z.next_in = const_cast<Bytef*>(member.data());
        z.avail_in = static_cast<uInt>(member.size());
        z.next_out = reinterpret_cast<Bytef*>(out.get());
        z.avail_out = static_cast<uInt>(inflated);
        const int code = inflate(&z, Z_FINISH);
        const std::size_t produced = z.total_out;
        inflateEnd(&z);
        if (code != Z_STREAM_END)
            state.SkipWithError("the payload did not inflate");
        // The inner header is a few dozen bytes; the XML starts at its "<?xml".
        const std::string_view text(out.get(), produced);
        const std::size_t xml = text.find("<?xml");
        pugi::xml_document document;
        const auto result = document.load_buffer_inplace(out.get() + xml, produced - xml, xmlParseOptions,
                                                         pugi::encoding_auto);
        benchmark::DoNotOptimize(result.status);
    }
    pugi::set_memory_management_functions(wipingAllocate, wipingDeallocate);
}

void codecOpen(benchmark::State& state)
{
    const std::vector<std::uint8_t> file = fileBytes();
    const Credentials c = credentials();
    for (auto _ : state) {
        auto opened = KdbxFile::open(file, c);
        benchmark::DoNotOptimize(opened.get());
    }
}

// The two halves of a save: what the caller's thread waits for (encoding the document into a whole file), and the
// check that commit runs on the written bytes, off that thread (decrypt, inflate and digest as a stream).
void codecEncode(benchmark::State& state)
{
    const Credentials c = credentials();
    auto opened = KdbxFile::open(fileBytes(), c);
    for (auto _ : state) {
        auto encoded = opened->encode(c);
        benchmark::DoNotOptimize(encoded.bytes.data());
    }
}

void codecVerify(benchmark::State& state)
{
    const Credentials c = credentials();
    auto opened = KdbxFile::open(fileBytes(), c);
    const EncodedFile encoded = opened->encode(c);
    for (auto _ : state)
        KdbxFile::verify(encoded.bytes, c, encoded.digests);
}

} // namespace

BENCHMARK(floorInflateAndParse)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(codecOpen)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(codecEncode)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(codecVerify)->Unit(benchmark::kMillisecond)->UseRealTime();
