#include "tools/TOTP.h"

#include "kdbx/Check.h"
#include "kdbx/Crypto.h"

#include <array>
#include <chrono>
#include <cmath>

namespace quillon::tools {
namespace {

kdbx::HashAlgorithm hashFor(Algorithm algorithm) noexcept
{
    switch (algorithm) {
    case Algorithm::sha1:
        return kdbx::HashAlgorithm::sha1;
    case Algorithm::sha256:
        return kdbx::HashAlgorithm::sha256;
    case Algorithm::sha512:
        return kdbx::HashAlgorithm::sha512;
    }
    QUILLON_CHECK(false);
}

void checkRecord(const TOTP& totp)
{
    QUILLON_CHECK(!totp.secret.empty());
    QUILLON_CHECK(totp.period >= 1);
    QUILLON_CHECK(totp.digits >= 1 && totp.digits <= 9);
}

std::uint64_t wholeSeconds(double secondsSince1970)
{
    // 2^64 itself is exactly representable; anything from there up cannot be converted.
    QUILLON_CHECK(std::isfinite(secondsSince1970) && secondsSince1970 >= 0.0 &&
                  secondsSince1970 < 18446744073709551616.0);
    return static_cast<std::uint64_t>(secondsSince1970);
}

} // namespace

std::string_view algorithmName(Algorithm algorithm) noexcept
{
    switch (algorithm) {
    case Algorithm::sha1:
        return "SHA1";
    case Algorithm::sha256:
        return "SHA256";
    case Algorithm::sha512:
        return "SHA512";
    }
    return "SHA1";
}

TOTP TOTP::copy() const
{
    return TOTP{secret.copy(), digits, period, algorithm, steam, issuer, account};
}

bool operator==(const TOTP& a, const TOTP& b) noexcept
{
    return kdbx::constantTimeEqual(a.secret.span(), b.secret.span()) && a.digits == b.digits &&
           a.period == b.period && a.algorithm == b.algorithm && a.steam == b.steam && a.issuer == b.issuer &&
           a.account == b.account;
}

kdbx::SecureBytes totpCode(const TOTP& totp, double secondsSince1970)
{
    checkRecord(totp);
    const std::uint64_t counter = wholeSeconds(secondsSince1970) / static_cast<std::uint64_t>(totp.period);

    std::array<std::uint8_t, 8> message{};
    for (std::size_t i = 0; i < message.size(); ++i)
        message[i] = static_cast<std::uint8_t>(counter >> (56 - 8 * i));
    auto mac = kdbx::hmac(hashFor(totp.algorithm), totp.secret.span(), {message});
    QUILLON_CHECK(mac.size() >= 20);

    // RFC 4226 dynamic truncation: 31 bits at an offset chosen by the last byte.
    const std::size_t offset = mac.back() & 0x0fu;
    const std::uint32_t number = (std::uint32_t{mac[offset]} & 0x7fu) << 24 | std::uint32_t{mac[offset + 1]} << 16 |
                                 std::uint32_t{mac[offset + 2]} << 8 | std::uint32_t{mac[offset + 3]};
    kdbx::secureWipe(mac.data(), mac.size());

    kdbx::SecureBytes code;
    if (totp.steam) {
        code.reserve(5);
        std::uint32_t rest = number;
        for (int i = 0; i < 5; ++i) {
            code.push_back(static_cast<std::uint8_t>(steamAlphabet[rest % 26]));
            rest /= 26;
        }
        return code;
    }
    std::uint32_t modulus = 1;
    for (int i = 0; i < totp.digits; ++i)
        modulus *= 10;
    std::uint32_t value = number % modulus;
    code.resize(static_cast<std::size_t>(totp.digits));
    for (std::size_t i = code.size(); i-- > 0;) {
        code[i] = static_cast<std::uint8_t>('0' + value % 10);
        value /= 10;
    }
    return code;
}

std::int64_t secondsLeftInStep(const TOTP& totp, double secondsSince1970)
{
    checkRecord(totp);
    const auto period = static_cast<std::uint64_t>(totp.period);
    return static_cast<std::int64_t>(period - wholeSeconds(secondsSince1970) % period);
}

double secondsSince1970Now() noexcept
{
    const auto since = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(since).count();
}

} // namespace quillon::tools
