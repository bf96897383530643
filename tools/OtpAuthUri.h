// tools/OtpAuthUri.h: TOTP settings read from an otpauth URI or a bare base32 secret, and written back.
#pragma once

#include "kdbx/SecureBytes.h"
#include "tools/TOTP.h"

#include <optional>
#include <string_view>

namespace quillon::tools {

// A URI as KeePassXC writes it ("otpauth://totp/Issuer:account?secret=...") or a bare base32 secret.
// Values that would give a wrong or misleading code are refused (nothing), never clamped; whatever is
// accepted can be turned into a code.
std::optional<TOTP> parseOtp(std::string_view text);

// The canonical URI: "otpauth://totp/<label>?secret=..." then issuer, algorithm, encoder, digits and
// period, each only when it differs from the default.
kdbx::SecureBytes formatOtp(const TOTP& totp);

// Upper or lower case; "=", "-" and white space anywhere are ignored; leftover bits are dropped.
// Nothing when a character is outside the alphabet or no whole byte results.
std::optional<kdbx::SecureBytes> base32Decode(std::string_view text);
// Upper case, no "=" padding.
kdbx::SecureBytes base32Encode(kdbx::ByteView data);

// What an entry's protected "otp" field should hold after the user typed `typed`: nothing means remove
// the field; otherwise the canonical URI when the text parses, else the text exactly as typed.
std::optional<kdbx::SecureBytes> otpFieldValue(std::string_view typed);

} // namespace quillon::tools
