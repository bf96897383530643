// kdbx/Random.h: the one source of random bytes for the whole program.
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace quillon::kdbx {

// Fills from the system's secure source; if it fails, the process stops with
// "The system could not provide random bytes." rather than go on with weaker values.
void randomFill(std::span<std::uint8_t> out) noexcept;

std::vector<std::uint8_t> randomBytes(std::size_t count);
SecureBytes randomSecret(std::size_t count);

} // namespace quillon::kdbx
