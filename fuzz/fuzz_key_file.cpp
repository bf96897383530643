// Any bytes are a key file: the reader never fails, and the same bytes always give the same key.
#include "kdbx/KeyFile.h"

#include <algorithm>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillon::kdbx;
    const ByteView file(data, size);
    const SecureBytes key = keyFileKey(file);
    if (!std::ranges::equal(key.span(), keyFileKey(file).span()))
        std::abort();
    return 0;
}
