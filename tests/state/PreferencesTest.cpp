#include "state/Preferences.h"
#include "state/Session.h"
#include "tests/support/Helpers.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <random>

#include <stdlib.h>
#include <sys/stat.h>

using namespace quillon;
using quillon::state::Preferences;

namespace {

using quillon::test::modeOf;
using quillon::test::viewOf;

QString qpath(const std::filesystem::path& path) { return QString::fromStdString(path.string()); }

// The real store, moved under a temporary XDG_CONFIG_HOME: nothing is created by reading; the first write makes a
// private file in a private folder, values survive a reopen, and a file left readable is made private again.
TEST(Preferences, theUsersStoreIsPrivateAndKeepsItsValues)
{
    test::TempDir dir;
    const auto config = dir / "config";
    ASSERT_EQ(::setenv("XDG_CONFIG_HOME", config.c_str(), 1), 0);
    std::optional<Preferences> prefs(std::in_place);
    ::unsetenv("XDG_CONFIG_HOME");
    const auto file = config / "Quillon" / "Quillon.conf";
    // Stop before any write could reach the real user's store.
    ASSERT_EQ(prefs->fileName(), qpath(file));
    EXPECT_EQ(prefs->idleLockMinutes(), 10);
    EXPECT_FALSE(std::filesystem::exists(config));
    prefs->setIdleLockMinutes(0);
    prefs->setReopenLastDatabase(false);
    prefs->setBackUpBeforeSaving(false);
    prefs->setWrapNotes(false);
    prefs->setLastDatabasePath(QStringLiteral("/data/a, b.kdbx"));
    prefs->setLastKeyFilePath(QStringLiteral("/data/k\u00e9y"));
    EXPECT_EQ(prefs->status(), QSettings::NoError);
    prefs.reset();
    EXPECT_EQ(modeOf(file), 0600u);
    EXPECT_EQ(modeOf(file.parent_path()), 0700u);
    prefs.emplace(qpath(file));
    EXPECT_EQ(prefs->idleLockMinutes(), 0);
    EXPECT_FALSE(prefs->reopenLastDatabase());
    EXPECT_FALSE(prefs->backUpBeforeSaving());
    EXPECT_FALSE(prefs->wrapNotes());
    EXPECT_EQ(prefs->lastDatabasePath(), QStringLiteral("/data/a, b.kdbx"));
    EXPECT_EQ(prefs->lastKeyFilePath(), QStringLiteral("/data/k\u00e9y"));
    prefs->setLastKeyFilePath(std::nullopt);
    EXPECT_FALSE(prefs->lastKeyFilePath());

    ::chmod(file.c_str(), 0644);
    Preferences(qpath(file)).setIdleLockMinutes(3);
    EXPECT_EQ(modeOf(file), 0600u);
}

// Each bad value, and bytes that are no settings file at all, read as the key's default; the good keys beside
// them keep their values, also when another key is written.
TEST(Preferences, aDamagedFileDefaultsOnlyItsBadKeys)
{
    std::mt19937 random(20261123);
    std::string noise(4096, '\0');
    for (auto& byte : noise)
        byte = static_cast<char>(random() & 0xff);
    const std::string good = "[General]\nlastKeyFilePath=/keys/good.key\n";
    struct Row {
        std::string text;
        int idle;
        bool reopen, backUp, wrap, keyFile;
    };
    const Row rows[] = {
        {good + "idleLockMinutes=abc\nreopenLastDatabase=false\n", 10, false, true, true, true},
        {good + "idleLockMinutes=-5\nbackUpBeforeSaving=FALSE\n", 10, true, false, true, true},
        {good + "idleLockMinutes=99999999999999999999\nwrapNotes=0\n", 10, true, true, false, true},
        {good + "idleLockMinutes=7\nwrapNotes=maybe\nbackUpBeforeSaving=@Variant(\\0\\0\\0\\x7f\\0\\0)\n", 7, true, true,
         true, true},
        {good + "idleLockMinutes=1, 2\nreopenLastDatabase=\n=x\nno equals sign\n\x01\x02garbage\n", 10, true, true,
         true, true},
        {noise, 10, true, true, true, false},
        {good + "wrapNotes=false\n" + noise, 10, true, true, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text.substr(0, 80));
        test::TempDir dir;
        const auto file = dir / "Quillon.conf";
        test::writeFile(file, row.text);
        Preferences prefs(qpath(file));
        EXPECT_EQ(prefs.idleLockMinutes(), row.idle);
        EXPECT_EQ(prefs.reopenLastDatabase(), row.reopen);
        EXPECT_EQ(prefs.backUpBeforeSaving(), row.backUp);
        EXPECT_EQ(prefs.wrapNotes(), row.wrap);
        EXPECT_EQ(prefs.lastKeyFilePath().has_value(), row.keyFile);
        EXPECT_FALSE(prefs.hasDuressPassword());
        EXPECT_FALSE(state::loadSession(prefs));
        prefs.setBackUpBeforeSaving(!row.backUp); // the store takes writes again
        Preferences again(qpath(file));
        EXPECT_EQ(again.backUpBeforeSaving(), !row.backUp);
        EXPECT_EQ(again.lastKeyFilePath().has_value(), row.keyFile);
        EXPECT_EQ(again.idleLockMinutes(), row.idle);
        EXPECT_EQ(again.wrapNotes(), row.wrap);
    }
}

TEST(Preferences, duressPasswordIsSetCheckedAndRemoved)
{
    test::TempDir dir;
    Preferences prefs(qpath(dir / "Quillon.conf"));
    const auto password = kdbx::SecureBytes::fromText("help me");
    ASSERT_TRUE(prefs.setDuressPassword(&password));
    Preferences reopened(qpath(dir / "Quillon.conf"));
    EXPECT_TRUE(reopened.hasDuressPassword());
    EXPECT_TRUE(reopened.isDuressPassword(viewOf("help me")));
    EXPECT_FALSE(reopened.isDuressPassword(viewOf("help you")));

    const auto empty = kdbx::SecureBytes();
    ASSERT_TRUE(reopened.setDuressPassword(&empty));
    EXPECT_FALSE(reopened.hasDuressPassword());
    EXPECT_FALSE(reopened.isDuressPassword(viewOf("help me")));

    // A record stored as text, or of the wrong size, is no record.
    reopened.setValue(state::keys::duressCheck, QStringLiteral("help me"));
    EXPECT_FALSE(reopened.hasDuressPassword());
    EXPECT_FALSE(reopened.isDuressPassword(viewOf("help me")));
    reopened.setValue(state::keys::duressCheck, QByteArray(47, 'x'));
    EXPECT_FALSE(reopened.isDuressPassword(viewOf("help me")));
}

TEST(Preferences, rememberedKeyFileOnlyForTheLastDatabaseHoweverReached)
{
    test::TempDir dir;
    test::writeFile(dir / "db.kdbx", std::string_view("x"));
    std::filesystem::create_directory_symlink(dir.path(), dir / "link");
    Preferences prefs(qpath(dir / "Quillon.conf"));
    EXPECT_FALSE(prefs.rememberedKeyFile(qpath(dir / "db.kdbx")));
    prefs.setLastDatabasePath(qpath(dir / "link" / "." / "db.kdbx"));
    prefs.setLastKeyFilePath(QStringLiteral("/keys/db.key"));
    EXPECT_EQ(prefs.rememberedKeyFile(qpath(dir / "db.kdbx")), QStringLiteral("/keys/db.key"));
    EXPECT_EQ(prefs.rememberedKeyFile(qpath(dir / "sub" / ".." / "db.kdbx")), QStringLiteral("/keys/db.key"));
    EXPECT_FALSE(prefs.rememberedKeyFile(qpath(dir / "other.kdbx")));
}

} // namespace
