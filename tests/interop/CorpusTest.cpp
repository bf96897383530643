// Files written by other KDBX programs open with the stated contents, or fail with the stated message.
#include "kdbx/KdbxError.h"
#include "kdbx/KdbxFile.h"
#include "tests/support/Peers.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestDb.h"

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <cstring>
#include <string>

using namespace quillon;

namespace {

std::string text(const QJsonValue& v) { return v.toString().toStdString(); }

pugi::xml_node findEntry(const pugi::xml_document& doc, const std::string& title)
{
    for (pugi::xpath_node n : doc.select_nodes("//Entry[not(ancestor::History)]")) {
        for (pugi::xml_node s : n.node().children("String"))
            if (std::strcmp(s.child_value("Key"), "Title") == 0 && title == s.child_value("Value"))
                return n.node();
    }
    return {};
}

std::string field(pugi::xml_node entry, const char* key) { return quillon::test::field(entry, key, "<absent>"); }

void checkSample(const pugi::xml_document& doc, const QJsonObject& sample)
{
    const std::string title = text(sample["title"]);
    const pugi::xml_node entry = findEntry(doc, title);
    ASSERT_TRUE(entry) << title;
    if (sample.contains("username")) {
        EXPECT_EQ(field(entry, "UserName"), text(sample["username"])) << title;
    }
    if (sample.contains("password")) {
        EXPECT_EQ(field(entry, "Password"), text(sample["password"])) << title;
    }
    for (const QJsonValue& name : sample["custom_fields"].toArray())
        EXPECT_NE(field(entry, name.toString().toStdString().c_str()), "<absent>") << title;
    for (const QJsonValue& name : sample["attachments"].toArray()) {
        bool found = false;
        for (pugi::xml_node b : entry.children("Binary"))
            found |= name.toString().toStdString() == b.child_value("Key");
        EXPECT_TRUE(found) << title << " attachment " << name.toString().toStdString();
    }
    if (sample.contains("history")) {
        const auto versions = static_cast<int>(entry.child("History").select_nodes("Entry").size());
        EXPECT_EQ(versions, sample["history"].toInt()) << title;
    }
}

QJsonArray casesIn(const std::filesystem::path& dir)
{
    const auto json = test::readFile(dir / "cases.json");
    return QJsonDocument::fromJson(QByteArray(reinterpret_cast<const char*>(json.data()), static_cast<qsizetype>(json.size())))
        .object()["cases"]
        .toArray();
}

TEST(Corpus, everyCaseOpensOrFailsAsStated)
{
    const auto dir = test::corpusDir();
    QUILLON_REQUIRE_CORPUS_DIR(dir);
    const QJsonArray cases = casesIn(*dir);
    ASSERT_GT(cases.size(), 30);
    for (const QJsonValue& value : cases) {
        const QJsonObject c = value.toObject();
        const std::string path = text(c["path"]);
        SCOPED_TRACE(path);
        kdbx::Credentials credentials;
        if (!c["password"].isNull())
            credentials.password = kdbx::SecureBytes::fromText(text(c["password"]));
        if (!c["keyFile"].isNull())
            credentials.keyFile = kdbx::SecureBytes::from(test::readFile(*dir / text(c["keyFile"])));
        const QJsonObject expect = c["expect"].toObject();
        const auto bytes = test::readFile(*dir / path);
        try {
            auto file = kdbx::KdbxFile::open(bytes, credentials);
            ASSERT_TRUE(expect["opens"].toBool()) << "opened, but should have failed";
            const kdbx::DocumentCounts counts = kdbx::countDocument(file->document);
            EXPECT_EQ(counts.entries, static_cast<std::size_t>(expect["entries"].toInt()));
            EXPECT_EQ(counts.protectedValues, static_cast<std::size_t>(expect["protectedValues"].toInt()));
            EXPECT_EQ(file->inner.binaries.size(), static_cast<std::size_t>(expect["binaries"].toInt()));
            for (const QJsonValue& sample : expect["sampleEntries"].toArray())
                checkSample(file->document, sample.toObject());
        } catch (const kdbx::KdbxError& e) {
            ASSERT_FALSE(expect["opens"].toBool()) << e.what();
            if (expect.contains("message"))
                EXPECT_EQ(e.what(), text(expect["message"]));
            else // a damaged file is never blamed on the password
                EXPECT_NE(e.which(), kdbx::KdbxError::Case::wrongCredentials) << e.what();
        }
    }
}

// --verify on every password-only file that opens round-trips the document unchanged.
TEST(Corpus, verifyRoundTripsEveryPasswordOnlyFile)
{
    const auto dir = test::corpusDir();
    QUILLON_REQUIRE_CORPUS_DIR(dir);
    const QJsonArray cases = casesIn(*dir);
    test::TempDir tmp;
    int verified = 0;
    for (const QJsonValue& value : cases) {
        const QJsonObject c = value.toObject();
        if (!c["expect"].toObject()["opens"].toBool() || !c["keyFile"].isNull() || c["password"].isNull())
            continue;
        test::ProcessOptions options;
        options.env["TMPDIR"] = tmp.path().string();
        const auto r = test::run({std::string(QUILLON_BINARY_DIR) + "/app/quillon", "--verify",
                                  (*dir / text(c["path"])).string(), text(c["password"])},
                                 options);
        EXPECT_EQ(r.exitCode, 0) << text(c["path"]) << "\n" << r.out << r.err;
        EXPECT_NE(r.out.find("round-trip: XML identical\n"), std::string::npos) << r.out;
        ++verified;
    }
    EXPECT_GT(verified, 10);
}

} // namespace
