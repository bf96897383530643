// tools/PasswordGenerator.h: random character passwords, drawn without bias from the system source.
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstddef>
#include <string>

namespace quillon::tools {

// Which character sets to draw from; they are joined in this order.
struct CharacterSets {
    bool lowerCase = true; // a-z
    bool upperCase = true; // A-Z
    bool digits = true;    // 0-9
    bool symbols = true;   // !@#$%^&*()-_=+[]{};:,.<>?
};

// The selected sets joined in fixed order; all four give the 87-character alphabet.
std::string characterAlphabet(CharacterSets sets);

// Uniform in 0..n-1 for n in 1..256, one random byte per attempt with rejection above the largest
// multiple of n. Other n stop the program.
std::size_t drawBelow(std::size_t n);

// `length` characters, each drawn independently from the selected sets; empty when none is selected.
kdbx::SecureBytes characterPassword(std::size_t length, CharacterSets sets = {});

// log2(alphabetSize) × count; 0 when fewer than 2 symbols to choose from.
double entropyBits(std::size_t alphabetSize, std::size_t count);

} // namespace quillon::tools
