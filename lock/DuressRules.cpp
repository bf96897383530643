#include "lock/DuressRules.h"

namespace quillon::lock {

bool decoyInstead(bool wrongCredentials, kdbx::ByteView text, const DuressTest& isDuress)
{
    return wrongCredentials && isDuress && isDuress(text);
}

std::optional<std::string> newPasswordRefusal(kdbx::ByteView newPassword, const DuressTest& isDuress)
{
    if (isDuress && isDuress(newPassword))
        return std::string(refusalPasswordIsDuress);
    return std::nullopt;
}

} // namespace quillon::lock
