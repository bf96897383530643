// quillon-cli diff and merge as scripts call them: two copies of one database edited apart, compared, then merged.
#include "tests/support/CliRunner.h"
#include "tests/support/TempDir.h"

#include <gmock/gmock.h>

#include <thread>

using namespace quillon::test;
using testing::HasSubstr;
using testing::Not;

namespace {

void ok(const ProcessResult& r)
{
    ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
}

TEST(MergeCli, diffShowsBothCopiesEditsAndMergeKeepsThemAll)
{
    TempDir dir;
    const auto a = (dir / "a.kdbx").string();
    const auto b = (dir / "b.kdbx").string();
    ok(runCli({"create", "--password-stdin", "--memory", "8", "--iterations", "1", a}, "pw\n"));
    ok(runCli({"add", "--password-stdin", "-u", "alice", "-p", a, "Bank"}, "pw\nbank-secret\n"));
    ok(runCli({"add", "--password-stdin", "-u", "bob", a, "Mail"}, "pw\n"));
    ok(runCli({"add", "--password-stdin", a, "Old"}, "pw\n"));
    std::filesystem::copy_file(a, b);
    // Modification times count whole seconds: the other copy's edits come later.
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    ok(runCli({"edit", "--password-stdin", "-u", "alice2", a, "Bank"}, "pw\n"));
    ok(runCli({"edit", "--password-stdin", "-p", b, "Mail"}, "pw\nmail-secret\n"));
    ok(runCli({"mkdir", "--password-stdin", b, "Work"}, "pw\n"));
    ok(runCli({"mv", "--password-stdin", b, "Mail", "Work"}, "pw\n"));
    ok(runCli({"rm", "--password-stdin", b, "Old"}, "pw\n"));

    const auto d = runCli({"diff", "--password-stdin", a, b}, "pw\npw\n");
    ok(d);
    EXPECT_THAT(d.out, HasSubstr("+ group Work\n"));
    EXPECT_THAT(d.out, HasSubstr("~ Work/Mail\n    moved from the top group\n    Password: changed (protected)\n"));
    EXPECT_THAT(d.out, HasSubstr("    UserName: \"alice2\" -> \"alice\"\n"));
    EXPECT_THAT(d.out, Not(HasSubstr("mail-secret")));
    const auto json = runCli({"diff", "--password-stdin", "--same-credentials", "--json", "--show-protected", a, b},
                             "pw\n");
    ok(json);
    EXPECT_THAT(json.out, HasSubstr(R"("name":"Password","change":"changed","protected":true,"before":"","after":"mail-secret")"));

    const auto before = readFile(a);
    const auto dry = runCli({"merge", "--password-stdin", "--same-credentials", "--dry-run", a, b}, "pw\n");
    ok(dry);
    EXPECT_THAT(dry.out, HasSubstr("Dry run: nothing was written."));
    EXPECT_EQ(readFile(a), before);

    const auto merged = runCli({"merge", "--password-stdin", "--same-credentials", "--json", a, b}, "pw\n");
    ok(merged);
    EXPECT_THAT(merged.out, HasSubstr(R"("entriesUpdated":1,)"));
    EXPECT_THAT(merged.out, HasSubstr(R"("saved":true)"));
    const auto show = runCli({"ls", "-R", "--password-stdin", a}, "pw\n");
    EXPECT_THAT(show.out, HasSubstr("Work/\n  Mail\n"));
    EXPECT_THAT(show.out, HasSubstr("Recycle Bin/\n  Old\n"));
    EXPECT_THAT(runCli({"show", "--password-stdin", a, "Bank"}, "pw\n").out, HasSubstr("alice2"));
    EXPECT_THAT(runCli({"show", "--password-stdin", "--show-protected", a, "Work/Mail"}, "pw\n").out,
                HasSubstr("mail-secret"));
    EXPECT_THAT(runCli({"merge", "--password-stdin", "--same-credentials", a, b}, "pw\n").out,
                HasSubstr("Nothing to merge"));

    const auto wrong = runCli({"merge", "--password-stdin", "--other-no-password", a, b}, "pw\n");
    EXPECT_EQ(wrong.exitCode, 2);
    EXPECT_THAT(wrong.err, HasSubstr("--other-no-password needs --other-key-file."));
    const auto mergedFile = readFile(a);
    const auto badOther = runCli({"merge", "--password-stdin", a, b}, "pw\nnot-it\n");
    EXPECT_EQ(badOther.exitCode, 1);
    EXPECT_EQ(readFile(a), mergedFile);
}

} // namespace
