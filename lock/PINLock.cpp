#include "lock/PINLock.h"

#include "kdbx/Crypto.h"
#include "kdbx/Random.h"

namespace quillon::lock {

namespace {

struct CodePoint {
    char32_t value = 0;
    std::size_t length = 1;
    bool valid = false;
};

CodePoint decode(std::string_view text, std::size_t at) noexcept
{
    const auto lead = static_cast<unsigned char>(text[at]);
    std::size_t length = 0;
    char32_t value = 0;
    if (lead < 0x80)
        return {lead, 1, true};
    if ((lead & 0xE0) == 0xC0) {
        length = 2;
        value = lead & 0x1Fu;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3;
        value = lead & 0x0Fu;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4;
        value = lead & 0x07u;
    } else {
        return {};
    }
    if (length > text.size() - at)
        return {};
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xC0) != 0x80)
            return {};
        value = (value << 6) | (next & 0x3Fu);
    }
    static constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < smallest[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return {};
    return {value, length, true};
}

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
        const CodePoint cp = decode(utf8, at);
        at += cp.length;
        if (!cp.valid) {
            ++count;
            started = joinNext = unpairedFlag = false;
            previous = 0;
            continue;
        }
        const char32_t c = cp.value;
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
