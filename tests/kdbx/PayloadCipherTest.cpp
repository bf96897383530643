#include "kdbx/Crypto.h"
#include "kdbx/Encoding.h"
#include "kdbx/KdbxError.h"
#include "kdbx/PayloadCipher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <string>

using namespace quillon::kdbx;
using testing::StrEq;
using testing::ThrowsMessage;

namespace {

std::vector<std::uint8_t> hex(std::string text)
{
    std::erase(text, ' ');
    return hexDecode(text).value();
}
std::vector<std::uint8_t> bytesOf(std::string_view s) { return {s.begin(), s.end()}; }
std::vector<std::uint8_t> bytesOf(const SecureBytes& s) { return {s.span().begin(), s.span().end()}; }

std::vector<std::uint8_t> counting(std::size_t n)
{
    std::vector<std::uint8_t> v(n);
    std::iota(v.begin(), v.end(), std::uint8_t{0});
    return v;
}

// NIST SP 800-38A F.2.5 (encrypt) and F.2.6 (decrypt), CBC-AES256. The vectors have no padding, so ours
// carries one more block; the first four are the vectors'.
TEST(Aes256Cbc, nistVectors)
{
    const SecureBytes key = SecureBytes::from(hex("603deb1015ca71be2b73aef0857d7781 1f352c073b6108d72d9810a30914dff4"));
    const auto iv = hex("000102030405060708090a0b0c0d0e0f");
    const auto plaintext = hex("6bc1bee22e409f96e93d7e117393172a ae2d8a571e03ac9c9eb76fac45af8e51"
                               "30c81c46a35ce411e5fbc1191a0a52ef f69f2445df4f9b17ad2b417be66c3710");
    const auto ciphertext = hex("f58c4c04d6e5f1ba779eabfb5f7bfbd6 9cfc4e967edb808d679f777bc6702c7d"
                                "39f23369a9d9bacfa530e26304231461 b2eb05e2c39be9fcda6c19078c6a9d1b");
    const auto encrypted = aes256CbcEncrypt(key, iv, plaintext);
    ASSERT_EQ(encrypted.size(), 80u);
    EXPECT_EQ(std::vector(encrypted.begin(), encrypted.begin() + 64), ciphertext);

    auto withPadding = ciphertext;
    withPadding.insert(withPadding.end(), encrypted.begin() + 64, encrypted.end());
    EXPECT_EQ(bytesOf(aes256CbcDecrypt(key, iv, withPadding)), plaintext);
}

TEST(Aes256Cbc, roundTripsEveryLengthAroundABlock)
{
    const SecureBytes key = SecureBytes::from(counting(32));
    const auto iv = counting(16);
    for (std::size_t n : {0u, 1u, 15u, 16u, 17u, 31u, 32u, 1000u}) {
        const auto plain = counting(n);
        const auto encrypted = aes256CbcEncrypt(key, iv, plain);
        EXPECT_EQ(encrypted.size(), (n / 16 + 1) * 16);
        EXPECT_EQ(bytesOf(aes256CbcDecrypt(key, iv, encrypted)), plain) << n;
    }
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

// RFC 8439 2.3.2 (one keystream block, counter 1) and 2.4.2 (the sunscreen text, counter 1).
TEST(ChaCha20, rfc8439Vectors)
{
    const auto key = counting(32);
    {
        ChaCha20 stream(key, hex("000000090000004a00000000"), 1);
        std::vector<std::uint8_t> block(64, 0);
        stream.apply(block);
        EXPECT_EQ(block, hex("10f1e7e4d13b5915500fdd1fa32071c4 c7d1f4c733c068030422aa9ac3d46c4e"
                             "d2826446079faa0914c2d705d98b02a2 b5129cd1de164eb9cbd083e8a2503c4e"));
    }
    const std::string sunscreen = "Ladies and Gentlemen of the class of '99: If I could offer you only one tip for the "
                                  "future, sunscreen would be it.";
    const auto expected = hex("6e2e359a2568f98041ba0728dd0d6981 e97e7aec1d4360c20a27afccfd9fae0b"
                              "f91b65c5524733ab8f593dabcd62b357 1639d624e65152ab8f530c359f0861d8"
                              "07ca0dbf500d6a6156a38e088a22b65e 52bc514d16ccf806818ce91ab7793736"
                              "5af90bbf74a35be6b40b8eedf2785e42 874d");
    const auto nonce = hex("000000000000004a00000000");
    auto whole = bytesOf(sunscreen);
    ChaCha20(key, nonce, 1).apply(whole);
    EXPECT_EQ(whole, expected);

    // The keystream position carries across calls, at any split, including splits inside a block.
    for (std::size_t split : {0u, 1u, 63u, 64u, 65u, 100u}) {
        auto pieces = bytesOf(sunscreen);
        ChaCha20 stream(key, nonce, 1);
        stream.apply(std::span(pieces).first(split));
        ChaCha20 moved = std::move(stream);
        moved.apply(std::span(pieces).subspan(split));
        EXPECT_EQ(pieces, expected) << "split at " << split;
    }

    // Applying it again decrypts.
    ChaCha20(key, nonce, 1).apply(whole);
    EXPECT_EQ(whole, bytesOf(sunscreen));
}

TEST(ChaCha20DeathTest, wrongKeyOrNonceSizeStopsTheProgram)
{
    const auto key = counting(32);
    EXPECT_DEATH(ChaCha20(std::span(key).first(16), counting(12)), "");
    EXPECT_DEATH(ChaCha20(key, counting(8)), "");
}

// RFC 4231 test cases 1-4, 6 and 7: the MAC of every header and block.
TEST(HmacSha256, rfc4231Vectors)
{
    struct Row {
        std::vector<std::uint8_t> key;
        std::vector<std::uint8_t> data;
        const char* mac;
    };
    const std::vector<std::uint8_t> longKey(131, 0xaa);
    const Row rows[] = {
        {std::vector<std::uint8_t>(20, 0x0b), bytesOf("Hi There"),
         "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
        {bytesOf("Jefe"), bytesOf("what do ya want for nothing?"),
         "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {std::vector<std::uint8_t>(20, 0xaa), std::vector<std::uint8_t>(50, 0xdd),
         "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
        {hex("0102030405060708090a0b0c0d0e0f10111213141516171819"), std::vector<std::uint8_t>(50, 0xcd),
         "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b"},
        {longKey, bytesOf("Test Using Larger Than Block-Size Key - Hash Key First"),
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
        {longKey,
         bytesOf("This is a test using a larger than block-size key and a larger than block-size data. The key needs "
                 "to be hashed before being used by the HMAC algorithm."),
         "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2"},
    };
    for (const Row& row : rows) {
        const Digest256 mac = hmacSha256(row.key, {row.data});
        EXPECT_EQ(std::vector<std::uint8_t>(mac.begin(), mac.end()), hex(row.mac)) << row.mac;
        // Fed in pieces, as the block stream does.
        const ByteView data(row.data);
        const Digest256 split = hmacSha256(row.key, {data.first(3), data.subspan(3)});
        EXPECT_EQ(split, mac);
    }
}

} // namespace
