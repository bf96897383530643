#include "kdbx/Encoding.h"

#include <array>
#include <limits>

namespace quillon::kdbx {
namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::uint8_t invalid = 0xFF;
constexpr std::uint8_t space = 0xFE;
constexpr std::uint8_t pad = 0xFD;

constexpr std::array<std::uint8_t, 256> decodeTable = [] {
    std::array<std::uint8_t, 256> t{};
    t.fill(invalid);
    for (std::uint8_t i = 0; i < 64; ++i)
        t[static_cast<unsigned char>(alphabet[i])] = i;
    t[' '] = t['\t'] = t['\r'] = t['\n'] = space;
    t['='] = pad;
    return t;
}();

// Base64 is written here rather than taken from OpenSSL because the codec needs to decode into wiped
// memory in one pass over large documents, and EVP_DecodeBlock hides how much padding it consumed.
template <class Out>
bool decodeBase64(std::string_view text, Out& out)
{
    std::uint32_t acc = 0;
    int bits = 0;
    std::size_t pads = 0;
    std::size_t symbols = 0;
    for (char ch : text) {
        const std::uint8_t v = decodeTable[static_cast<unsigned char>(ch)];
        if (v == space)
            continue;
        if (v == pad) {
            ++pads;
            continue;
        }
        if (v == invalid || pads > 0)
            return false;
        ++symbols;
        acc = (acc << 6) | v;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<std::uint8_t>(acc >> bits));
            acc &= (1u << bits) - 1;
        }
    }
    // A lone symbol in the last group carries no whole byte; padding may only complete a group.
    const std::size_t rest = symbols % 4;
    if (rest == 1 || pads > 2 || (pads > 0 && (rest + pads) % 4 != 0))
        return false;
    return true;
}

int hexValue(char c) noexcept
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

template <class Out>
bool decodeHex(std::string_view text, Out& out)
{
    if (text.size() % 2 != 0)
        return false;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int hi = hexValue(text[i]);
        const int lo = hexValue(text[i + 1]);
        if (hi < 0 || lo < 0)
            return false;
        out.push_back(static_cast<std::uint8_t>(hi << 4 | lo));
    }
    return true;
}

} // namespace

std::string base64Encode(ByteView data)
{
    std::string out;
    base64EncodeInto(data, out);
    return out;
}

void base64EncodeInto(ByteView data, std::string& out)
{
    out.clear();
    out.reserve((data.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= data.size(); i += 3) {
        const std::uint32_t v = static_cast<std::uint32_t>(data[i]) << 16 | static_cast<std::uint32_t>(data[i + 1]) << 8 |
                                data[i + 2];
        out.push_back(alphabet[v >> 18]);
        out.push_back(alphabet[(v >> 12) & 63]);
        out.push_back(alphabet[(v >> 6) & 63]);
        out.push_back(alphabet[v & 63]);
    }
    const std::size_t rest = data.size() - i;
    if (rest > 0) {
        std::uint32_t v = static_cast<std::uint32_t>(data[i]) << 16;
        if (rest == 2)
            v |= static_cast<std::uint32_t>(data[i + 1]) << 8;
        out.push_back(alphabet[v >> 18]);
        out.push_back(alphabet[(v >> 12) & 63]);
        out.push_back(rest == 2 ? alphabet[(v >> 6) & 63] : '=');
        out.push_back('=');
    }
}

std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text)
{
    std::vector<std::uint8_t> out;
    out.reserve(text.size() / 4 * 3 + 3);
    if (!decodeBase64(text, out))
        return std::nullopt;
    return out;
}

bool base64DecodeInto(std::string_view text, SecureBytes& out)
{
    out.reserve(out.size() + text.size() / 4 * 3 + 3);
    return decodeBase64(text, out);
}

std::optional<std::vector<std::uint8_t>> hexDecode(std::string_view text)
{
    std::vector<std::uint8_t> out;
    out.reserve(text.size() / 2);
    if (!decodeHex(text, out))
        return std::nullopt;
    return out;
}

bool hexDecodeInto(std::string_view text, SecureBytes& out)
{
    out.reserve(out.size() + text.size() / 2);
    return decodeHex(text, out);
}

std::string hexEncode(ByteView data, bool upperCase)
{
    const char* digits = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string out;
    out.reserve(data.size() * 2);
    for (std::uint8_t b : data) {
        out.push_back(digits[b >> 4]);
        out.push_back(digits[b & 15]);
    }
    return out;
}

std::optional<std::int64_t> parseDecimal(std::string_view text) noexcept
{
    bool negative = false;
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    if (text.empty())
        return std::nullopt;
    // Accumulate as a negative number so that the most negative value is reachable.
    constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
    std::int64_t value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9')
            return std::nullopt;
        const int digit = c - '0';
        if (value < (lowest + digit) / 10)
            return std::nullopt;
        value = value * 10 - digit;
    }
    if (!negative) {
        if (value == lowest)
            return std::nullopt;
        value = -value;
    }
    return value;
}

std::size_t decodeUtf8(const unsigned char* p, std::size_t left, char32_t& c) noexcept
{
    if (left == 0)
        return 0;
    const unsigned char lead = p[0];
    if (lead < 0x80) {
        c = lead;
        return 1;
    }
    std::size_t n = 0;
    char32_t cp = 0;
    if ((lead & 0xE0) == 0xC0) {
        n = 2;
        cp = lead & 0x1Fu;
    } else if ((lead & 0xF0) == 0xE0) {
        n = 3;
        cp = lead & 0x0Fu;
    } else if ((lead & 0xF8) == 0xF0) {
        n = 4;
        cp = lead & 0x07u;
    } else {
        return 0;
    }
    if (n > left)
        return 0;
    for (std::size_t k = 1; k < n; ++k) {
        if ((p[k] & 0xC0) != 0x80)
            return 0;
        cp = (cp << 6) | (p[k] & 0x3Fu);
    }
    static constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < smallest[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        return 0;
    c = cp;
    return n;
}

bool isValidUtf8(std::string_view text) noexcept
{
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t left = text.size();
    while (left > 0) {
        if (*p < 0x80) {
            ++p;
            --left;
            continue;
        }
        char32_t c = 0;
        const std::size_t n = decodeUtf8(p, left, c);
        if (n == 0)
            return false;
        p += n;
        left -= n;
    }
    return true;
}

} // namespace quillon::kdbx
