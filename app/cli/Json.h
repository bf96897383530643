// app/cli/Json.h: a small JSON writer for --json output, writing into wiped memory (values may be secrets).
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstdint>
#include <string_view>
#include <vector>

namespace quillon::cli {

// Compact output, keys in the order written. Text that is not UTF-8 has its stray bytes replaced with
// U+FFFD so the output always parses.
class Json {
public:
    Json& beginObject();
    Json& endObject();
    Json& beginArray();
    Json& endArray();
    Json& key(std::string_view name);
    Json& string(std::string_view text);
    Json& number(std::int64_t value);
    Json& number(std::uint64_t value);
    Json& boolean(bool value);
    Json& null();

    template <class T>
    Json& field(std::string_view name, const T& value)
    {
        key(name);
        return put(value);
    }

    // The text so far, with a final line feed once the outermost value is closed.
    const kdbx::SecureBytes& text() const noexcept { return out_; }

private:
    Json& put(std::string_view v) { return string(v); }
    Json& put(const char* v) { return string(v); }
    Json& put(bool v) { return boolean(v); }
    Json& put(int v) { return number(std::int64_t{v}); }
    Json& put(std::int64_t v) { return number(v); }
    Json& put(std::uint64_t v) { return number(v); }
    Json& put(std::uint32_t v) { return number(std::uint64_t{v}); }
    void beforeValue();
    void close(char c);

    kdbx::SecureBytes out_;
    std::vector<bool> first_; // per open container: no element written yet
    bool afterKey_ = false;
};

} // namespace quillon::cli
