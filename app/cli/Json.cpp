#include "app/cli/Json.h"

#include "kdbx/Check.h"
#include "kdbx/Encoding.h"

#include <string>

namespace quillon::cli {

void Json::beforeValue()
{
    if (afterKey_) {
        afterKey_ = false;
        return;
    }
    if (!first_.empty()) {
        if (!first_.back())
            out_.push_back(',');
        first_.back() = false;
    }
}

void Json::close(char c)
{
    QUILLON_CHECK(!first_.empty());
    first_.pop_back();
    out_.push_back(static_cast<std::uint8_t>(c));
    if (first_.empty())
        out_.push_back('\n');
}

Json& Json::beginObject()
{
    beforeValue();
    out_.push_back('{');
    first_.push_back(true);
    return *this;
}

Json& Json::endObject()
{
    close('}');
    return *this;
}

Json& Json::beginArray()
{
    beforeValue();
    out_.push_back('[');
    first_.push_back(true);
    return *this;
}

Json& Json::endArray()
{
    close(']');
    return *this;
}

Json& Json::key(std::string_view name)
{
    string(name);
    out_.push_back(':');
    afterKey_ = true;
    return *this;
}

Json& Json::string(std::string_view text)
{
    beforeValue();
    out_.push_back('"');
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t left = text.size();
    while (left > 0) {
        const unsigned char c = *p;
        if (c == '"' || c == '\\') {
            out_.push_back('\\');
            out_.push_back(c);
        } else if (c == '\n') {
            out_.append("\\n");
        } else if (c == '\t') {
            out_.append("\\t");
        } else if (c == '\r') {
            out_.append("\\r");
        } else if (c < 0x20) {
            static constexpr char hex[] = "0123456789abcdef";
            out_.append("\\u00");
            out_.push_back(static_cast<std::uint8_t>(hex[c >> 4]));
            out_.push_back(static_cast<std::uint8_t>(hex[c & 15]));
        } else {
            char32_t decoded = 0;
            const std::size_t n = kdbx::decodeUtf8(p, left, decoded);
            if (n == 0) {
                out_.append("\xEF\xBF\xBD");
                ++p;
                --left;
                continue;
            }
            out_.append(kdbx::ByteView(p, n));
            p += n;
            left -= n;
            continue;
        }
        ++p;
        --left;
    }
    out_.push_back('"');
    return *this;
}

Json& Json::number(std::int64_t value)
{
    beforeValue();
    out_.append(std::to_string(value));
    return *this;
}

Json& Json::number(std::uint64_t value)
{
    beforeValue();
    out_.append(std::to_string(value));
    return *this;
}

Json& Json::boolean(bool value)
{
    beforeValue();
    out_.append(value ? "true" : "false");
    return *this;
}

Json& Json::null()
{
    beforeValue();
    out_.append("null");
    return *this;
}

} // namespace quillon::cli
