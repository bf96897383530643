// kdbx/Encoding.h: base64, hexadecimal, decimal and UTF-8 text, for every layer above the codec.
#pragma once

#include "kdbx/SecureBytes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quillon::kdbx {

// Standard alphabet with "=" padding. The second form replaces out's content, reusing its capacity.
std::string base64Encode(ByteView data);
void base64EncodeInto(ByteView data, std::string& out);
// Accepts the standard alphabet; white space (space, tab, CR, LF) is skipped and padding may be left
// out. Anything else fails. The secret form decodes straight into wiped memory.
std::optional<std::vector<std::uint8_t>> base64Decode(std::string_view text);
bool base64DecodeInto(std::string_view text, SecureBytes& out);

// Even number of hex digits (either case), high digit first; empty text gives no bytes.
std::optional<std::vector<std::uint8_t>> hexDecode(std::string_view text);
bool hexDecodeInto(std::string_view text, SecureBytes& out);
std::string hexEncode(ByteView data, bool upperCase = false);

// A whole number as typed or stored: an optional "+" or "-", then one or more ASCII digits and nothing
// else (no white space); overflow gives nothing.
std::optional<std::int64_t> parseDecimal(std::string_view text) noexcept;

// Decodes the UTF-8 sequence at p (left bytes available) into c and returns its length; 0 when the bytes
// there are not UTF-8 (overlong forms, surrogates and values past U+10FFFF are not) or left is 0.
std::size_t decodeUtf8(const unsigned char* p, std::size_t left, char32_t& c) noexcept;
bool isValidUtf8(std::string_view text) noexcept;

} // namespace quillon::kdbx
