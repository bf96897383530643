// Codec throughput: the block stream with AES-256-CBC, gzip and gunzip against zlib alone, and Argon2.
#include "kdbx/Argon2Kdf.h"
#include "kdbx/BlockStream.h"
#include "kdbx/ByteReader.h"
#include "kdbx/Gzip.h"
#include "kdbx/PayloadCipher.h"
#include "kdbx/Random.h"

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace quillon::kdbx;

constexpr std::size_t payloadSize = std::size_t{64} << 20;

// Looks like a database's XML: repeated structure with varying text, so it compresses as real files do.
std::vector<std::uint8_t> xmlLikePayload(std::size_t size)
{
    std::string text;
    text.reserve(size + 512);
    for (std::size_t i = 0; text.size() < size; ++i) {
        const auto noise = randomBytes(12);
        std::string hex;
        for (const auto b : noise)
            hex += "0123456789abcdef"[b & 15];
        text += "<Entry><UUID>" + hex + "==</UUID><String><Key>Title</Key><Value>Entry " + std::to_string(i) +
                "</Value></String><String><Key>Password</Key><Value Protected=\"True\">" + hex +
                "</Value></String><Times><LastModificationTime>2Yp+2w4AAAA=</LastModificationTime></Times></Entry>\n";
    }
    text.resize(size);
    return {text.begin(), text.end()};
}

void BM_BlockStreamReadAndDecrypt(benchmark::State& state)
{
    const SecureBytes key = randomSecret(32);
    const SecureBytes hmacKey = randomSecret(64);
    const auto iv = randomBytes(16);
    const auto ciphertext = aes256CbcEncrypt(key, iv, randomBytes(payloadSize));
    std::vector<std::uint8_t> stream;
    writeBlockStream(stream, ciphertext, hmacKey);
    OuterHeader header;
    header.encryptionIV = iv;
    const DerivedKeys keys{key.copy(), hmacKey.copy()};
    for (auto _ : state) {
        ByteReader reader(stream);
        SecureBytes payload = decryptPayload(reader, header, keys);
        benchmark::DoNotOptimize(payload.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(payloadSize));
}
BENCHMARK(BM_BlockStreamReadAndDecrypt)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_GunzipOurs(benchmark::State& state)
{
    const auto compressed = gzip(xmlLikePayload(payloadSize));
    for (auto _ : state) {
        const SecureBytes plain = gunzip(compressed);
        benchmark::DoNotOptimize(plain.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(payloadSize));
}
BENCHMARK(BM_GunzipOurs)->Unit(benchmark::kMillisecond)->UseRealTime();

// Saving: our writer deflates 4 MiB slices on every core, fed in the 8 KiB pieces a serialiser hands over;
// beside it zlib alone, one stream at the same (default) level on one core.
void BM_GzipOurs(benchmark::State& state)
{
    const auto data = xmlLikePayload(payloadSize);
    for (auto _ : state) {
        GzipWriter writer;
        for (std::size_t at = 0; at < data.size(); at += 8192)
            writer.write(ByteView(data).subspan(at, std::min<std::size_t>(8192, data.size() - at)));
        const SecureBytes member = writer.finish();
        benchmark::DoNotOptimize(member.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(payloadSize));
}
BENCHMARK(BM_GzipOurs)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DeflateZlib(benchmark::State& state)
{
    const auto data = xmlLikePayload(payloadSize);
    std::vector<std::uint8_t> out(compressBound(static_cast<uLong>(data.size())));
    for (auto _ : state) {
        z_stream z{};
        deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
        z.next_in = const_cast<Bytef*>(data.data());
        z.avail_in = static_cast<uInt>(data.size());
        z.next_out = out.data();
        z.avail_out = static_cast<uInt>(out.size());
        const int rc = deflate(&z, Z_FINISH);
        deflateEnd(&z);
        if (rc != Z_STREAM_END)
            state.SkipWithError("zlib did not finish the stream");
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(payloadSize));
}
BENCHMARK(BM_DeflateZlib)->Unit(benchmark::kMillisecond)->UseRealTime();

// The floor: zlib alone on the same data into a buffer of the known size. Argument fresh: 1 for a new,
// uninitialised heap buffer each time, as a reader of a newly opened file has; 0 for one buffer reused
// and already in memory (the pure inflate time). Argument gzip: 0 inflates the raw DEFLATE stream; 1
// lets zlib decode the whole gzip member itself, which includes the CRC-32 that the format requires.
void BM_InflateZlib(benchmark::State& state)
{
    const auto compressed = gzip(xmlLikePayload(payloadSize));
    const bool fresh = state.range(0) == 1;
    const bool member = state.range(1) == 1;
    // Without the 10-byte header and the 8-byte trailer, what is left is the raw DEFLATE stream.
    const ByteView input = member ? ByteView(compressed) : ByteView(compressed).subspan(10, compressed.size() - 18);
    std::unique_ptr<std::uint8_t[]> reused(new std::uint8_t[payloadSize]);
    std::fill_n(reused.get(), payloadSize, 0);
    for (auto _ : state) {
        std::unique_ptr<std::uint8_t[]> out(fresh ? new std::uint8_t[payloadSize] : nullptr);
        if (!fresh)
            out.swap(reused);
        z_stream z{};
        inflateInit2(&z, member ? 16 + MAX_WBITS : -MAX_WBITS);
        z.next_in = const_cast<Bytef*>(input.data());
        z.avail_in = static_cast<uInt>(input.size());
        z.next_out = out.get();
        z.avail_out = static_cast<uInt>(payloadSize);
        const int rc = inflate(&z, Z_FINISH);
        inflateEnd(&z);
        if (rc != Z_STREAM_END)
            state.SkipWithError("zlib did not reach the end of the stream");
        benchmark::DoNotOptimize(out.get());
        if (!fresh)
            out.swap(reused);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(payloadSize));
}
BENCHMARK(BM_InflateZlib)
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->ArgNames({"fresh", "gzip"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Matches `echo -n password | argon2 somesaltsomesalt -id -t 10 -m 16 -p 2` (64 MiB, 10 passes, 2 lanes).
void BM_Argon2(benchmark::State& state)
{
    const auto variant = state.range(0) == 0 ? Argon2Variant::argon2d : Argon2Variant::argon2id;
    const std::string password = "password";
    const std::string salt = "somesaltsomesalt";
    const ByteView pw(reinterpret_cast<const std::uint8_t*>(password.data()), password.size());
    const ByteView sa(reinterpret_cast<const std::uint8_t*>(salt.data()), salt.size());
    for (auto _ : state) {
        const SecureBytes out = argon2Raw(variant, pw, sa, {}, {}, 10, 64 * 1024, 2, 0x13);
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_Argon2)->Arg(0)->Arg(1)->ArgName("id")->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
