// kdbx/KeyFile.h: the key a key file contributes, in every format other programs write, and new key files.
#pragma once

#include "kdbx/SecureBytes.h"

namespace quillon::kdbx {

// Never fails: a file that is no known format is hashed, so every byte string yields a key.
SecureBytes keyFileKey(ByteView keyFileBytes);

// The text of a new version 2.0 XML key file around 32 fresh random bytes.
SecureBytes generateKeyFile();

} // namespace quillon::kdbx
