#include "kdbx/SecureBytes.h"

#include <openssl/crypto.h>

namespace quillon::kdbx {

void secureWipe(void* data, std::size_t size) noexcept
{
    if (data && size)
        OPENSSL_cleanse(data, size);
}

void SecureBytes::resize(std::size_t n)
{
    if (n < bytes_.size())
        secureWipe(bytes_.data() + n, bytes_.size() - n);
    bytes_.resize(n);
}

void SecureBytes::wipe() noexcept
{
    secureWipe(bytes_.data(), bytes_.size());
    bytes_.clear();
}

} // namespace quillon::kdbx
