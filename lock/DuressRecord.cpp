#include "lock/DuressRecord.h"

#include "kdbx/Argon2Kdf.h"
#include "kdbx/Crypto.h"
#include "kdbx/Random.h"

namespace quillon::lock {

namespace {

kdbx::SecureBytes derive(kdbx::ByteView password, kdbx::ByteView salt)
{
    return kdbx::argon2Raw(kdbx::Argon2Variant::argon2id, password, salt, {}, {}, 2, 16384, 1, 0x13,
                           DuressRecord::hashSize);
}

} // namespace

std::vector<std::uint8_t> DuressRecord::make(kdbx::ByteView password)
{
    std::vector<std::uint8_t> record(saltSize);
    kdbx::randomFill(record);
    const auto hash = derive(password, record);
    record.insert(record.end(), hash.span().begin(), hash.span().end());
    return record;
}

bool DuressRecord::check(kdbx::ByteView record, kdbx::ByteView text) noexcept
{
    if (text.empty() || record.size() != size)
        return false;
    try {
        const auto hash = derive(text, record.first(saltSize));
        return kdbx::constantTimeEqual(hash.span(), record.subspan(saltSize));
    } catch (...) {
        return false;
    }
}

} // namespace quillon::lock
