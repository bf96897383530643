// An abandoned key derivation stops using the processor at once; one left to finish gives the right key.
#include "kdbx/Argon2Kdf.h"
#include "kdbx/Encoding.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxError.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <time.h>

#include <cerrno>
#include <chrono>
#include <future>
#include <thread>

using namespace quillon::kdbx;
using namespace std::chrono_literals;

namespace {

VariantDictionary argon2id(std::uint64_t memoryKiB, std::uint64_t iterations, std::uint32_t lanes)
{
    VariantDictionary kdf;
    kdf.entries["$UUID"] = std::vector<std::uint8_t>(kdfArgon2id.begin(), kdfArgon2id.end());
    kdf.entries["S"] = std::vector<std::uint8_t>(16, 0x02);
    kdf.entries["M"] = memoryKiB * 1024;
    kdf.entries["I"] = iterations;
    kdf.entries["P"] = lanes;
    kdf.entries["V"] = std::uint32_t{0x13};
    return kdf;
}

double processorSeconds()
{
    timespec t{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

// Neither a running child nor a zombie is left to this process.
bool noChildLeft()
{
    return ::waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD;
}

TEST(KeyDerivationCancel, abandonedDerivationStopsUsingTheProcessor)
{
    const SecureBytes key = SecureBytes::from(std::vector<std::uint8_t>(32, 1));
    const VariantDictionary endless = argon2id(8 * 1024, 0xFFFFFFFFu, 2);
    std::atomic<bool> cancel{false};
    auto deriving = std::async(std::launch::async, [&] { return transformKey(key, endless, &cancel); });
    ASSERT_EQ(deriving.wait_for(300ms), std::future_status::timeout);

    cancel = true;
    ASSERT_EQ(deriving.wait_for(1s), std::future_status::ready);
    EXPECT_THROW(deriving.get(), Cancelled);
    EXPECT_TRUE(noChildLeft());

    // Nothing of the derivation runs on, in this process or another.
    const double before = processorSeconds();
    std::this_thread::sleep_for(500ms);
    EXPECT_LT(processorSeconds() - before, 0.1);
}

// RFC 9106 section 5.3 (Argon2id), whose password is 32 bytes like a composite key, through the child.
TEST(KeyDerivationCancel, derivationInTheChildGivesTheKnownKey)
{
    const SecureBytes key = SecureBytes::from(std::vector<std::uint8_t>(32, 0x01));
    VariantDictionary kdf = argon2id(32, 3, 4);
    kdf.entries["K"] = std::vector<std::uint8_t>(8, 0x03);
    kdf.entries["A"] = std::vector<std::uint8_t>(12, 0x04);
    const std::atomic<bool> never{false};
    EXPECT_EQ(hexEncode(transformKey(key, kdf, &never).span()),
              "0d640df58d78766c08c037a34a8b53c9d01ef0452d75b65eb52520e96b01e659");
    // The child's refusal comes back as the library's code.
    EXPECT_THROW((void)transformKey(key, argon2id(64, 0, 1), &never), KdbxError);
    EXPECT_TRUE(noChildLeft());
}

} // namespace
