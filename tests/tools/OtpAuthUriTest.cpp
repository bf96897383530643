// Reading and writing otpauth URIs and base32 secrets.
#include "kdbx/Encoding.h"
#include "tools/OtpAuthUri.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace quillon::tools {
namespace {

std::string hexOf(const std::optional<kdbx::SecureBytes>& bytes)
{
    return bytes ? kdbx::hexEncode(bytes->span()) : "(refused)";
}

TEST(Base32, rfc4648VectorsBothWays)
{
    const std::pair<const char*, const char*> rows[] = {
        {"f", "MY"}, {"fo", "MZXQ"}, {"foo", "MZXW6"}, {"foob", "MZXW6YQ"}, {"fooba", "MZXW6YTB"},
        {"foobar", "MZXW6YTBOI"},
    };
    for (const auto& [plain, encoded] : rows) {
        const auto bytes = kdbx::SecureBytes::fromText(plain);
        EXPECT_EQ(base32Encode(bytes.span()).view(), encoded);
        const auto decoded = base32Decode(encoded);
        ASSERT_TRUE(decoded) << encoded;
        EXPECT_EQ(decoded->view(), plain);
    }
}

TEST(Base32, decodingNormalisesAndRefuses)
{
    const std::string clean = hexOf(base32Decode("JBSWY3DPEHPK3PXP"));
    ASSERT_NE(clean, "(refused)");
    for (const char* same : {"jbswy3dpehpk3pxp", "JBSW Y3DP EHPK 3PXP", "JBSW-Y3DP-EHPK-3PXP", "JBSWY3DPEHPK3PXP====",
                             "JB=SWY3DPEHPK3PXP", "\tjbsw y3dp\nehpk 3pxp\r\n", "JbSwY3dPeHpK3pXp"})
        EXPECT_EQ(hexOf(base32Decode(same)), clean) << same;
    for (const char* refused : {"JBSWY3DPEHPK3PX1", "JBSWY3DPEHPK3PX8", "JBSWY3DPEHPK3PX0", "A", "a=", "", "  ",
                                "====", "--", "JBSW\xc3\xa9Y3DP", "JBSW_Y3DP"})
        EXPECT_EQ(hexOf(base32Decode(refused)), "(refused)") << refused;
    // Two characters hold one whole byte; the 2 leftover bits are dropped unchecked.
    EXPECT_EQ(hexOf(base32Decode("MZ")), "66");
    EXPECT_EQ(hexOf(base32Decode("MY")), "66");
}

TEST(OtpAuthUri, refusalsAreNeverClamped)
{
    const std::string base = "otpauth://totp/ACME:me?secret=JBSWY3DPEHPK3PXP";
    const std::string refused[] = {
        "",
        base + "&period=0",
        base + "&period=99999999999999999999",
        base + "&digits=0",
        base + "&digits=10",
        base + "&digits=6.5",
        base + "&digits= 6",
        base + "&encoder=other",
        "otpauth://hotp/ACME:me?secret=JBSWY3DPEHPK3PXP&counter=3",
        "otpauth://totp/ACME:me",
        "otpauth://totp/ACME:me?secret=",
        "otpauth://totp/ACME:me?Secret=JBSWY3DPEHPK3PXP",
        "otpauth://totp/ACME:me?secret=JBSWY3DPEHPK3PX1",
        "otpauth:///ACME:me?secret=JBSWY3DPEHPK3PXP",
        "otpauth://totp/ACME me?secret=JBSWY3DPEHPK3PXP",
        "otpauth://totp/ACME%zzme?secret=JBSWY3DPEHPK3PXP",
        "otpauth://totp/ACME:me?secret=JBSWY3DPEHPK3PXP%",
        "otpauth://totp:x/ACME?secret=JBSWY3DPEHPK3PXP",
        "otpauth://totp/ACME:me?secret=JBSWY3DPEHPK3PXP\n&digits=6",
        "JBSWY3DPEHPK3PX1",
    };
    for (const auto& text : refused)
        EXPECT_FALSE(parseOtp(text)) << text;
}

struct Accepted {
    std::string text;
    int digits;
    std::int64_t period;
    Algorithm algorithm;
    bool steam;
    std::optional<std::string> issuer;
    std::optional<std::string> account;
};

TEST(OtpAuthUri, acceptedUrisReadAsStated)
{
    const std::string s = "secret=JBSWY3DPEHPK3PXP";
    using A = Algorithm;
    const Accepted rows[] = {
        // As KeePassXC writes it.
        {"otpauth://totp/ACME%20Co:john%40example.com?" + s + "&period=30&digits=6&issuer=ACME%20Co", 6, 30, A::sha1,
         false, "ACME Co", "john@example.com"},
        {"OTPAUTH://TOTP/x?" + s + "&digits=1&period=1", 1, 1, A::sha1, false, std::nullopt, "x"},
        {"otpauth://totp/x?" + s + "&digits=%2B9&period=+45", 9, 45, A::sha1, false, std::nullopt, "x"},
        {"otpauth://totp/x?" + s + "&digits=7&digits=0", 7, 30, A::sha1, false, std::nullopt, "x"},
        {"otpauth://totp/x?" + s + "&digits=8&encoder=Steam", 5, 30, A::sha1, true, std::nullopt, "x"},
        {"otpauth://totp/x?" + s + "&algorithm=sha256", 6, 30, A::sha256, false, std::nullopt, "x"},
        {"otpauth://totp/x?" + s + "&algorithm=SHA512", 6, 30, A::sha512, false, std::nullopt, "x"},
        {"otpauth://totp/x?" + s + "&algorithm=MD5", 6, 30, A::sha1, false, std::nullopt, "x"},
        // Label rules: the query issuer wins; text after the first ":" is the account as it stands.
        {"otpauth://totp/Label:%20me:too?" + s + "&issuer=Query", 6, 30, A::sha1, false, "Query", " me:too"},
        {"otpauth://totp/Label:me?" + s, 6, 30, A::sha1, false, "Label", "me"},
        {"otpauth://totp/?" + s, 6, 30, A::sha1, false, std::nullopt, std::nullopt},
        {"otpauth://totp/%C3%A9t%C3%A9?" + s, 6, 30, A::sha1, false, std::nullopt, "\xc3\xa9t\xc3\xa9"},
        {"otpauth://totp/x?secret=jbsw%20y3dp-ehpk%3D3pxp&issuer=a%26b%3Dc", 6, 30, A::sha1, false, "a&b=c", "x"},
        {"otpauth://user@totp:443/x?" + s + "#fragment", 6, 30, A::sha1, false, std::nullopt, "x"},
        {"  \n otpauth://totp/x?" + s + " \r\n", 6, 30, A::sha1, false, std::nullopt, "x"},
        // A bare secret takes every default.
        {"jbsw y3dp ehpk 3pxp", 6, 30, A::sha1, false, std::nullopt, std::nullopt},
    };
    const auto secret = base32Decode("JBSWY3DPEHPK3PXP");
    for (const auto& row : rows) {
        const auto totp = parseOtp(row.text);
        ASSERT_TRUE(totp) << row.text;
        EXPECT_EQ(kdbx::hexEncode(totp->secret.span()), kdbx::hexEncode(secret->span())) << row.text;
        EXPECT_EQ(totp->digits, row.digits) << row.text;
        EXPECT_EQ(totp->period, row.period) << row.text;
        EXPECT_EQ(totp->algorithm, row.algorithm) << row.text;
        EXPECT_EQ(totp->steam, row.steam) << row.text;
        EXPECT_EQ(totp->issuer, row.issuer) << row.text;
        EXPECT_EQ(totp->account, row.account) << row.text;
    }
}

TEST(OtpAuthUri, formatWritesTheCanonicalUri)
{
    TOTP totp;
    totp.secret = *base32Decode("JBSWY3DPEHPK3PXP");
    EXPECT_EQ(formatOtp(totp).view(), "otpauth://totp/Account?secret=JBSWY3DPEHPK3PXP");
    totp.account = "john@example.com";
    EXPECT_EQ(formatOtp(totp).view(), "otpauth://totp/john@example.com?secret=JBSWY3DPEHPK3PXP");
    totp.issuer = "ACME Co/&=+#";
    totp.algorithm = Algorithm::sha512;
    totp.digits = 8;
    totp.period = 60;
    EXPECT_EQ(formatOtp(totp).view(), "otpauth://totp/ACME%20Co%2F%26%3D%2B%23:john@example.com?secret=JBSWY3DPEHPK3PXP"
                                      "&issuer=ACME%20Co/%26%3D%2B%23&algorithm=SHA512&digits=8&period=60");
    totp.account.reset();
    totp.steam = true;
    totp.digits = 5;
    totp.algorithm = Algorithm::sha1;
    totp.period = 30;
    EXPECT_EQ(formatOtp(totp).view(),
              "otpauth://totp/ACME%20Co%2F%26%3D%2B%23?secret=JBSWY3DPEHPK3PXP&issuer=ACME%20Co/%26%3D%2B%23"
              "&encoder=steam&digits=5");
}

// Records with an account. Without one the label rules cannot give the record back: neither issuer nor
// account formats as "Account", and an issuer alone becomes the label, which reads back as the account.
TEST(OtpAuthUri, formatThenParseGivesTheSameRecord)
{
    const std::string s = "secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ";
    for (const std::string& text : {
             "otpauth://totp/ACME%20Co:john%40example.com?" + s + "&period=30&digits=6&issuer=ACME%20Co",
             "otpauth://totp/Label:%20spaced?" + s + "&algorithm=SHA256&digits=8&period=60",
             "otpauth://totp/%E2%9C%93:caf%C3%A9%2F%3F%23?" + s + "&issuer=x%26y%3Dz%2B",
             "otpauth://totp/a:b?" + s + "&period=9223372036854775807&digits=9",
         }) {
        const auto first = parseOtp(text);
        ASSERT_TRUE(first) << text;
        const auto uri = formatOtp(*first);
        const auto again = parseOtp(uri.view());
        ASSERT_TRUE(again) << uri.view();
        EXPECT_TRUE(*again == *first) << text << " -> " << uri.view();
        EXPECT_EQ(formatOtp(*again).view(), uri.view());
    }
}

TEST(OtpAuthUri, fieldValueIsTheCanonicalUriOrTheTextAsTyped)
{
    EXPECT_FALSE(otpFieldValue(""));
    EXPECT_EQ(otpFieldValue(" jbsw y3dp ehpk 3pxp ")->view(), "otpauth://totp/Account?secret=JBSWY3DPEHPK3PXP");
    EXPECT_EQ(otpFieldValue("otpauth://totp/A:b?secret=JBSWY3DPEHPK3PXP&digits=6&period=30&issuer=A")->view(),
              "otpauth://totp/A:b?secret=JBSWY3DPEHPK3PXP&issuer=A");
    for (const char* verbatim : {"not a secret 1", "otpauth://totp/x?secret=JBSW&digits=10", "  "})
        EXPECT_EQ(otpFieldValue(verbatim)->view(), verbatim);
}

} // namespace
} // namespace quillon::tools
