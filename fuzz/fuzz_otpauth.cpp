// Any text as an otpauth URI or bare secret: refused, or parsed to settings whose canonical URI parses
// back to the same settings and gives a code.
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
    const quillon::kdbx::SecureBytes uri = formatOtp(*parsed);
    const auto again = parseOtp(uri.view());
    if (!again || !(*again == *parsed))
        std::abort();
    (void)totpCode(*parsed, 1'700'000'000.0);
    return 0;
}
