// kdbx/VariantDictionary.h: the typed key/value dictionary that carries the key-derivation parameters.
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace quillon::kdbx {

// Alternatives in the order of the wire types 0x04, 0x05, 0x08, 0x0C, 0x0D, 0x18, 0x42.
using VariantValue =
    std::variant<std::uint32_t, std::uint64_t, bool, std::int32_t, std::int64_t, std::string, std::vector<std::uint8_t>>;

struct VariantDictionary {
    // Sorted by key, which is also the order the writer needs.
    std::map<std::string, VariantValue> entries;

    template <class T>
    const T* get(const std::string& key) const
    {
        const auto it = entries.find(key);
        return it == entries.end() ? nullptr : std::get_if<T>(&it->second);
    }
    bool operator==(const VariantDictionary&) const = default;
};

VariantDictionary parseVariantDictionary(ByteView data);
std::vector<std::uint8_t> serialiseVariantDictionary(const VariantDictionary& dictionary);

} // namespace quillon::kdbx
