// Any bytes: the header and dictionary readers either refuse them with a KdbxError or read something
// that the writers reproduce exactly.
#include "kdbx/ByteReader.h"
#include "kdbx/KdbxError.h"
#include "kdbx/OuterHeader.h"
#include "kdbx/VariantDictionary.h"

#include <cstdlib>

using namespace quillon::kdbx;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const ByteView input(data, size);
    try {
        ByteReader reader(input);
        const auto parsed = parseOuterHeader(reader);
        if (parsed.raw.size() != reader.position())
            std::abort();
        const auto written = serialiseOuterHeader(parsed.header);
        ByteReader again(written);
        if (parseOuterHeader(again).header != parsed.header)
            std::abort();
    } catch (const KdbxError&) {
    }
    try {
        const auto dictionary = parseVariantDictionary(input);
        if (parseVariantDictionary(serialiseVariantDictionary(dictionary)) != dictionary)
            std::abort();
    } catch (const KdbxError&) {
    }
    return 0;
}
