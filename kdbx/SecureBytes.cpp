#include "kdbx/SecureBytes.h"

#include <cstring>

#include <openssl/crypto.h>

#include <algorithm>
#include <new>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace quillon::kdbx {
namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;
// Below this, the ordinary heap is cheaper than a mapping of its own.
constexpr std::size_t ownMappingThreshold = std::size_t{4} << 20;

std::size_t mappedLength(std::size_t size) noexcept { return (size + hugePage - 1) / hugePage * hugePage; }

} // namespace

void* allocateSecureBlock(std::size_t size)
{
    if (size < ownMappingThreshold)
        return ::operator new(size);
    const std::size_t length = mappedLength(size);
    void* block = ::mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED)
        throw std::bad_alloc();
#ifdef MADV_HUGEPAGE
    (void)::madvise(block, length, MADV_HUGEPAGE);
#endif
#ifdef MADV_DONTDUMP
    (void)::madvise(block, length, MADV_DONTDUMP);
#endif
    return block;
}

namespace {

#ifdef __APPLE__
using ResidencyByte = char;
#else
using ResidencyByte = unsigned char;
#endif

// A large buffer is often reserved beyond what it ever held. Its pages that were never touched hold nothing,
// and wiping them would only map them now: only the resident ones are wiped.
void wipeResidentPages(void* block, std::size_t size) noexcept
{
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    std::vector<ResidencyByte> resident;
    try {
        resident.resize((size + page - 1) / page);
    } catch (...) {
        secureWipe(block, size);
        return;
    }
    if (::mincore(block, size, resident.data()) != 0) {
        secureWipe(block, size);
        return;
    }
    auto* bytes = static_cast<unsigned char*>(block);
    std::size_t i = 0;
    while (i < resident.size()) {
        if (!(resident[i] & 1)) {
            ++i;
            continue;
        }
        std::size_t j = i;
        while (j < resident.size() && (resident[j] & 1))
            ++j;
        const std::size_t begin = i * page;
        secureWipe(bytes + begin, std::min(size, j * page) - begin);
        i = j;
    }
}

} // namespace

void releaseSecureBlock(void* block, std::size_t size) noexcept
{
    if (!block)
        return;
    if (size < ownMappingThreshold) {
        secureWipe(block, size);
        ::operator delete(block);
    } else {
        wipeResidentPages(block, size);
        ::munmap(block, mappedLength(size));
    }
}

void secureWipe(void* data, std::size_t size) noexcept
{
    if (data && size)
        OPENSSL_cleanse(data, size);
}

SecureBytes::SecureBytes(std::size_t size) : bytes_(size)
{
    if (size != 0)
        std::memset(bytes_.data(), 0, size);
}

SecureBytes SecureBytes::uninitialised(std::size_t size)
{
    SecureBytes out;
    out.bytes_.resize(size);
    return out;
}

void SecureBytes::resizeUninitialised(std::size_t n)
{
    if (n < bytes_.size())
        secureWipe(bytes_.data() + n, bytes_.size() - n);
    bytes_.resize(n);
}

void SecureBytes::append(ByteView more)
{
    if (more.empty())
        return;
    const std::size_t old = bytes_.size();
    resizeUninitialised(old + more.size());
    std::memcpy(bytes_.data() + old, more.data(), more.size());
}

void SecureBytes::resize(std::size_t n)
{
    const std::size_t old = bytes_.size();
    resizeUninitialised(n);
    if (n > old)
        std::memset(bytes_.data() + old, 0, n - old);
}

void SecureBytes::wipe() noexcept
{
    if (bytes_.capacity() >= ownMappingThreshold) {
        SecureVector().swap(bytes_);
        return;
    }
    secureWipe(bytes_.data(), bytes_.size());
    bytes_.clear();
}

} // namespace quillon::kdbx
