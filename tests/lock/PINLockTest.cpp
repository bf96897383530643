#include "kdbx/Encoding.h"
#include "lock/MaskedCredentials.h"
#include "lock/PINLock.h"
#include "tests/support/Helpers.h"

#include <gtest/gtest.h>

#include <string>

using namespace quillon;
using quillon::kdbx::ByteView;

namespace quillon::lock {

// What memory holds for the password: the masked bytes and their pad.
struct MaskedCredentialsInspector {
    static std::pair<ByteView, ByteView> password(const MaskedCredentials& held)
    {
        return {held.password_->bytes.span(), held.password_->pad.span()};
    }
};

} // namespace quillon::lock

namespace {

using quillon::test::viewOf;

struct CountCase {
    const char* name;
    std::string text;
    std::size_t expected;
};

class UserCharacters : public testing::TestWithParam<CountCase> {};

TEST_P(UserCharacters, countAsAReaderWould)
{
    EXPECT_EQ(lock::countUserCharacters(GetParam().text), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Table, UserCharacters,
    testing::Values(CountCase{"empty", "", 0}, CountCase{"digits", "123", 3}, CountCase{"symbols", "!@ #", 4},
                    CountCase{"precomposed", "\u00e9\u00e8\u00ea\u00eb", 4},
                    // e + acute, four times: eight code points, four characters.
                    CountCase{"combiningMarks", "e\u0301e\u0301e\u0301e\u0301", 4},
                    CountCase{"stackedMarks", "a\u0301\u0323\u1ab0b\u20d7c\ufe20d", 4},
                    CountCase{"markAlone", "\u0301", 1},
                    CountCase{"variationSelector", "\u2764\ufe0f\u2764\ufe0f\u2764\ufe0f", 3},
                    CountCase{"skinTone", "\U0001F44D\U0001F3FD\U0001F44D", 2},
                    // man ZWJ woman ZWJ girl: one family.
                    CountCase{"zwjFamily", "\U0001F468\u200d\U0001F469\u200d\U0001F467x", 2},
                    CountCase{"flags", "\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7\U0001F1EE", 3},
                    CountCase{"crlf", "a\r\nb", 3}, CountCase{"brokenUtf8", "\xff\xfe" "ab", 4},
                    CountCase{"truncatedSequence", "ab\xe2\x82", 4}, CountCase{"overlong", "\xc0\xaf", 2}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(PINLock, makeCountsCharactersNotBytes)
{
    EXPECT_FALSE(lock::PINLock::make(viewOf("123")));
    EXPECT_FALSE(lock::PINLock::make(viewOf("e\u0301e\u0301e\u0301"))); // six code points, three characters
    for (const char* pin : {"1234", "abcd", "!@#$", "    ", "a1 !", "e\u0301e\u0301e\u0301e\u0301"}) {
        const auto made = lock::PINLock::make(viewOf(pin));
        ASSERT_TRUE(made) << pin;
        EXPECT_EQ(made->triesLeft, 3);
        EXPECT_TRUE(made->check(viewOf(pin)));
        EXPECT_FALSE(made->check(viewOf("12345")));
    }
}

TEST(PINLock, hashIsSha256OfSaltThenPinAndSaltIsFresh)
{
    std::array<std::uint8_t, 16> salt{};
    for (std::size_t i = 0; i < salt.size(); ++i)
        salt[i] = static_cast<std::uint8_t>(i);
    // Reference digests from Python's hashlib.
    EXPECT_EQ(kdbx::hexEncode(lock::pinHash(viewOf("1234"), salt)),
              "bad0b4f7cae08eb7c1b5acc763a8ed25242e2c9173e81f3f624b1fa5303cf6ce");
    EXPECT_EQ(kdbx::hexEncode(lock::pinHash(viewOf("p\u00efn\u2713"), salt)),
              "3dd2e22dc83c127cfee6ced879622af934da5f4eb72db136a271fe4747f34c1b");

    const auto a = lock::PINLock::make(viewOf("1234"));
    const auto b = lock::PINLock::make(viewOf("1234"));
    ASSERT_TRUE(a && b);
    EXPECT_NE(a->salt, b->salt);
    EXPECT_NE(a->hash, b->hash);
    EXPECT_EQ(a->hash, lock::pinHash(viewOf("1234"), a->salt));
}

TEST(MaskedCredentials, revealGivesBackWhatWasStoredAndWipeForgetsIt)
{
    lock::MaskedCredentials held;
    EXPECT_FALSE(held.reveal());

    kdbx::Credentials withEmptyPassword;
    withEmptyPassword.password = kdbx::SecureBytes();
    held.store(withEmptyPassword);
    auto back = held.reveal();
    ASSERT_TRUE(back);
    ASSERT_TRUE(back->password);
    EXPECT_TRUE(back->password->empty());
    EXPECT_FALSE(back->keyFile);

    kdbx::Credentials both;
    both.password = kdbx::SecureBytes::fromText("hunter2");
    both.keyFile = kdbx::SecureBytes::fromText("<KeyFile/>");
    held.store(both);
    EXPECT_EQ(held.storedBytes(), 2 * (7 + 10));
    back = held.reveal();
    ASSERT_TRUE(back && back->password && back->keyFile);
    EXPECT_EQ(back->password->view(), "hunter2");
    EXPECT_EQ(back->keyFile->view(), "<KeyFile/>");

    held.wipe();
    EXPECT_FALSE(held.holds());
    EXPECT_EQ(held.storedBytes(), 0u);
    EXPECT_FALSE(held.reveal());
}

// Neither buffer that stays in memory shows the password, and storing it again draws a new pad.
TEST(MaskedCredentials, memoryNeverHoldsThePlainPassword)
{
    const std::string plain(64, 'A');
    kdbx::Credentials credentials;
    credentials.password = kdbx::SecureBytes::fromText(plain);
    lock::MaskedCredentials held;
    held.store(credentials);
    const auto [masked, pad] = lock::MaskedCredentialsInspector::password(held);
    ASSERT_EQ(masked.size(), plain.size());
    ASSERT_EQ(pad.size(), plain.size());
    // 64 random pad bytes: a byte that equals the plain one (1 in 256) is expected now and then, but not
    // more than a handful.
    std::size_t sameAsPlain = 0;
    for (std::size_t i = 0; i < plain.size(); ++i) {
        sameAsPlain += masked[i] == static_cast<std::uint8_t>(plain[i]);
        EXPECT_EQ(masked[i] ^ pad[i], static_cast<std::uint8_t>(plain[i]));
    }
    EXPECT_LT(sameAsPlain, 8u);
    const std::vector<std::uint8_t> first(masked.begin(), masked.end());

    held.store(credentials);
    const auto again = lock::MaskedCredentialsInspector::password(held).first;
    EXPECT_NE(first, std::vector<std::uint8_t>(again.begin(), again.end()));
}

} // namespace
