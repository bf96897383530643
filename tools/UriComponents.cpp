#include "tools/UriComponents.h"

#include <string_view>

namespace quillon::tools {
namespace {

bool isAlpha(char c) noexcept { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

int hexValue(char c) noexcept
{
    if (isDigit(c))
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

bool isUnreserved(char c) noexcept { return isAlpha(c) || isDigit(c) || c == '-' || c == '.' || c == '_' || c == '~'; }
bool isSubDelim(char c) noexcept { return std::string_view("!$&'()*+,;=").find(c) != std::string_view::npos; }

// Every character is unreserved, a sub-delimiter, one of `extra`, or a well-formed "%" escape.
bool isValidPart(std::string_view part, std::string_view extra) noexcept
{
    for (std::size_t i = 0; i < part.size(); ++i) {
        const char c = part[i];
        if (c == '%') {
            if (part.size() - i < 3 || hexValue(part[i + 1]) < 0 || hexValue(part[i + 2]) < 0)
                return false;
            i += 2;
        } else if (!isUnreserved(c) && !isSubDelim(c) && extra.find(c) == std::string_view::npos) {
            return false;
        }
    }
    return true;
}

bool isValidScheme(std::string_view scheme) noexcept
{
    if (scheme.empty() || !isAlpha(scheme.front()))
        return false;
    for (const char c : scheme)
        if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.')
            return false;
    return true;
}

// authority = [ userinfo "@" ] host [ ":" port ]; returns the host.
std::optional<std::string_view> hostOf(std::string_view authority)
{
    if (const auto at = authority.find('@'); at != std::string_view::npos) {
        if (!isValidPart(authority.substr(0, at), ":"))
            return std::nullopt;
        authority.remove_prefix(at + 1);
    }
    std::string_view host;
    std::string_view afterHost;
    if (!authority.empty() && authority.front() == '[') {
        const auto close = authority.find(']');
        if (close == std::string_view::npos || !isValidPart(authority.substr(1, close - 1), ":"))
            return std::nullopt;
        host = authority.substr(0, close + 1);
        afterHost = authority.substr(close + 1);
    } else {
        const auto colon = authority.find(':');
        host = authority.substr(0, colon);
        afterHost = colon == std::string_view::npos ? std::string_view() : authority.substr(colon);
        if (!isValidPart(host, ""))
            return std::nullopt;
    }
    if (!afterHost.empty()) {
        if (afterHost.front() != ':')
            return std::nullopt;
        for (const char c : afterHost.substr(1))
            if (!isDigit(c))
                return std::nullopt;
    }
    return host;
}

} // namespace

std::optional<UriComponents> splitUri(std::string_view text)
{
    UriComponents parts;
    const auto colon = text.find(':');
    if (colon == std::string_view::npos || !isValidScheme(text.substr(0, colon)))
        return std::nullopt;
    parts.scheme = text.substr(0, colon);
    std::string_view rest = text.substr(colon + 1);

    if (const auto hash = rest.find('#'); hash != std::string_view::npos) {
        parts.fragment = rest.substr(hash + 1);
        if (!isValidPart(*parts.fragment, ":@/?"))
            return std::nullopt;
        rest = rest.substr(0, hash);
    }
    if (const auto question = rest.find('?'); question != std::string_view::npos) {
        parts.query = rest.substr(question + 1);
        if (!isValidPart(*parts.query, ":@/?"))
            return std::nullopt;
        rest = rest.substr(0, question);
    }
    if (rest.starts_with("//")) {
        rest.remove_prefix(2);
        const auto slash = rest.find('/');
        parts.host = hostOf(rest.substr(0, slash));
        if (!parts.host)
            return std::nullopt;
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
    }
    if (!isValidPart(rest, ":@/"))
        return std::nullopt;
    parts.path = rest;
    return parts;
}

std::vector<QueryItem> splitQuery(std::string_view query)
{
    std::vector<QueryItem> items;
    while (true) {
        const auto amp = query.find('&');
        const std::string_view item = query.substr(0, amp);
        if (const auto eq = item.find('='); eq == std::string_view::npos)
            items.push_back({item, std::nullopt});
        else
            items.push_back({item.substr(0, eq), item.substr(eq + 1)});
        if (amp == std::string_view::npos)
            return items;
        query.remove_prefix(amp + 1);
    }
}

bool percentDecode(std::string_view raw, kdbx::SecureBytes& out)
{
    out.reserve(out.size() + raw.size());
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] != '%') {
            out.push_back(static_cast<std::uint8_t>(raw[i]));
            continue;
        }
        if (raw.size() - i < 3)
            return false;
        const int high = hexValue(raw[i + 1]);
        const int low = hexValue(raw[i + 2]);
        if (high < 0 || low < 0)
            return false;
        out.push_back(static_cast<std::uint8_t>(high * 16 + low));
        i += 2;
    }
    return true;
}

} // namespace quillon::tools
