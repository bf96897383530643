#include "kdbx/WipingHeap.h"

#include "kdbx/SecureBytes.h"

#include <pugixml.hpp>

#include <atomic>
#include <cstdlib>
#include <limits>

namespace quillon::kdbx {
namespace {

// Keeps the user block aligned as malloc's would be.
constexpr std::size_t headerSize = alignof(std::max_align_t);
static_assert(headerSize >= sizeof(std::size_t));

std::atomic<std::size_t> inUse{0};
std::atomic<std::size_t> peak{0};

void account(std::size_t added) noexcept
{
    const std::size_t now = inUse.fetch_add(added, std::memory_order_relaxed) + added;
    std::size_t seen = peak.load(std::memory_order_relaxed);
    while (now > seen && !peak.compare_exchange_weak(seen, now, std::memory_order_relaxed)) {
    }
}

} // namespace

void* wipingAllocate(std::size_t size) noexcept
{
    if (size > std::numeric_limits<std::size_t>::max() - headerSize)
        return nullptr;
    auto* raw = static_cast<unsigned char*>(std::malloc(size + headerSize));
    if (!raw)
        return nullptr;
    *reinterpret_cast<std::size_t*>(raw) = size;
    account(size);
    return raw + headerSize;
}

void wipingDeallocate(void* block) noexcept
{
    if (!block)
        return;
    auto* raw = static_cast<unsigned char*>(block) - headerSize;
    const std::size_t size = *reinterpret_cast<std::size_t*>(raw);
    secureWipe(block, size);
    inUse.fetch_sub(size, std::memory_order_relaxed);
    std::free(raw);
}

void* wipingZalloc(void*, unsigned items, unsigned size) noexcept
{
    if (size != 0 && items > std::numeric_limits<std::size_t>::max() / size)
        return nullptr;
    return wipingAllocate(std::size_t{items} * size);
}

void wipingZfree(void*, void* block) noexcept { wipingDeallocate(block); }

std::size_t wipingHeapInUse() noexcept { return inUse.load(std::memory_order_relaxed); }
std::size_t wipingHeapPeak() noexcept { return peak.load(std::memory_order_relaxed); }
void wipingHeapResetPeak() noexcept { peak.store(inUse.load(std::memory_order_relaxed), std::memory_order_relaxed); }

namespace {
struct InstallPugiHeap {
    InstallPugiHeap() noexcept { pugi::set_memory_management_functions(wipingAllocate, wipingDeallocate); }
} installPugiHeap;
} // namespace

} // namespace quillon::kdbx

int quillon_wiping_heap_anchor = 0; // C linkage from the declaration in the header
