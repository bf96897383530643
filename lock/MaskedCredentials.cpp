#include "lock/MaskedCredentials.h"

#include "kdbx/Random.h"

namespace quillon::lock {

MaskedCredentials::MaskedCredentials(MaskedCredentials&& other) noexcept
    : password_(std::move(other.password_)), keyFile_(std::move(other.keyFile_)), holds_(other.holds_)
{
    other.wipe();
}

MaskedCredentials& MaskedCredentials::operator=(MaskedCredentials&& other) noexcept
{
    if (this != &other) {
        wipe();
        password_ = std::move(other.password_);
        keyFile_ = std::move(other.keyFile_);
        holds_ = other.holds_;
        other.wipe();
    }
    return *this;
}

MaskedCredentials::Masked MaskedCredentials::mask(const kdbx::SecureBytes& plain)
{
    Masked out{kdbx::SecureBytes(plain.size()), kdbx::randomSecret(plain.size())};
    for (std::size_t i = 0; i < plain.size(); ++i)
        out.bytes[i] = static_cast<std::uint8_t>(plain[i] ^ out.pad[i]);
    return out;
}

kdbx::SecureBytes MaskedCredentials::unmask(const Masked& masked)
{
    kdbx::SecureBytes plain(masked.bytes.size());
    for (std::size_t i = 0; i < plain.size(); ++i)
        plain[i] = static_cast<std::uint8_t>(masked.bytes[i] ^ masked.pad[i]);
    return plain;
}

void MaskedCredentials::store(const kdbx::Credentials& credentials)
{
    wipe();
    if (credentials.password)
        password_ = mask(*credentials.password);
    if (credentials.keyFile)
        keyFile_ = mask(*credentials.keyFile);
    holds_ = true;
}

std::optional<kdbx::Credentials> MaskedCredentials::reveal() const
{
    if (!holds_)
        return std::nullopt;
    kdbx::Credentials out;
    if (password_)
        out.password = unmask(*password_);
    if (keyFile_)
        out.keyFile = unmask(*keyFile_);
    return out;
}

std::size_t MaskedCredentials::storedBytes() const noexcept
{
    std::size_t total = 0;
    for (const auto* part : {&password_, &keyFile_})
        if (*part)
            total += (*part)->bytes.size() + (*part)->pad.size();
    return total;
}

void MaskedCredentials::wipe() noexcept
{
    // SecureBytes wipes as it is destroyed.
    password_.reset();
    keyFile_.reset();
    holds_ = false;
}

} // namespace quillon::lock
