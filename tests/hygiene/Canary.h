// tests/hygiene/Canary.h: random secrets the tests plant, held only masked, and searches for them in
// memory and files that never unmask a whole copy.
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quillon::test {

class Canary {
public:
    // `length` random letters and digits (valid UTF-8 text, as a password or value would be).
    explicit Canary(std::size_t length = 32);
    // The clear bytes, for handing to the code under test.
    kdbx::SecureBytes reveal() const;
    // True when `text` starts with the canary; compares byte by byte without unmasking it whole.
    bool isAt(const std::uint8_t* text, std::size_t available) const noexcept;
    std::size_t size() const noexcept { return masked_.size(); }
    // Where the canary occurs in the bytes.
    std::vector<std::size_t> findIn(kdbx::ByteView bytes) const;

private:
    std::vector<std::uint8_t> masked_;
    std::vector<std::uint8_t> pad_;
};

struct Sighting {
    std::string where; // the mapping's name and address
    std::size_t canary = 0;
};

// Every writable mapping of this process, read through /proc/self/mem.
std::vector<Sighting> scanOwnMemory(const std::vector<const Canary*>& canaries);

} // namespace quillon::test
