#include "state/Preferences.h"
#include "state/Session.h"
#include "tests/support/Helpers.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QFileInfo>

#include <random>

#include <stdlib.h>
#include <sys/stat.h>

using namespace quillon;
using quillon::state::Preferences;

namespace {

using quillon::test::modeOf;
using quillon::test::viewOf;

QString qpath(const std::filesystem::path& path) { return QString::fromStdString(path.string()); }

// The real store, moved under a temporary XDG_CONFIG_HOME: nothing is created by reading, and the first
// write makes a private file in a private folder.
TEST(Preferences, theUsersStoreIsQuillonsOwnAndPrivate)
{
    test::TempDir dir;
    const auto config = dir / "config";
    ASSERT_EQ(::setenv("XDG_CONFIG_HOME", config.c_str(), 1), 0);
    Preferences prefs;
    ::unsetenv("XDG_CONFIG_HOME");
    const auto expected = config / "Quillon" / "Quillon.conf";
    // Stop before any write could reach the real user's store.
    ASSERT_EQ(prefs.fileName(), qpath(expected));
    EXPECT_EQ(prefs.idleLockMinutes(), 10);
    EXPECT_FALSE(std::filesystem::exists(config));
    prefs.setWrapNotes(false);
    EXPECT_EQ(modeOf(expected), 0600u);
    EXPECT_EQ(modeOf(expected.parent_path()), 0700u);
    EXPECT_FALSE(Preferences(qpath(expected)).wrapNotes());
}

// New values survive a reopen, in a private file; a readable file that was there is made private on the next write.
TEST(Preferences, valuesSurviveAReopenAndTheFileIsPrivate)
{
    test::TempDir dir;
    const auto file = dir / "new folder" / "Quillon.conf";
    {
        Preferences prefs(qpath(file));
        prefs.setIdleLockMinutes(0);
        prefs.setReopenLastDatabase(false);
        prefs.setBackUpBeforeSaving(false);
        prefs.setWrapNotes(false);
        prefs.setLastDatabasePath(QStringLiteral("/data/a, b.kdbx"));
        prefs.setLastKeyFilePath(QStringLiteral("/data/k\u00e9y"));
        EXPECT_EQ(prefs.status(), QSettings::NoError);
    }
    EXPECT_EQ(modeOf(file), 0600u);
    EXPECT_EQ(modeOf(file.parent_path()), 0700u);
    Preferences prefs(qpath(file));
    EXPECT_EQ(prefs.idleLockMinutes(), 0);
    EXPECT_FALSE(prefs.reopenLastDatabase());
    EXPECT_FALSE(prefs.backUpBeforeSaving());
    EXPECT_FALSE(prefs.wrapNotes());
    EXPECT_EQ(prefs.lastDatabasePath(), QStringLiteral("/data/a, b.kdbx"));
    EXPECT_EQ(prefs.lastKeyFilePath(), QStringLiteral("/data/k\u00e9y"));
    prefs.setLastKeyFilePath(std::nullopt);
    EXPECT_FALSE(prefs.lastKeyFilePath());

    ::chmod(file.c_str(), 0644);
    Preferences(qpath(file)).setIdleLockMinutes(3);
    EXPECT_EQ(modeOf(file), 0600u);
}

// Each bad value reads as its key's default; the good keys beside them keep their values.
TEST(Preferences, aDamagedFileDefaultsOnlyItsBadKeys)
{
    struct Row {
        const char* ini;
        int idle;
        bool reopen, backUp, wrap;
    };
    const Row rows[] = {
        {"idleLockMinutes=abc\nreopenLastDatabase=false\n", 10, false, true, true},
        {"idleLockMinutes=-5\nbackUpBeforeSaving=FALSE\n", 10, true, false, true},
        {"idleLockMinutes=99999999999999999999\nwrapNotes=0\n", 10, true, true, false},
        {"idleLockMinutes=7\nwrapNotes=maybe\nbackUpBeforeSaving=@Variant(\\0\\0\\0\\x7f\\0\\0)\n", 7, true, true, true},
        {"idleLockMinutes=1, 2\nreopenLastDatabase=\n=x\nno equals sign\n\x01\x02garbage\n", 10, true, true, true},
    };
    for (const auto& row : rows) {
        test::TempDir dir;
        const auto file = dir / "Quillon.conf";
        test::writeFile(file, "[General]\n" + std::string(row.ini) + "lastKeyFilePath=/keys/good.key\n");
        Preferences prefs(qpath(file));
        EXPECT_EQ(prefs.idleLockMinutes(), row.idle) << row.ini;
        EXPECT_EQ(prefs.reopenLastDatabase(), row.reopen) << row.ini;
        EXPECT_EQ(prefs.backUpBeforeSaving(), row.backUp) << row.ini;
        EXPECT_EQ(prefs.wrapNotes(), row.wrap) << row.ini;
        EXPECT_EQ(prefs.lastKeyFilePath(), QStringLiteral("/keys/good.key")) << row.ini;
        EXPECT_FALSE(prefs.hasDuressPassword()) << row.ini;
        // Writing one key keeps the other good keys as they were.
        prefs.setWrapNotes(false);
        Preferences again(qpath(file));
        EXPECT_EQ(again.lastKeyFilePath(), QStringLiteral("/keys/good.key")) << row.ini;
        EXPECT_EQ(again.idleLockMinutes(), row.idle) << row.ini;
    }
}

TEST(Preferences, duressPasswordIsSetCheckedAndRemoved)
{
    test::TempDir dir;
    Preferences prefs(qpath(dir / "Quillon.conf"));
    const auto password = kdbx::SecureBytes::fromText("help me");
    ASSERT_TRUE(prefs.setDuressPassword(&password));
    EXPECT_TRUE(prefs.hasDuressPassword());
    Preferences reopened(qpath(dir / "Quillon.conf"));
    EXPECT_TRUE(reopened.isDuressPassword(viewOf("help me")));
    EXPECT_FALSE(reopened.isDuressPassword(viewOf("help you")));
    EXPECT_EQ(reopened.value(state::keys::duressCheck).toByteArray().size(), 48);

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

// Bytes that are no settings file at all, alone or after good keys: the good keys are read and kept, the
// rest reads as defaults, and the store takes writes again.
TEST(Preferences, noiseInTheFileCostsOnlyWhatItReplaced)
{
    std::mt19937 noise(20261123);
    std::string bytes(4096, '\0');
    for (auto& byte : bytes)
        byte = static_cast<char>(noise() & 0xff);
    const std::string good = "[General]\nwrapNotes=false\nlastKeyFilePath=/keys/good.key\n";
    for (const auto& content : {bytes, good + bytes}) {
        const bool hasGood = content.starts_with(good);
        test::TempDir dir;
        const auto file = dir / "Quillon.conf";
        test::writeFile(file, content);
        Preferences prefs(qpath(file));
        EXPECT_EQ(prefs.idleLockMinutes(), 10);
        EXPECT_TRUE(prefs.reopenLastDatabase());
        EXPECT_EQ(prefs.wrapNotes(), !hasGood);
        EXPECT_FALSE(prefs.hasDuressPassword());
        EXPECT_FALSE(state::loadSession(prefs));
        prefs.setIdleLockMinutes(5);
        Preferences again(qpath(file));
        EXPECT_EQ(again.idleLockMinutes(), 5);
        EXPECT_EQ(again.wrapNotes(), !hasGood);
        if (hasGood) {
            EXPECT_EQ(again.lastKeyFilePath(), QStringLiteral("/keys/good.key"));
        }
    }
}

} // namespace
