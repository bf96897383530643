// The verification report: its outcomes, and that a protected value never shows in it.
#include "app/VerifyReport.h"
#include "kdbx/KdbxFile.h"
#include "tests/support/Helpers.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gmock/gmock.h>

#include <optional>
#include <sstream>
#include <sys/stat.h>

using namespace quillon;
using testing::HasSubstr;
using testing::Not;

namespace {

// Points the report's temporary directory at a private one for the test's lifetime.
class VerifyReport : public testing::Test {
protected:
    void SetUp() override { tmpdir_.emplace("TMPDIR", (dir_.path().string() + "/").c_str()); }
    void TearDown() override { tmpdir_.reset(); }

    static pugi::xml_document parse(const std::string& xml)
    {
        pugi::xml_document d;
        EXPECT_TRUE(d.load_string(xml.c_str(), kdbx::xmlParseOptions));
        return d;
    }

    std::string written(const char* name) const
    {
        const auto bytes = test::readFile(dir_.path() / name);
        return {bytes.begin(), bytes.end()};
    }

    test::TempDir dir_;
    std::optional<test::ScopedEnv> tmpdir_;
    std::optional<std::string> oldTmp_;
};

std::string database(const std::string& title, const std::string& secret)
{
    return "<KeePassFile><Root><Group><Entry><String><Key>Title</Key><Value>" + title +
           "</Value></String><String><Key>Password</Key><Value Protected=\"True\">" + secret +
           "</Value></String></Entry></Group></Root></KeePassFile>";
}

TEST_F(VerifyReport, differenceInsideAProtectedValueIsNamedButNeverShown)
{
    // Same length, so the masked texts agree: the difference is only inside the value.
    const auto a = parse(database("Mail", "h\xC3\xBCnter2"));
    const auto b = parse(database("Mail", "hunter3"));
    std::ostringstream out;
    EXPECT_EQ(app::reportRoundTrip(a, b, out), 1);
    const std::string dir = dir_.path().string();
    EXPECT_THAT(out.str(), HasSubstr("round-trip: XML DIFFERS\n  wrote kdbx-before.xml and kdbx-after.xml to " + dir +
                                     ", protected values masked\n"));
    EXPECT_THAT(out.str(), HasSubstr("\n  the difference is inside a protected value, which is not shown\n"));
    EXPECT_THAT(out.str(), Not(HasSubstr("hunter")));
    EXPECT_THAT(out.str(), Not(HasSubstr("first difference")));

    // Characters, not bytes: ü is one character, so both sides mask to the same text.
    for (const char* name : {"kdbx-before.xml", "kdbx-after.xml"}) {
        const std::string text = written(name);
        EXPECT_THAT(text, HasSubstr("<Value Protected=\"True\">[7 characters]</Value>"));
        EXPECT_THAT(text, Not(HasSubstr("unter")));
        struct stat st {};
        ASSERT_EQ(::stat((dir_.path() / name).c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0600u);
    }
    const std::size_t unmasked = database("Mail", "hunter2").size();
    EXPECT_THAT(out.str(), HasSubstr("  lengths: " + std::to_string(unmasked) + " -> " + std::to_string(unmasked)));
}

TEST_F(VerifyReport, differenceElsewhereShowsContextAroundTheFirstDifferentCharacter)
{
    // Early difference: context starts at character 0.
    {
        const auto a = parse("<KeePassFile><Root/></KeePassFile>");
        const auto b = parse("<KeePassFile><Rout/></KeePassFile>");
        std::ostringstream out;
        EXPECT_EQ(app::reportRoundTrip(a, b, out), 1);
        EXPECT_THAT(out.str(), HasSubstr("  first difference at character 16:\n"
                                         "    before: ...<KeePassFile><Root/></KeePassFile>\n"
                                         "    after:  ...<KeePassFile><Rout/></KeePassFile>\n"));
    }
    // Late difference: 60 characters either side, counted in characters; the secret stays masked.
    {
        const std::string padding(100, 'x');
        const auto a = parse(database(padding + "\xC3\xA9" "A", "s3cret"));
        const auto b = parse(database(padding + "\xC3\xA9" "B", "s3cret"));
        std::ostringstream out;
        EXPECT_EQ(app::reportRoundTrip(a, b, out), 1);
        const std::string prefix = "<KeePassFile><Root><Group><Entry><String><Key>Title</Key><Value>";
        const std::size_t at = prefix.size() + 101;
        EXPECT_THAT(out.str(), HasSubstr("  first difference at character " + std::to_string(at) + ":\n"));
        const std::string before = std::string(59, 'x') + "\xC3\xA9" "A</Value></String><String><Key>Password</Key><Value Protecte";
        EXPECT_THAT(out.str(), HasSubstr("    before: ..." + before + "\n"));
        EXPECT_THAT(out.str(), Not(HasSubstr("s3cret")));
        EXPECT_THAT(written("kdbx-after.xml"), HasSubstr("[6 characters]"));
    }
}

TEST_F(VerifyReport, wrongPasswordFailsWithTheCodecsWordsAndTheRightOneWritesNothing)
{
    kdbx::Credentials right;
    right.password = kdbx::SecureBytes::fromText("right");
    const auto path = dir_.path() / "db.kdbx";
    test::writeFile(path, test::tinyFile(right));
    std::ostringstream out;
    EXPECT_EQ(app::runVerify(path, kdbx::SecureBytes::fromText("wrong"), out), 1);
    EXPECT_EQ(out.str(), "failed: Wrong password or key file.\n");

    std::ostringstream good;
    EXPECT_EQ(app::runVerify(path, kdbx::SecureBytes::fromText("right"), good), 0);
    EXPECT_EQ(good.str(), "opened: KeePassFile\nentries: 1, protected values: 1, binaries: 0\nround-trip: XML identical\n");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir_.path()), {}), 1) << "wrote more than the database";
}

} // namespace
