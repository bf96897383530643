#include "files/DiskStamp.h"
#include "kdbx/Encoding.h"
#include "kdbx/Random.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

using namespace quillon;
using namespace quillon::files;
using quillon::test::TempDir;
using quillon::test::writeFile;

namespace {

TEST(DiskStamp, isTheSizeAndSha256OfTheWholeContent)
{
    // FIPS 180-2 appendix B.1.
    const auto abc = DiskStamp::of(kdbx::ByteView(reinterpret_cast<const std::uint8_t*>("abc"), 3));
    EXPECT_EQ(abc.size, 3);
    EXPECT_EQ(kdbx::hexEncode(abc.digest), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");

    // Files are read in 64 KiB pieces: sizes around the seams.
    TempDir dir;
    for (const std::size_t size : {0u, 1u, 65535u, 65536u, 65537u, 200000u}) {
        const auto bytes = kdbx::randomBytes(size);
        writeFile(dir / "f", bytes);
        EXPECT_EQ(DiskStamp::ofFile(dir / "f"), DiskStamp::of(bytes)) << size;
    }
    auto changed = kdbx::randomBytes(1000);
    const auto before = DiskStamp::of(changed);
    changed[999] ^= 1;
    EXPECT_NE(DiskStamp::of(changed), before);

    std::error_code error;
    EXPECT_FALSE(DiskStamp::ofFile(dir / "missing", error));
    EXPECT_EQ(error, std::errc::no_such_file_or_directory);
    EXPECT_FALSE(DiskStamp::ofFile(dir.path(), error)) << "a folder";
    EXPECT_EQ(error, std::errc::is_a_directory);
}

} // namespace
