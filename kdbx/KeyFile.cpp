#include "kdbx/KeyFile.h"

#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"
#include "kdbx/Random.h"

#include <pugixml.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace quillon::kdbx {
namespace {

bool isWhiteSpace(char c) noexcept
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

// The XPath string value of an element (all descendant text, in document order) without white space,
// gathered into wiped memory: the Data text is the key itself. Walked without recursion.
SecureBytes textWithoutWhiteSpace(pugi::xml_node root)
{
    SecureBytes out;
    pugi::xml_node node = root.first_child();
    while (node) {
        if (node.type() == pugi::node_pcdata || node.type() == pugi::node_cdata) {
            for (const char* p = node.value(); *p; ++p)
                if (!isWhiteSpace(*p))
                    out.push_back(static_cast<std::uint8_t>(*p));
        }
        if (node.first_child()) {
            node = node.first_child();
            continue;
        }
        while (node && node != root && !node.next_sibling())
            node = node.parent();
        if (!node || node == root)
            break;
        node = node.next_sibling();
    }
    return out;
}

std::optional<SecureBytes> decodeWith(bool (*decode)(std::string_view, SecureBytes&), std::string_view text)
{
    SecureBytes out;
    if (!decode(text, out))
        return std::nullopt;
    return out;
}

std::optional<SecureBytes> xmlKey(ByteView bytes)
{
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (!isValidUtf8(text) || text.find("<KeyFile") == std::string_view::npos)
        return std::nullopt;
    pugi::xml_document document;
    if (!document.load_buffer(bytes.data(), bytes.size(), pugi::parse_default, pugi::encoding_utf8))
        return std::nullopt;
    const pugi::xml_node dataNode = document.select_node("//Key/Data").node();
    if (!dataNode)
        return std::nullopt;
    const SecureBytes data = textWithoutWhiteSpace(dataNode);
    const std::string version = pugi::xpath_query("string(//KeyFile/Meta/Version)").evaluate_string(document);

    if (version.starts_with('2'))
        if (auto key = decodeWith(hexDecodeInto, data.view()))
            return key;
    if (auto key = decodeWith(base64DecodeInto, data.view()))
        return key;
    return decodeWith(hexDecodeInto, data.view());
}

} // namespace

SecureBytes keyFileKey(ByteView keyFileBytes)
{
    if (auto key = xmlKey(keyFileBytes))
        return std::move(*key);
    if (keyFileBytes.size() == 32)
        return SecureBytes::from(keyFileBytes);
    if (keyFileBytes.size() == 64) {
        const std::string_view text(reinterpret_cast<const char*>(keyFileBytes.data()), keyFileBytes.size());
        if (isValidUtf8(text))
            if (auto key = decodeWith(hexDecodeInto, text))
                return std::move(*key);
    }
    return sha256Secret({keyFileBytes});
}

SecureBytes generateKeyFile()
{
    const SecureBytes key = randomSecret(32);
    const Digest256 digest = sha256(key.span());
    static constexpr char digits[] = "0123456789ABCDEF";
    auto appendHex = [](SecureBytes& out, ByteView bytes) {
        for (std::uint8_t b : bytes) {
            out.push_back(static_cast<std::uint8_t>(digits[b >> 4]));
            out.push_back(static_cast<std::uint8_t>(digits[b & 15]));
        }
    };

    SecureBytes text;
    text.reserve(400);
    text.append("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                "<KeyFile>\n"
                "  <Meta>\n"
                "    <Version>2.0</Version>\n"
                "  </Meta>\n"
                "  <Key>\n"
                "    <Data Hash=\"");
    appendHex(text, ByteView(digest).first(4));
    text.append("\">\n");
    // Eight groups of four bytes, four groups to a line.
    for (std::size_t line = 0; line < 2; ++line) {
        text.append("      ");
        for (std::size_t group = 0; group < 4; ++group) {
            if (group > 0)
                text.push_back(' ');
            appendHex(text, key.span().subspan(line * 16 + group * 4, 4));
        }
        text.push_back('\n');
    }
    text.append("    </Data>\n"
                "  </Key>\n"
                "</KeyFile>\n");
    return text;
}

} // namespace quillon::kdbx
