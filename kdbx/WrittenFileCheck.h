// kdbx/WrittenFileCheck.h: proves, as a stream, that a file just written holds exactly what was encoded into it.
#pragma once

#include "kdbx/BlockStream.h"
#include "kdbx/CompositeKey.h"
#include "kdbx/Gzip.h"
#include "kdbx/KdbxFile.h"
#include "kdbx/PayloadCipher.h"

#include <optional>
#include <vector>

namespace quillon::kdbx {

// Is handed the file in pieces of any size, in order, and checks it as KdbxFile::open would read it (header
// digest, key derivation, header and block codes), then decrypts and inflates the payload and compares the
// digests of its inner header and XML with digests. Holds one block and a few pieces, whatever the file's size.
// Throws what open throws, or writtenFileDiffers; credentials and digests must outlive it.
class WrittenFileCheck {
public:
    WrittenFileCheck(const Credentials& credentials, const PayloadDigests& digests);
    void write(ByteView piece);
    // The whole file has been handed over.
    void finish();

private:
    void header();
    void decrypted(ByteView plain);
    void payload(ByteView plain);

    const Credentials& credentials_;
    const PayloadDigests& digests_;
    std::vector<std::uint8_t> head_; // the outer header and its two codes, until they are complete
    std::optional<PayloadDecryptor> decryptor_;
    std::optional<BlockStreamReader> blocks_;
    std::optional<GunzipReader> gunzip_;
    SecureBytes plain_;
    std::uint64_t seen_ = 0;
    Sha256 innerDigest_;
    Sha256 xmlDigest_;
};

} // namespace quillon::kdbx
