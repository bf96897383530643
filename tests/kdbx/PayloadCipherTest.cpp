#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"
#include "kdbx/KdbxError.h"
#include "kdbx/PayloadCipher.h"
#include "tests/support/Helpers.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <numeric>

using namespace quillon::kdbx;
using quillon::test::bytesOf;
using testing::StrEq;
using testing::ThrowsMessage;

namespace {


std::vector<std::uint8_t> counting(std::size_t n)
{
    std::vector<std::uint8_t> v(n);
    std::iota(v.begin(), v.end(), std::uint8_t{0});
    return v;
}

TEST(Aes256Cbc, anyFailureReadsAsWrongCredentials)
{
    const SecureBytes key = SecureBytes::from(counting(32));
    const SecureBytes otherKey = SecureBytes::from(std::vector<std::uint8_t>(32, 0xee));
    const auto iv = counting(16);
    const auto encrypted = aes256CbcEncrypt(key, iv, bytesOf("a payload of some length, padded"));
    const auto wrong = ThrowsMessage<KdbxError>(StrEq("Wrong password or key file."));
    EXPECT_THAT([&] { (void)aes256CbcDecrypt(otherKey, iv, encrypted); }, wrong);
    EXPECT_THAT([&] { (void)aes256CbcDecrypt(key, iv, ByteView(encrypted).first(encrypted.size() - 1)); }, wrong);
    EXPECT_THAT([&] { (void)aes256CbcDecrypt(key, iv, {}); }, wrong);
    EXPECT_THAT([&] { (void)aes256CbcDecrypt(key, ByteView(iv).first(12), encrypted); }, wrong);
}

// The block stream hands the decryptor pieces of any size; the result must not depend on where they fall.
TEST(PayloadDecryptor, piecesOfAnySizeGiveTheWholePlaintext)
{
    const SecureBytes key = SecureBytes::from(counting(32));
    const auto plain = counting(1000);
    auto chacha = plain;
    ChaCha20(key.span(), counting(12)).apply(chacha);
    const auto aes = aes256CbcEncrypt(key, counting(16), plain);
    for (const std::size_t piece : {std::size_t{1}, std::size_t{15}, std::size_t{16}, std::size_t{17}, std::size_t{999}}) {
        for (const bool useAes : {true, false}) {
            PayloadDecryptor decryptor = useAes ? PayloadDecryptor::aes256Cbc(key, counting(16))
                                                : PayloadDecryptor::chaCha20(key, counting(12));
            ByteView rest = useAes ? ByteView(aes) : ByteView(chacha);
            std::vector<std::uint8_t> out(rest.size() + 16);
            std::size_t length = 0;
            while (!rest.empty()) {
                const ByteView part = rest.first(std::min(piece, rest.size()));
                length += decryptor.update(part, out.data() + length);
                rest = rest.subspan(part.size());
            }
            length += decryptor.finish(out.data() + length);
            out.resize(length);
            EXPECT_EQ(out, plain) << piece << (useAes ? " AES" : " ChaCha20");
        }
    }
}

// The known answers are in the self-test; here, the keystream position carries across calls at any split,
// including splits inside a block, and applying it again decrypts.
TEST(ChaCha20, anySplitGivesTheWholeStream)
{
    const auto key = counting(32), nonce = counting(12);
    const auto plain = counting(200);
    auto whole = plain;
    ChaCha20(key, nonce, 1).apply(whole);
    EXPECT_NE(whole, plain);
    for (std::size_t split : {0u, 1u, 63u, 64u, 65u, 100u}) {
        auto pieces = plain;
        ChaCha20 stream(key, nonce, 1);
        stream.apply(std::span(pieces).first(split));
        ChaCha20 moved = std::move(stream);
        moved.apply(std::span(pieces).subspan(split));
        EXPECT_EQ(pieces, whole) << "split at " << split;
    }
    ChaCha20(key, nonce, 1).apply(whole);
    EXPECT_EQ(whole, plain);
}

} // namespace
