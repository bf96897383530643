#include "tools/OtpAuthUri.h"

#include "kdbx/Encoding.h"
#include "tools/UriComponents.h"

#include <array>
#include <limits>
#include <string>

namespace quillon::tools {
namespace {

bool isSpace(char c) noexcept { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }
char lower(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
char upper(char c) noexcept { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool equalsIgnoringCase(std::string_view a, std::string_view b) noexcept
{
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i)
        if (lower(a[i]) != lower(b[i]))
            return false;
    return true;
}

std::string_view trimmed(std::string_view text) noexcept
{
    while (!text.empty() && isSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

// Decoded text that a document can hold; nothing for a bad escape or invalid UTF-8.
std::optional<std::string> decodedText(std::string_view raw)
{
    kdbx::SecureBytes bytes;
    if (!percentDecode(raw, bytes) || !kdbx::isValidUtf8(bytes.view()))
        return std::nullopt;
    return std::string(bytes.view());
}

struct Query {
    std::vector<QueryItem> items;
    std::vector<std::string> names; // decoded, parallel to items

    // The first item whose decoded name is exactly `key`.
    const QueryItem* find(std::string_view key) const
    {
        for (std::size_t i = 0; i < items.size(); ++i)
            if (names[i] == key)
                return &items[i];
        return nullptr;
    }
};

// Absent or without a value gives the fallback; otherwise the value must read as a number in range.
std::optional<std::int64_t> numberItem(const Query& query, std::string_view key, std::int64_t fallback,
                                       std::int64_t lowest, std::int64_t highest)
{
    const QueryItem* item = query.find(key);
    if (!item || !item->value)
        return fallback;
    const auto text = decodedText(*item->value);
    if (!text)
        return std::nullopt;
    const auto number = kdbx::parseDecimal(*text);
    if (!number || *number < lowest || *number > highest)
        return std::nullopt;
    return number;
}

std::optional<TOTP> parseUri(std::string_view text)
{
    const auto parts = splitUri(text);
    if (!parts || !parts->host)
        return std::nullopt;
    const auto host = decodedText(*parts->host);
    if (!host || !equalsIgnoringCase(*host, "totp"))
        return std::nullopt;

    Query query;
    if (parts->query)
        query.items = splitQuery(*parts->query);
    for (const auto& item : query.items) {
        auto name = decodedText(item.name);
        if (!name)
            return std::nullopt;
        query.names.push_back(std::move(*name));
    }

    TOTP totp;
    const QueryItem* secret = query.find("secret");
    if (!secret || !secret->value)
        return std::nullopt;
    {
        kdbx::SecureBytes secretText;
        if (!percentDecode(*secret->value, secretText))
            return std::nullopt;
        auto decoded = base32Decode(secretText.view());
        if (!decoded)
            return std::nullopt;
        totp.secret = std::move(*decoded);
    }

    const auto digits = numberItem(query, "digits", 6, 1, 9);
    const auto period = numberItem(query, "period", 30, 1, std::numeric_limits<std::int64_t>::max());
    if (!digits || !period)
        return std::nullopt;
    totp.digits = static_cast<int>(*digits);
    totp.period = *period;

    if (const QueryItem* encoder = query.find("encoder"); encoder && encoder->value) {
        const auto value = decodedText(*encoder->value);
        // An unknown encoder must not quietly give standard codes.
        if (!value || !equalsIgnoringCase(*value, "steam"))
            return std::nullopt;
        totp.steam = true;
        totp.digits = 5;
    }

    if (const QueryItem* algorithm = query.find("algorithm"); algorithm && algorithm->value) {
        const auto value = decodedText(*algorithm->value);
        if (!value)
            return std::nullopt;
        // Deliberately lenient: an unknown name falls back to SHA-1, as other programs do.
        if (equalsIgnoringCase(*value, "SHA256"))
            totp.algorithm = Algorithm::sha256;
        else if (equalsIgnoringCase(*value, "SHA512"))
            totp.algorithm = Algorithm::sha512;
    }

    if (const QueryItem* issuer = query.find("issuer"); issuer && issuer->value) {
        totp.issuer = decodedText(*issuer->value);
        if (!totp.issuer)
            return std::nullopt;
    }

    auto label = decodedText(parts->path);
    if (!label)
        return std::nullopt;
    std::string_view name = *label;
    while (!name.empty() && name.front() == '/')
        name.remove_prefix(1);
    while (!name.empty() && name.back() == '/')
        name.remove_suffix(1);
    if (const auto colon = name.find(':'); colon != std::string_view::npos) {
        totp.account = std::string(name.substr(colon + 1));
        if (!totp.issuer)
            totp.issuer = std::string(name.substr(0, colon));
    } else if (!name.empty()) {
        totp.account = std::string(name);
    }
    return totp;
}

// Escapes every byte outside the unreserved characters and `keep`.
void appendEncoded(kdbx::SecureBytes& out, std::string_view text, std::string_view keep)
{
    static constexpr char hex[] = "0123456789ABCDEF";
    for (const char c : text) {
        const bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                           c == '-' || c == '.' || c == '_' || c == '~' || keep.find(c) != std::string_view::npos;
        if (plain) {
            out.push_back(static_cast<std::uint8_t>(c));
        } else {
            const auto byte = static_cast<std::uint8_t>(c);
            out.push_back('%');
            out.push_back(static_cast<std::uint8_t>(hex[byte >> 4]));
            out.push_back(static_cast<std::uint8_t>(hex[byte & 0x0f]));
        }
    }
}

} // namespace

std::optional<kdbx::SecureBytes> base32Decode(std::string_view text)
{
    static constexpr auto values = [] {
        std::array<std::int8_t, 256> table{};
        table.fill(-1);
        for (std::size_t i = 0; i < base32Alphabet.size(); ++i)
            table[static_cast<unsigned char>(base32Alphabet[i])] = static_cast<std::int8_t>(i);
        return table;
    }();

    kdbx::SecureBytes out;
    out.reserve(text.size() * 5 / 8);
    std::uint32_t buffer = 0;
    int bits = 0;
    for (const char c : text) {
        if (c == '=' || c == '-' || isSpace(c))
            continue;
        const int value = values[static_cast<unsigned char>(upper(c))];
        if (value < 0)
            return std::nullopt;
        buffer = (buffer << 5 | static_cast<std::uint32_t>(value)) & 0x1fffu;
        bits += 5;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<std::uint8_t>(buffer >> bits));
        }
    }
    if (out.empty())
        return std::nullopt;
    return out;
}

kdbx::SecureBytes base32Encode(kdbx::ByteView data)
{
    kdbx::SecureBytes out;
    out.reserve((data.size() * 8 + 4) / 5);
    std::uint32_t buffer = 0;
    int bits = 0;
    for (const std::uint8_t byte : data) {
        buffer = (buffer << 8 | byte) & 0xfffu;
        bits += 8;
        while (bits >= 5) {
            bits -= 5;
            out.push_back(static_cast<std::uint8_t>(base32Alphabet[(buffer >> bits) & 0x1fu]));
        }
    }
    if (bits > 0)
        out.push_back(static_cast<std::uint8_t>(base32Alphabet[(buffer << (5 - bits)) & 0x1fu]));
    return out;
}

std::optional<TOTP> parseOtp(std::string_view text)
{
    text = trimmed(text);
    if (text.empty())
        return std::nullopt;
    constexpr std::string_view prefix = "otpauth://";
    if (text.size() >= prefix.size() && equalsIgnoringCase(text.substr(0, prefix.size()), prefix))
        return parseUri(text);
    auto secret = base32Decode(text);
    if (!secret)
        return std::nullopt;
    TOTP totp;
    totp.secret = std::move(*secret);
    return totp;
}

kdbx::SecureBytes formatOtp(const TOTP& totp)
{
    std::string label;
    if (totp.issuer && totp.account)
        label = *totp.issuer + ":" + *totp.account;
    else if (totp.issuer)
        label = *totp.issuer;
    else if (totp.account)
        label = *totp.account;
    else
        label = "Account";

    // Path and query keep ":" and "@" readable; "/", "&", "=", "+", "#" and the rest are escaped.
    kdbx::SecureBytes uri;
    uri.append(std::string_view("otpauth://totp/"));
    appendEncoded(uri, label, ":@");
    uri.append(std::string_view("?secret="));
    uri.append(base32Encode(totp.secret.span()).span());
    if (totp.issuer) {
        uri.append(std::string_view("&issuer="));
        appendEncoded(uri, *totp.issuer, ":@/?");
    }
    if (totp.algorithm != Algorithm::sha1) {
        uri.append(std::string_view("&algorithm="));
        uri.append(algorithmName(totp.algorithm));
    }
    if (totp.steam)
        uri.append(std::string_view("&encoder=steam"));
    if (totp.digits != 6)
        uri.append("&digits=" + std::to_string(totp.digits));
    if (totp.period != 30)
        uri.append("&period=" + std::to_string(totp.period));
    return uri;
}

std::optional<kdbx::SecureBytes> otpFieldValue(std::string_view typed)
{
    if (typed.empty())
        return std::nullopt;
    if (const auto totp = parseOtp(typed))
        return formatOtp(*totp);
    return kdbx::SecureBytes::fromText(typed);
}

} // namespace quillon::tools
