#include "tools/PasswordGenerator.h"

#include "kdbx/Check.h"
#include "kdbx/Random.h"

#include <array>
#include <cmath>

namespace quillon::tools {

std::string characterAlphabet(CharacterSets sets)
{
    std::string alphabet;
    if (sets.lowerCase)
        alphabet += "abcdefghijklmnopqrstuvwxyz";
    if (sets.upperCase)
        alphabet += "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    if (sets.digits)
        alphabet += "0123456789";
    if (sets.symbols)
        alphabet += "!@#$%^&*()-_=+[]{};:,.<>?";
    return alphabet;
}

std::size_t drawBelow(std::size_t n)
{
    QUILLON_CHECK(n >= 1 && n <= 256);
    // Computed wide: for n = 256 (any power of two) the limit is 256 and every byte is accepted.
    const std::size_t limit = 256 / n * n;
    std::array<std::uint8_t, 1> byte{};
    while (true) {
        kdbx::randomFill(byte);
        const std::size_t b = byte[0];
        if (b < limit) {
            byte[0] = 0;
            return b % n;
        }
    }
}

kdbx::SecureBytes characterPassword(std::size_t length, CharacterSets sets)
{
    const std::string alphabet = characterAlphabet(sets);
    kdbx::SecureBytes out;
    if (alphabet.empty())
        return out;
    out.resize(length);
    for (std::size_t i = 0; i < length; ++i)
        out[i] = static_cast<std::uint8_t>(alphabet[drawBelow(alphabet.size())]);
    return out;
}

double entropyBits(std::size_t alphabetSize, std::size_t count)
{
    if (alphabetSize < 2)
        return 0.0;
    return std::log2(static_cast<double>(alphabetSize)) * static_cast<double>(count);
}

} // namespace quillon::tools
