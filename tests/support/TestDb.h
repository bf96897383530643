// tests/support/TestDb.h: small databases with tiny Argon2 costs, made by our own writer.
#pragma once

#include "kdbx/CompositeKey.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxFile.h"

#include <functional>
#include <memory>
#include <string>
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

// The file with its outer header changed and both of the header's integrity values made again; the block
// stream is kept, which stays valid as long as the seed and key-derivation parameters do.
std::vector<std::uint8_t> withHeader(kdbx::ByteView file, const kdbx::Credentials& credentials,
                                     const std::function<void(kdbx::OuterHeader&)>& change);
// A header with its digest and a zero MAC, and nothing after: enough to reach the key derivation.
std::vector<std::uint8_t> headerOnlyFile(const kdbx::OuterHeader& header);

// The value of an entry's field, or `missing` when the entry has no such field.
std::string field(pugi::xml_node entry, std::string_view key, std::string_view missing = "");

// The text of a document or element with no formatting, to compare two states of it byte for byte.
std::string xmlText(const pugi::xml_node& node);

// Replaces the document with the given XML text (parsed the way the codec parses).
void setDocument(kdbx::KdbxFile& file, std::string_view xml);

} // namespace quillon::test
