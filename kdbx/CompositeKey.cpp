#include "kdbx/CompositeKey.h"

#include "kdbx/Crypto.h"
#include "kdbx/KeyFile.h"

namespace quillon::kdbx {

SecureBytes compositeKey(const Credentials& credentials)
{
    SecureBytes parts;
    parts.reserve(64);
    if (credentials.password)
        parts.append(sha256Secret({credentials.password->span()}).span());
    if (credentials.keyFile)
        parts.append(keyFileKey(credentials.keyFile->span()).span());
    return sha256Secret({parts.span()});
}

} // namespace quillon::kdbx
