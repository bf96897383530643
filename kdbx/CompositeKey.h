// kdbx/CompositeKey.h: what unlocks a database, and the 32-byte composite key made from it.
#pragma once

#include "kdbx/SecureBytes.h"

#include <optional>

namespace quillon::kdbx {

// An absent password differs from an empty one: each is a different key.
struct Credentials {
    std::optional<SecureBytes> password; // UTF-8 text
    std::optional<SecureBytes> keyFile;  // the whole key file's bytes

    Credentials copy() const
    {
        Credentials c;
        if (password)
            c.password = password->copy();
        if (keyFile)
            c.keyFile = keyFile->copy();
        return c;
    }
};

SecureBytes compositeKey(const Credentials& credentials);

} // namespace quillon::kdbx
