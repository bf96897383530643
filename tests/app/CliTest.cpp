// quillon-cli as scripts call it: usage errors, credentials from standard input, header and counts, export,
// generators, and the commands that read and change entries and groups.
#include "app/cli/Cli.h"
#include "files/ChangedOnDisk.h"
#include "kdbx/Identifiers.h"
#include "kdbx/KdbxFile.h"
#include "kdbx/KeyFile.h"
#include "tests/support/CliRunner.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <functional>
#include <set>
#include <sstream>
#include <unistd.h>

using namespace quillon;
using namespace quillon::test;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

struct InProcess {
    int status = -1;
    std::string out;
    std::string err;
};

using Prompt = std::function<std::optional<kdbx::SecureBytes>(std::string_view)>;

// Drives the library directly, for what a child process cannot easily fake (a terminal on standard output, a
// terminal prompt that takes its time).
InProcess runInProcess(const std::vector<std::string>& args, const std::string& input, bool outIsTerminal,
                       Prompt prompt = [](std::string_view) { return std::nullopt; })
{
    int fds[2];
    EXPECT_EQ(::pipe(fds), 0);
    EXPECT_EQ(::write(fds[1], input.data(), input.size()), static_cast<ssize_t>(input.size()));
    ::close(fds[1]);
    std::ostringstream out, err;
    cli::Io io(out, err);
    io.in = fds[0];
    io.outIsTerminal = outIsTerminal;
    io.promptTerminal = std::move(prompt);
    InProcess result;
    result.status = cli::run(args, io);
    ::close(fds[0]);
    result.out = out.str();
    result.err = err.str();
    return result;
}

std::string writeDb(const TempDir& dir, std::string_view name, const kdbx::Credentials& credentials,
                    const TestDbOptions& options = {})
{
    const auto path = dir / name;
    writeFile(path, tinyFile(credentials, options));
    return path.string();
}

TEST(Cli, usageMistakesExitTwoAndPointAtHelp)
{
    EXPECT_EQ(runCli({}).exitCode, 2);
    const auto unknown = runCli({"frobnicate"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_THAT(unknown.err, HasSubstr("unknown command frobnicate"));

    const auto badOption = runCli({"stats", "--pasword-stdin", "x.kdbx"});
    EXPECT_EQ(badOption.exitCode, 2);
    EXPECT_EQ(badOption.err, "quillon-cli stats: unknown option --pasword-stdin.\nTry 'quillon-cli stats --help'.\n");
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"stats"}, {"info", "a.kdbx", "b.kdbx"}, {"stats", "--key-file"}, {"generate", "--length", "ten"}})
        EXPECT_EQ(runCli(args).exitCode, 2) << args[0];
    // A key-file-only database needs its key file named.
    EXPECT_EQ(runCli({"stats", "--no-password", "a.kdbx"}).exitCode, 2);
    // Database settings keep the settings form's ranges.
    EXPECT_THAT(runCli({"create", "--password-stdin", "--memory", "7", "x.kdbx"}, "pw\n").err,
                HasSubstr("--memory takes a whole number from 8 to 8192."));
}

TEST(Cli, everyCommandHasItsOwnHelp)
{
    const auto overview = runCli({"--help"});
    ASSERT_EQ(overview.exitCode, 0);
    std::istringstream lines(overview.out);
    std::string line;
    bool inCommands = false;
    std::set<std::string> names;
    while (std::getline(lines, line)) {
        if (line == "commands:") {
            inCommands = true;
            continue;
        }
        if (inCommands && line.empty())
            break;
        if (inCommands)
            names.insert(line.substr(2, line.find(' ', 2) - 2));
    }
    for (const char* expected : {"info", "stats", "export", "generate", "diceware"})
        EXPECT_TRUE(names.contains(expected)) << expected;
    for (const auto& name : names) {
        const auto help = runCli({name, "--help"});
        EXPECT_EQ(help.exitCode, 0) << name;
        EXPECT_THAT(help.out, StartsWith("usage: quillon-cli " + name)) << name;
        EXPECT_EQ(runCli({"help", name}).out, help.out) << name;
    }
}

TEST(Cli, passwordFromStandardInputIsOneLineAndEmptyIsNotAbsent)
{
    TempDir dir;
    const auto keyFile = dir / "key.keyx";
    const auto key = kdbx::generateKeyFile();
    writeFile(keyFile, key.span());

    const auto withPassword = writeDb(dir, "pw.kdbx", passwordOnly("s3cret"));
    auto ok = runCli({"stats", "--password-stdin", withPassword}, "s3cret\nleft for later\n");
    EXPECT_EQ(ok.exitCode, 0) << ok.err;
    EXPECT_EQ(runCli({"stats", "--password-stdin", withPassword}, "s3cret\r\n").exitCode, 0);
    EXPECT_EQ(runCli({"stats", "--password-stdin", withPassword}, "s3cret").exitCode, 0);
    const auto wrong = runCli({"stats", "--password-stdin", withPassword}, "s3cret \n");
    EXPECT_EQ(wrong.exitCode, 1);
    EXPECT_EQ(wrong.err, "Wrong password or key file.\n");
    EXPECT_EQ(wrong.out, "");

    // An empty line is the empty password, which is a key of its own.
    const auto emptyPassword = writeDb(dir, "empty.kdbx", passwordOnly(""));
    EXPECT_EQ(runCli({"stats", "--password-stdin", emptyPassword}, "\n").exitCode, 0);
    EXPECT_EQ(runCli({"stats", "--password-stdin", emptyPassword}, "").exitCode, 0);

    kdbx::Credentials keyOnly;
    keyOnly.keyFile = key.copy();
    const auto keyOnlyDb = writeDb(dir, "key.kdbx", keyOnly);
    EXPECT_EQ(runCli({"stats", "-k", keyFile.string(), "--no-password", keyOnlyDb}).exitCode, 0);
    EXPECT_EQ(runCli({"stats", "-k", keyFile.string(), "--password-stdin", keyOnlyDb}, "\n").err,
              "Wrong password or key file.\n");

    kdbx::Credentials emptyAndKey;
    emptyAndKey.password = kdbx::SecureBytes();
    emptyAndKey.keyFile = key.copy();
    const auto bothDb = writeDb(dir, "both.kdbx", emptyAndKey);
    EXPECT_EQ(runCli({"stats", "--key-file", keyFile.string(), "--password-stdin", bothDb}, "\n").exitCode, 0);
    EXPECT_EQ(runCli({"stats", "--key-file", keyFile.string(), "--no-password", bothDb}).exitCode, 1);

    // Without --password-stdin the password comes from the terminal only, never from a pipe.
    const auto noTerminal = runCli({"stats", withPassword}, "s3cret\n");
    EXPECT_EQ(noTerminal.exitCode, 1);
    EXPECT_EQ(noTerminal.err, "No terminal to read a password from.\n");

    const auto missing = runCli({"stats", "--password-stdin", (dir / "nope.kdbx").string()}, "x\n");
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_THAT(missing.err, HasSubstr("nope.kdbx"));
}

TEST(Cli, infoReadsTheOuterHeaderWithoutCredentials)
{
    TempDir dir;
    const auto aes = writeDb(dir, "aes.kdbx", passwordOnly("pw"));
    const auto chacha = writeDb(dir, "chacha.kdbx", passwordOnly("pw"),
                                {kdbx::cipherChaCha20, kdbx::kdfArgon2d, false});
    const auto size = std::filesystem::file_size(chacha);

    const auto json = runCli({"info", "--json", chacha});
    ASSERT_EQ(json.exitCode, 0) << json.err;
    EXPECT_EQ(json.out, "{\"formatVersion\":\"4.0\",\"cipher\":\"ChaCha20\",\"kdf\":\"Argon2d\",\"kdfMemoryBytes\":65536,"
                        "\"kdfIterations\":1,\"kdfParallelism\":1,\"kdfVersion\":19,\"compression\":\"none\","
                        "\"fileSize\":" +
                            std::to_string(size) + ",\"headerIntact\":true}\n");
    const auto text = runCli({"info", aes});
    EXPECT_THAT(text.out, HasSubstr("cipher: AES-256\nkey derivation: Argon2id\n  memory: 64 KiB\n"));
    EXPECT_THAT(text.out, HasSubstr("compression: gzip\n"));

    // A damaged header is reported, not refused: info is how one finds out.
    auto bytes = readFile(aes);
    bytes[40] ^= 1;
    writeFile(dir / "damaged.kdbx", bytes);
    EXPECT_THAT(runCli({"info", (dir / "damaged.kdbx").string()}).out, HasSubstr("header: damaged"));

    writeFile(dir / "text.kdbx", std::string_view("not a database at all"));
    const auto notKdbx = runCli({"info", (dir / "text.kdbx").string()});
    EXPECT_EQ(notKdbx.exitCode, 1);
    EXPECT_EQ(notKdbx.err, "Not a KDBX file.\n");
    writeFile(dir / "cut.kdbx", std::span(bytes).first(20));
    const auto truncated = runCli({"info", (dir / "cut.kdbx").string()});
    EXPECT_EQ(truncated.exitCode, 1);
    EXPECT_EQ(truncated.err, "Malformed header: unexpected end of data.\n");
}

TEST(Cli, exportWritesTheDecryptedXmlButNotOnATerminal)
{
    TempDir dir;
    const auto db = writeDb(dir, "db.kdbx", passwordOnly("pw"));
    const auto refused = runInProcess({"export", "--password-stdin", db}, "pw\n", true);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_THAT(refused.err, HasSubstr("not printed on a terminal"));

    const auto forced = runInProcess({"export", "--force", "--format", "xml", "--password-stdin", db}, "pw\n", true);
    EXPECT_EQ(forced.status, 0) << forced.err;
    const auto piped = runCli({"export", "--password-stdin", db}, "pw\n");
    ASSERT_EQ(piped.exitCode, 0) << piped.err;
    EXPECT_EQ(piped.out, forced.out);
    pugi::xml_document xml;
    ASSERT_TRUE(xml.load_string(piped.out.c_str()));
    EXPECT_STREQ(xml.select_node("//Value[@Protected='True']").node().child_value(), "s3cret");

    EXPECT_EQ(runCli({"export", "--format", "csv", "--password-stdin", db}, "pw\n").exitCode, 2);
}

TEST(Cli, generatorsKeepThePanelsRangesAndAlphabets)
{
    const std::string all = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789!@#$%^&*()-_=+[]{};:,.<>?";
    const auto standard = runCli({"generate", "--strength"});
    ASSERT_EQ(standard.exitCode, 0);
    ASSERT_EQ(standard.out.size(), 21u);
    EXPECT_EQ(standard.out.find_first_not_of(all), 20u);
    EXPECT_EQ(standard.err, "20 characters \u00b7 129 bits\n");
    const auto letters = runCli({"generate", "--lower", "--upper", "--strength"});
    EXPECT_EQ(letters.out.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"), 20u);
    EXPECT_EQ(letters.err, "20 characters \u00b7 114 bits\n");

    const auto phrase = runCli({"diceware", "--strength"});
    ASSERT_EQ(phrase.exitCode, 0) << phrase.err;
    EXPECT_EQ(std::count(phrase.out.begin(), phrase.out.end(), ' '), 4);
    EXPECT_EQ(phrase.err, "5 words \u00b7 65 bits\n");

    TempDir dir;
    writeFile(dir / "words.txt", std::string_view("11111\tone\n11112\ttwo\n\n"));
    const auto custom = runCli({"diceware", "--word-list", (dir / "words.txt").string(), "-W", "10"}).out;
    EXPECT_EQ(custom.find_first_not_of("onetw \n"), std::string::npos);
    const auto missing = runCli({"diceware", "--word-list", (dir / "none.txt").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err, "Word list missing: passphrases are unavailable.\n");
}

std::vector<std::string> namesIn(const std::filesystem::path& folder)
{
    std::vector<std::string> names;
    for (const auto& item : std::filesystem::directory_iterator(folder))
        names.push_back(item.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

TEST(Cli, aWriteWhileAnotherProgramChangedTheFileIsRefusedAndTheirFileKept)
{
    TempDir dir;
    const auto db = writeDb(dir, "db.kdbx", passwordOnly("pw"));
    // Another program saves while the password is being typed: after this run read the file, before it writes.
    auto theirs = tinyFile(passwordOnly("theirs"));
    const auto typeSlowly = [&](std::string_view) {
        writeFile(db, theirs);
        return std::optional(kdbx::SecureBytes::fromText("pw"));
    };
    for (const auto& args : std::vector<std::vector<std::string>>{
             {"mkdir", db, "New"}, {"rm", db, "Sample"}, {"edit", "--url", "https://x", db, "Sample"}}) {
        writeDb(dir, "db.kdbx", passwordOnly("pw"));
        const auto refused = runInProcess(args, {}, false, typeSlowly);
        EXPECT_EQ(refused.status, 1) << args[0];
        EXPECT_EQ(refused.err, files::ChangedOnDisk::describe("db.kdbx") + "\n") << args[0];
        EXPECT_EQ(readFile(db), theirs) << args[0];
        EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"db.kdbx"}) << args[0];
    }

    // Unchanged, the same write goes through, after a backup of what was there.
    const auto ok = runInProcess({"mkdir", db, "New"}, {}, false,
                                 [](std::string_view) { return std::optional(kdbx::SecureBytes::fromText("theirs")); });
    EXPECT_EQ(ok.status, 0) << ok.err;
    EXPECT_EQ(ok.out, "Added group New.\n");
    EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"db.kdbx"});
}

TEST(Cli, protectedValuesAreShownOnlyWhenAskedFor)
{
    TempDir dir;
    const auto db = writeDb(dir, "db.kdbx", passwordOnly("pw"));
    const auto otp = runCli({"edit", "--password-stdin", "--otp", db, "Sample"}, "pw\nJBSWY3DPEHPK3PXP\n");
    ASSERT_EQ(otp.exitCode, 0) << otp.err;

    for (const auto& args : std::vector<std::vector<std::string>>{
             {"show", db, "Sample"},
             {"show", "--json", db, "Sample"},
             {"ls", "-R", "--json", db},
             {"search", "--json", db, "sample"},
             {"search", "--scope", "password", db, "s3cret"},
         }) {
        auto withStdin = args;
        withStdin.insert(withStdin.begin() + 1, "--password-stdin");
        const auto shown = runCli(withStdin, "pw\n");
        EXPECT_EQ(shown.exitCode, 0) << args[0] << shown.err;
        EXPECT_THAT(shown.out + shown.err, testing::Not(HasSubstr("s3cret"))) << args[0];
        EXPECT_THAT(shown.out + shown.err, testing::Not(HasSubstr("JBSWY3DPEHPK3PXP"))) << args[0];
    }
    const auto text = runCli({"show", "--password-stdin", db, "Sample"}, "pw\n");
    EXPECT_THAT(text.out, HasSubstr("Title: Sample\nUserName: alice\nPassword: [protected]\notp: [protected]\n"));
    EXPECT_THAT(text.out, HasSubstr("History: 1 version\n"));
    const auto json = runCli({"show", "--json", "--password-stdin", db, "Sample"}, "pw\n");
    EXPECT_THAT(json.out, HasSubstr("{\"name\":\"Password\",\"value\":null,\"protected\":true}"));
    const auto attribute = runCli({"show", "-a", "Password", "--password-stdin", db, "Sample"}, "pw\n");
    EXPECT_EQ(attribute.exitCode, 1);
    EXPECT_EQ(attribute.out, "");

    const auto revealed = runCli({"show", "--show-protected", "--json", "--password-stdin", db, "Sample"}, "pw\n");
    EXPECT_THAT(revealed.out, HasSubstr("{\"name\":\"Password\",\"value\":\"s3cret\",\"protected\":true}"));
    EXPECT_THAT(revealed.out, HasSubstr("\"value\":\"otpauth://totp/Account?secret=JBSWY3DPEHPK3PXP\""));
    EXPECT_EQ(runCli({"show", "--show-protected", "-a", "Password", "--password-stdin", db, "Sample"}, "pw\n").out,
              "s3cret\n");

    const auto code = runCli({"totp", "--password-stdin", db, "Sample"}, "pw\n");
    EXPECT_EQ(code.exitCode, 0) << code.err;
    EXPECT_EQ(code.out.find_first_not_of("0123456789"), 6u);

    // Notes the user protected stay protected when an edit rewrites them.
    auto file = tinyDatabase();
    auto notes = file->document.select_node("//Entry").node().append_child("String");
    notes.append_child("Key").text().set("Notes");
    notes.append_child("Value").append_attribute("Protected").set_value("True");
    writeFile(db, file->save(passwordOnly("pw")));
    ASSERT_EQ(runCli({"edit", "--password-stdin", "--notes", "n3w \"q\" \\\t", db, "Sample"}, "pw\n").exitCode, 0);
    EXPECT_THAT(runCli({"show", "--password-stdin", db, "Sample"}, "pw\n").out, HasSubstr("Notes: [protected]\n"));
    EXPECT_THAT(runCli({"show", "--show-protected", "--json", "--password-stdin", db, "Sample"}, "pw\n").out,
                HasSubstr(R"("name":"Notes","value":"n3w \"q\" \\\t")"));
}

TEST(Cli, editsKeepOneVersionPerCommandAndDeletesGoThroughTheRecycleBin)
{
    TempDir dir;
    const auto db = writeDb(dir, "db.kdbx", passwordOnly("pw"));
    auto run = [&](std::vector<std::string> args, const std::string& more = {}) {
        args.insert(args.begin() + 1, "--password-stdin");
        return runCli(args, "pw\n" + more);
    };
    ASSERT_EQ(run({"mkdir", db, "Work"}).exitCode, 0);
    ASSERT_EQ(run({"mkdir", db, "Work/Servers"}).exitCode, 0);
    EXPECT_EQ(run({"mkdir", db, "Work"}).exitCode, 1);
    EXPECT_EQ(run({"mkdir", db, "Nowhere/Sub"}).err, "Group not found: Nowhere\n");
    const auto added = run({"add", "-u", "bob", "-p", db, "Work/Servers/db1"}, "first\n");
    ASSERT_EQ(added.exitCode, 0) << added.err;
    EXPECT_EQ(added.out, "Added entry Work/Servers/db1.\n");
    EXPECT_EQ(run({"add", db, "Work/Servers/db1"}).exitCode, 1);
    // A password is never an argument.
    EXPECT_EQ(run({"add", "--password", "x", db, "Work/x"}).exitCode, 2);

    const auto edited = run({"edit", "-t", "db2", "-u", "carol", "-p", "--notes", "n", db, "Work/Servers/db1"},
                            "second\n");
    ASSERT_EQ(edited.exitCode, 0) << edited.err;
    EXPECT_EQ(run({"edit", "-u", "carol", db, "Work/Servers/db2"}).out, "Nothing changed.\n");
    const auto shown = run({"show", "--show-protected", db, "Work/Servers/db2"});
    EXPECT_THAT(shown.out, HasSubstr("Title: db2\nUserName: carol\nPassword: second\nURL: \nNotes: n\n"));
    EXPECT_THAT(shown.out, HasSubstr("History: 1 version\n"));

    EXPECT_EQ(run({"mv", db, "Work", "Work/Servers"}).exitCode, 1);
    ASSERT_EQ(run({"mv", db, "Work/Servers/db2", "Work"}).exitCode, 0);
    EXPECT_EQ(run({"rm", db, "Work/db2"}).out, "Moved to Recycle Bin: Work/db2\n");
    EXPECT_EQ(run({"rm", db, "Recycle Bin/db2"}).out, "Deleted permanently: Recycle Bin/db2\n");
    EXPECT_EQ(run({"rm", db, "Work/"}).out, "Moved to Recycle Bin: Work\n");
    const auto top = run({"rm", db, "/"});
    EXPECT_EQ(top.exitCode, 1);
    EXPECT_EQ(top.err, "The top-level group can't be deleted.\n");
    EXPECT_EQ(run({"ls", "-R", db}).out, "Recycle Bin/\n  Work/\n    Servers/\nSample\n");
    EXPECT_EQ(run({"search", db, "carol"}).out, "");
    // Naming the bin empties it, and an empty bin is refused without writing the file.
    EXPECT_EQ(run({"rm", db, "Recycle Bin/"}).out, "Deleted permanently: Recycle Bin\n");
    const auto emptied = test::readFile(db);
    const auto again = run({"rm", db, "Recycle Bin/"});
    EXPECT_EQ(again.err, "The Recycle Bin is already empty.\n");
    EXPECT_EQ(test::readFile(db), emptied);
    EXPECT_EQ(run({"show", db, "Nope"}).err, "Entry not found: Nope\n");
}

TEST(Cli, interruptStopsALongKeyDerivation)
{
    // A header asking for about twenty seconds of Argon2; the run is stopped long before it ends.
    TempDir dir;
    auto header = tinyDatabase()->header;
    header.kdf.entries["M"] = std::uint64_t{8} << 20;
    header.kdf.entries["I"] = std::uint64_t{2000};
    writeFile(dir / "slow.kdbx", headerOnlyFile(header));

    // env resets SIGINT to its default, which a test runner started in the background may have ignored.
    ProcessOptions options;
    options.input = "pw\n";
    options.timeout = std::chrono::seconds(90);
    const auto result = test::run({"timeout", "--preserve-status", "-s", "INT", "1", "env", "--default-signal=INT",
                                   QUILLON_BINARY_DIR "/app/quillon-cli", "stats", "--password-stdin",
                                   (dir / "slow.kdbx").string()},
                                  options);
    EXPECT_EQ(result.exitCode, 128 + SIGINT) << result.err;
    EXPECT_EQ(result.out, "");
}

} // namespace
