// lock/UnlockMode.h: how an unlock attempt was started, which decides what its failure costs.
#pragma once

#include <cstdint>

namespace quillon::lock {

enum class UnlockMode : std::uint8_t {
    password,      // typed password, optionally followed by a new PIN
    pin,           // a correct PIN released the held credentials
    passwordAtPIN, // on the PIN screen, the text was not the PIN and is tried as a password
    duressAtPIN,   // on the PIN screen, the text was the duress password
};

} // namespace quillon::lock
