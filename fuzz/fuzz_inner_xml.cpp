// Any bytes as the decrypted payload (inner header and XML) of a file sealed under a known password, so
// the fuzzer reaches past the header and block HMACs. Whatever opens must save and open again with the
// same entries, protected values and attachments.
#include "fuzz/FuzzDatabase.h"
#include "kdbx/Gzip.h"
#include "kdbx/KdbxError.h"
#include "kdbx/KdbxFile.h"

#include <cstdlib>

using namespace quillon::kdbx;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const OuterHeader header = quillon::fuzz::fuzzHeader();
    static const Credentials credentials = quillon::fuzz::fuzzCredentials();
    const std::vector<std::uint8_t> sealed =
        KdbxFile::seal(header, credentials, SecureBytes::from(ByteView(data, size)));
    std::unique_ptr<KdbxFile> file;
    try {
        file = KdbxFile::open(sealed, credentials);
    } catch (const KdbxError&) {
        return 0;
    } catch (const DecompressionError&) {
        return 0;
    }
    const DocumentCounts counts = countDocument(file->document);
    const std::size_t binaries = file->inner.binaries.size();
    const std::vector<std::uint8_t> saved = file->save(credentials);
    const auto reopened = KdbxFile::open(saved, credentials); // a throw here is a finding
    const DocumentCounts again = countDocument(reopened->document);
    if (again.entries != counts.entries || again.protectedValues != counts.protectedValues ||
        reopened->inner.binaries.size() != binaries)
        std::abort();
    return 0;
}
