// Any bytes as a gzip member: refused with a KdbxError or a DecompressionError, or inflated to data that
// our writer packs and the reader gives back unchanged. The ceiling is lowered so bombs stay cheap.
#include "kdbx/Gzip.h"
#include "kdbx/KdbxError.h"

#include <algorithm>
#include <cstdlib>

using namespace quillon::kdbx;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t ceiling = std::size_t{16} << 20;
    SecureBytes out;
    try {
        out = gunzip(ByteView(data, size), ceiling);
    } catch (const KdbxError&) {
        return 0;
    } catch (const DecompressionError&) {
        return 0;
    }
    if (out.size() > ceiling)
        std::abort();
    const auto again = gunzip(gzip(out.span()), ceiling);
    if (!std::ranges::equal(again.span(), out.span()))
        std::abort();
    return 0;
}
