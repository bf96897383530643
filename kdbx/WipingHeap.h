// kdbx/WipingHeap.h: a heap for pugixml and zlib whose blocks are wiped when freed.
#pragma once

#include <cstddef>

namespace quillon::kdbx {

// The decrypted document is the largest secret in the process. pugixml's deallocate gets no size, so
// every block carries its size in a header in front of it.
void* wipingAllocate(std::size_t size) noexcept;
void wipingDeallocate(void* block) noexcept;

// zlib's allocator shape (z_stream::zalloc / zfree).
void* wipingZalloc(void* opaque, unsigned items, unsigned size) noexcept;
void wipingZfree(void* opaque, void* block) noexcept;

// Bytes currently held by the wiping heap; lets tests and benchmarks watch peak use.
std::size_t wipingHeapInUse() noexcept;
std::size_t wipingHeapPeak() noexcept;
void wipingHeapResetPeak() noexcept;

} // namespace quillon::kdbx

// pugixml's allocator is installed by a static initializer in WipingHeap.cpp, before main and before
// any document exists. The kdbx target passes -u with this symbol to the linker so that object is always
// linked, even from a static library.
extern "C" int quillon_wiping_heap_anchor;
