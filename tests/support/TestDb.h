// tests/support/TestDb.h: small databases with tiny Argon2 costs, made by our own writer.
#pragma once

#include "kdbx/CompositeKey.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxFile.h"

#include <memory>
#include <string_view>
#include <vector>

namespace quillon::test {

kdbx::Credentials passwordOnly(std::string_view password);

struct TestDbOptions {
    kdbx::Identifier cipher = kdbx::cipherAes256;
    kdbx::Identifier kdf = kdbx::kdfArgon2id;
    bool compressed = true;
};

// A new database with Argon2 at 64 KiB, 1 pass, 1 lane, holding one entry with a protected password.
std::unique_ptr<kdbx::KdbxFile> tinyDatabase(const TestDbOptions& options = {});
// The same database saved with the given credentials.
std::vector<std::uint8_t> tinyFile(const kdbx::Credentials& credentials, const TestDbOptions& options = {});

// Replaces the document with the given XML text (parsed the way the codec parses).
void setDocument(kdbx::KdbxFile& file, std::string_view xml);

} // namespace quillon::test
