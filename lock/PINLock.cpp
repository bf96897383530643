#include "lock/PINLock.h"

#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"
#include "kdbx/Random.h"

namespace quillon::lock {

namespace {

bool in(char32_t c, char32_t first, char32_t last) noexcept { return c >= first && c <= last; }

// Code points that attach to the character before them.
bool extends(char32_t c) noexcept
{
    return in(c, 0x0300, 0x036F) || in(c, 0x1AB0, 0x1AFF) || in(c, 0x1DC0, 0x1DFF) || in(c, 0x20D0, 0x20FF) ||
           in(c, 0xFE20, 0xFE2F) || in(c, 0xFE00, 0xFE0F) || in(c, 0xE0100, 0xE01EF) || in(c, 0x1F3FB, 0x1F3FF) ||
           in(c, 0xE0020, 0xE007F);
}

constexpr char32_t zeroWidthJoiner = 0x200D;

bool isRegionalIndicator(char32_t c) noexcept { return in(c, 0x1F1E6, 0x1F1FF); }

} // namespace

std::size_t countUserCharacters(std::string_view utf8) noexcept
{
    std::size_t count = 0;
    bool started = false;      // a character is open that marks may attach to
    bool joinNext = false;     // the previous code point was a ZWJ inside a character
    bool unpairedFlag = false; // the open character is a single regional indicator
    char32_t previous = 0;
    for (std::size_t at = 0; at < utf8.size();) {
        char32_t c = 0;
        const std::size_t length =
            kdbx::decodeUtf8(reinterpret_cast<const unsigned char*>(utf8.data()) + at, utf8.size() - at, c);
        if (length == 0) {
            ++at;
            ++count;
            started = joinNext = unpairedFlag = false;
            previous = 0;
            continue;
        }
        at += length;
        bool attaches = started && (extends(c) || c == zeroWidthJoiner || joinNext);
        if (started && previous == U'\r' && c == U'\n')
            attaches = true;
        if (started && unpairedFlag && isRegionalIndicator(c)) {
            attaches = true;
            unpairedFlag = false;
        } else if (!attaches) {
            unpairedFlag = isRegionalIndicator(c);
        }
        if (!attaches)
            ++count;
        started = true;
        joinNext = c == zeroWidthJoiner;
        previous = c;
    }
    return count;
}

std::array<std::uint8_t, 32> pinHash(kdbx::ByteView pin, kdbx::ByteView salt)
{
    std::array<std::uint8_t, 32> out{};
    kdbx::sha256({salt, pin}, out);
    return out;
}

std::optional<PINLock> PINLock::make(kdbx::ByteView pin)
{
    const std::string_view text(reinterpret_cast<const char*>(pin.data()), pin.size());
    if (countUserCharacters(text) < minimumPINLength)
        return std::nullopt;
    PINLock lock;
    kdbx::randomFill(lock.salt);
    lock.hash = pinHash(pin, lock.salt);
    lock.triesLeft = pinTries;
    return lock;
}

bool PINLock::check(kdbx::ByteView pin) const
{
    auto candidate = pinHash(pin, salt);
    const bool same = kdbx::constantTimeEqual(candidate, hash);
    kdbx::secureWipe(candidate.data(), candidate.size());
    return same;
}

void PINLock::wipe() noexcept
{
    kdbx::secureWipe(salt.data(), salt.size());
    kdbx::secureWipe(hash.data(), hash.size());
    triesLeft = 0;
}

} // namespace quillon::lock
