// kdbx/Encoding.h: base64, hexadecimal and UTF-8 checks used across the codec and the model.
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

bool isValidUtf8(std::string_view text) noexcept;

} // namespace quillon::kdbx
