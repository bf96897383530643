// Any text as an otpauth URI or bare secret: refused, or parsed to settings that give a code and whose
// canonical URI parses back to the same code settings and issuer. The account may legitimately change
// (an issuer holding ":" moves the label's split; "/" at the label's ends is trimmed), so it is not compared.
#include "tools/OtpAuthUri.h"
#include "tools/TOTP.h"

#include <cstdlib>
#include <string_view>

using namespace quillon::tools;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const auto parsed = parseOtp(text);
    if (!parsed)
        return 0;
    (void)totpCode(*parsed, 1'700'000'000.0);
    const auto again = parseOtp(formatOtp(*parsed).view());
    if (!again || again->secret.view() != parsed->secret.view() || again->digits != parsed->digits ||
        again->period != parsed->period || again->algorithm != parsed->algorithm || again->steam != parsed->steam ||
        again->issuer != parsed->issuer)
        std::abort();
    return 0;
}
