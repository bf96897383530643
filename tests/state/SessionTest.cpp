#include "state/DatabaseMemory.h"
#include "state/Preferences.h"
#include "state/Session.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

using namespace quillon;
using quillon::state::Session;
using quillon::state::TabGroup;

namespace {

QString qpath(const std::filesystem::path& path) { return QString::fromStdString(path.string()); }

TEST(Session, roundTripsThroughTheStore)
{
    test::TempDir dir;
    state::Preferences prefs(qpath(dir / "Quillon.conf"));
    EXPECT_FALSE(state::loadSession(prefs));
    const Session session{{TabGroup{{QStringLiteral("/a/one.kdbx"), QStringLiteral("/b/tw\u00f6 \"x\".kdbx")}, 1},
                           TabGroup{{QStringLiteral("/c/three.kdbx")}, 0}, TabGroup{{}, 0}}};
    state::saveSession(prefs, session);
    state::Preferences reopened(qpath(dir / "Quillon.conf"));
    EXPECT_EQ(state::loadSession(reopened), session);

    // A path that is not Unicode cannot be written faithfully: the key goes rather than a wrong session.
    state::saveSession(reopened, Session{{TabGroup{{QString(QChar(0xD800))}, 0}}});
    EXPECT_FALSE(reopened.value(state::keys::openSession).isValid());
    EXPECT_FALSE(state::loadSession(reopened));
}

TEST(Session, decodingRefusesAnythingMisshapen)
{
    EXPECT_EQ(Session::decode(R"({"groups":[{"paths":["/x"],"selected":0}]})"),
              (Session{{TabGroup{{QStringLiteral("/x")}, 0}}}));
    for (const char* bad : {"", "[]", "{}", "not json", R"({"groups":{}})", R"({"groups":[1]})",
                            R"({"groups":[{"paths":["/x"]}]})", R"({"groups":[{"selected":0}]})",
                            R"({"groups":[{"paths":["/x"],"selected":"0"}]})",
                            R"({"groups":[{"paths":["/x"],"selected":0.5}]})",
                            R"({"groups":[{"paths":["/x"],"selected":1e40}]})",
                            R"({"groups":[{"paths":[7],"selected":0}]})", R"({"groups":[{"paths":"/x","selected":0}]})"})
        EXPECT_FALSE(Session::decode(bad)) << bad;
}

TEST(Session, cleaningFollowsTheSelectedFile)
{
    const auto exists = [](const QString& path) { return !path.startsWith(u"gone"); };
    const QString a = QStringLiteral("a"), b = QStringLiteral("b"), c = QStringLiteral("c");
    const QString g1 = QStringLiteral("gone1"), g2 = QStringLiteral("gone2");
    struct Row {
        const char* name;
        TabGroup in;
        std::optional<TabGroup> out;
    };
    const Row rows[] = {
        {"unchanged", {{a, b, c}, 2}, TabGroup{{a, b, c}, 2}},
        {"onlyFileGone", {{g1}, 0}, std::nullopt},
        {"selectedGone", {{a, g1, b}, 1}, TabGroup{{a, b}, 0}},
        {"earlierGone", {{g1, g2, a, b}, 3}, TabGroup{{a, b}, 1}},
        {"outOfRange", {{a, b}, 5}, TabGroup{{a, b}, 0}},
        {"negative", {{g1, a, b}, -1}, TabGroup{{a, b}, 0}},
        {"emptyGroup", {{}, 0}, std::nullopt},
    };
    for (const auto& row : rows) {
        const auto cleaned = Session{{row.in}}.cleaned(exists);
        if (row.out)
            EXPECT_EQ(cleaned, Session{{*row.out}}) << row.name;
        else
            EXPECT_TRUE(cleaned.groups.isEmpty()) << row.name;
    }

    test::TempDir dir;
    test::writeFile(dir / "here.kdbx", std::string_view("x"));
    std::filesystem::create_directory(dir / "folder.kdbx");
    const auto onDisk =
        Session{{TabGroup{{qpath(dir / "gone.kdbx"), qpath(dir / "folder.kdbx"), qpath(dir / "here.kdbx")}, 2}}}
            .cleaned();
    EXPECT_EQ(onDisk, (Session{{TabGroup{{qpath(dir / "here.kdbx")}, 0}}}));
}

TEST(Session, builtFromTheWindowsTabsThatShowAFile)
{
    const QString a = QStringLiteral("/a.kdbx"), b = QStringLiteral("/b.kdbx"), c = QStringLiteral("/c.kdbx");
    const auto none = std::optional<QString>();
    const QList<state::WindowTabs> windows = {
        {{a, none, b}, 2},  // the new tab before the shown one does not count
        {{none}, 0},        // nothing with a file: no group
        {{c, none}, 1},     // the shown tab has no file: the first is selected
    };
    EXPECT_EQ(state::buildSession(windows), (Session{{TabGroup{{a, b}, 1}, TabGroup{{c}, 0}}}));
}

TEST(Session, restoringSkipsOpenFilesAndBringsForwardAmongTheNewWindows)
{
    const QString a = QStringLiteral("a"), b = QStringLiteral("b"), c = QStringLiteral("c");
    const auto openAlready = [&](const QString& path) { return path == a; };
    const Session session{{TabGroup{{a, b, c}, 1}, TabGroup{{a}, 0}, TabGroup{{b, c}, 0}}};
    // Group one makes windows for b and c only; index 1 among them is c. Group two makes none.
    EXPECT_EQ(state::restorePlan(session, openAlready),
              (QList<state::RestoreGroup>{{{b, c}, 1}, {{b, c}, 0}}));
    EXPECT_EQ(state::restorePlan(Session{{TabGroup{{a, b}, 1}}}, openAlready),
              (QList<state::RestoreGroup>{{{b}, std::nullopt}}));

    test::TempDir dir;
    test::writeFile(dir / "here.kdbx", std::string_view("x"));
    state::Preferences prefs(qpath(dir / "Quillon.conf"));
    EXPECT_FALSE(state::sessionToRestore(prefs, false));
    state::saveSession(prefs, Session{{TabGroup{{qpath(dir / "gone.kdbx")}, 0}}});
    EXPECT_FALSE(state::sessionToRestore(prefs, false));
    const Session kept{{TabGroup{{qpath(dir / "gone.kdbx"), qpath(dir / "here.kdbx")}, 1}}};
    state::saveSession(prefs, kept);
    EXPECT_EQ(state::sessionToRestore(prefs, false), (Session{{TabGroup{{qpath(dir / "here.kdbx")}, 0}}}));
    EXPECT_FALSE(state::sessionToRestore(prefs, true));
    prefs.setReopenLastDatabase(false);
    EXPECT_FALSE(state::sessionToRestore(prefs, false));
}

TEST(DatabaseMemory, keyFilesAndExpandedGroupsAreKeptApartPerDatabase)
{
    test::TempDir dir;
    for (const char* name : {"one.kdbx", "two.kdbx", "one.key", "two.key"})
        test::writeFile(dir / name, std::string_view("x"));
    std::filesystem::create_symlink(dir / "one.kdbx", dir / "alias.kdbx");
    state::Preferences prefs(qpath(dir / "Quillon.conf"));
    state::DatabaseMemory memory(prefs);
    const QString one = qpath(dir / "one.kdbx"), two = qpath(dir / "two.kdbx"), alias = qpath(dir / "alias.kdbx");
    EXPECT_FALSE(memory.keyFile(one));
    EXPECT_TRUE(memory.expandedGroups(one).isEmpty());

    memory.setExpandedGroups({QStringLiteral("g1"), QStringLiteral("g2")}, alias);
    memory.setKeyFile(qpath(dir / "one.key"), one);
    memory.setKeyFile(qpath(dir / "two.key"), two);
    state::DatabaseMemory reread(prefs);
    EXPECT_EQ(reread.keyFile(alias), qpath(dir / "one.key"));
    EXPECT_EQ(reread.keyFile(two), qpath(dir / "two.key"));
    EXPECT_EQ(reread.expandedGroups(one), (QSet<QString>{QStringLiteral("g1"), QStringLiteral("g2")}));
    EXPECT_TRUE(reread.expandedGroups(two).isEmpty());

    memory.setKeyFile(std::nullopt, alias);
    EXPECT_FALSE(memory.keyFile(one));
    EXPECT_EQ(memory.keyFile(two), qpath(dir / "two.key"));
    EXPECT_EQ(memory.expandedGroups(one).size(), 2);

    // A key file that has gone is not offered.
    std::filesystem::remove(dir / "two.key");
    EXPECT_FALSE(memory.keyFile(two));

    // A damaged store reads as empty and is replaced on the next write.
    prefs.setValue(state::keys::databases, QStringLiteral("garbage"));
    EXPECT_FALSE(memory.keyFile(one));
    memory.setKeyFile(qpath(dir / "one.key"), one);
    EXPECT_EQ(memory.keyFile(alias), qpath(dir / "one.key"));
}

} // namespace
