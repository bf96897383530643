// kdbx/SecureBytes.h: a move-only byte buffer whose memory is wiped when it is released.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace quillon::kdbx {

void secureWipe(void* data, std::size_t size) noexcept;

// Storage behind SecureBytes. Large blocks (whole payloads) are mapped on their own, on huge pages
// where the system offers them: a freshly opened file's megabytes then cost a handful of page faults
// instead of thousands. Release wipes the block before it goes back.
void* allocateSecureBlock(std::size_t size);
void releaseSecureBlock(void* block, std::size_t size) noexcept;

// Wipes every block before it goes back to the heap, so reallocation never leaves old copies behind.
template <class T>
struct WipingAllocator {
    using value_type = T;
    WipingAllocator() noexcept = default;
    template <class U>
    WipingAllocator(const WipingAllocator<U>&) noexcept
    {
    }
    T* allocate(std::size_t n) { return static_cast<T*>(allocateSecureBlock(n * sizeof(T))); }
    // Growth leaves bytes uninitialised: large buffers that are about to be overwritten are not
    // zeroed first. SecureBytes zeroes where its callers expect zeros.
    template <class U>
    void construct(U* p) noexcept
    {
        ::new (static_cast<void*>(p)) U;
    }
    template <class U, class... Args>
    void construct(U* p, Args&&... args)
    {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
    void deallocate(T* p, std::size_t n) noexcept
    {
        releaseSecureBlock(p, n * sizeof(T));
    }
    template <class U>
    bool operator==(const WipingAllocator<U>&) const noexcept
    {
        return true;
    }
};

using SecureVector = std::vector<std::uint8_t, WipingAllocator<std::uint8_t>>;
using ByteView = std::span<const std::uint8_t>;

// Secrets are never std::string: short strings live inside the object and escape any allocator.
class SecureBytes {
public:
    SecureBytes() = default;
    // Zero-filled.
    explicit SecureBytes(std::size_t size);
    // For buffers that are overwritten whole right away, such as decompression output.
    static SecureBytes uninitialised(std::size_t size);
    static SecureBytes from(ByteView data) { return SecureBytes(data); }
    static SecureBytes fromText(std::string_view utf8)
    {
        return SecureBytes(ByteView(reinterpret_cast<const std::uint8_t*>(utf8.data()), utf8.size()));
    }

    SecureBytes(SecureBytes&&) noexcept = default;
    // The allocator wipes every block it takes back, all of its capacity, so neither the old buffer of a
    // move nor a destroyed one needs a wipe of its own (on a whole decrypted document, a second pass is
    // noticeable).
    SecureBytes& operator=(SecureBytes&& other) noexcept = default;
    SecureBytes(const SecureBytes&) = delete;
    SecureBytes& operator=(const SecureBytes&) = delete;
    ~SecureBytes() = default;

    SecureBytes copy() const { return SecureBytes(span()); }

    std::uint8_t* data() noexcept { return bytes_.data(); }
    const std::uint8_t* data() const noexcept { return bytes_.data(); }
    std::size_t size() const noexcept { return bytes_.size(); }
    bool empty() const noexcept { return bytes_.empty(); }
    std::uint8_t& operator[](std::size_t i) noexcept { return bytes_[i]; }
    std::uint8_t operator[](std::size_t i) const noexcept { return bytes_[i]; }
    std::span<std::uint8_t> span() noexcept { return bytes_; }
    ByteView span() const noexcept { return bytes_; }
    // The bytes as UTF-8 text, valid until the buffer changes.
    std::string_view view() const noexcept
    {
        return {reinterpret_cast<const char*>(bytes_.data()), bytes_.size()};
    }

    void reserve(std::size_t n) { bytes_.reserve(n); }
    // Growth is zero-filled; shrinking wipes what is cut off.
    void resize(std::size_t n);
    // Growth is left uninitialised, for space that is written before it is read.
    void resizeUninitialised(std::size_t n);
    // Copies with memcpy: the allocator's element-wise construct would copy byte by byte.
    void append(ByteView more);
    void append(std::string_view text)
    {
        append(ByteView(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
    }
    void push_back(std::uint8_t b) { bytes_.push_back(b); }
    // Overwrites the content with zeros and empties the buffer. A large buffer is given back at once (wiped
    // whole by the allocator); a small one keeps its capacity for reuse.
    void wipe() noexcept;

private:
    explicit SecureBytes(ByteView data) { append(data); }
    SecureVector bytes_;
};

} // namespace quillon::kdbx
