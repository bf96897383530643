#include "kdbx/Identifiers.h"
#include "model/Document.h"
#include "state/Preferences.h"
#include "state/SettingsForm.h"
#include "tests/support/TempDir.h"

#include <gtest/gtest.h>

using namespace quillon;
using quillon::state::SettingsForm;

namespace {

QString qpath(const std::filesystem::path& path) { return QString::fromStdString(path.string()); }

std::vector<std::uint8_t> id(const kdbx::Identifier& identifier) { return {identifier.begin(), identifier.end()}; }

// A header as a database opened with Argon2d 32 MiB, 4 passes, 3 lanes and ChaCha20 would carry.
kdbx::OuterHeader openedHeader()
{
    kdbx::OuterHeader header;
    header.cipher = id(kdbx::cipherChaCha20);
    header.kdf.entries = {{"$UUID", id(kdbx::kdfArgon2d)},
                          {"M", std::uint64_t{32} << 20 | 12345},
                          {"I", std::uint64_t{4}},
                          {"P", std::uint32_t{3}},
                          {"V", std::uint32_t{0x13}},
                          {"S", std::vector<std::uint8_t>(32, 7)}};
    return header;
}

pugi::xml_document documentWithHistory(const char* limit)
{
    pugi::xml_document document;
    auto meta = document.append_child("KeePassFile").append_child("Meta");
    meta.append_child("Generator").text().set("x");
    if (limit)
        meta.append_child("HistoryMaxItems").text().set(limit);
    return document;
}

std::string historyText(const pugi::xml_document& document)
{
    return document.child("KeePassFile").child("Meta").child("HistoryMaxItems").text().get();
}

struct Store {
    test::TempDir dir;
    state::Preferences prefs{qpath(dir / "Quillon.conf")};
};

TEST(SettingsForm, memoryWarningFollowsTheTypedText)
{
    SettingsForm form;
    const std::pair<const char16_t*, const char*> rows[] = {
        {u"", "Memory below 16 MB gives up most of Argon2's resistance to GPU attacks."},
        {u"12", "Memory below 16 MB gives up most of Argon2's resistance to GPU attacks."},
        {u"99999999999999999999", "Memory below 16 MB gives up most of Argon2's resistance to GPU attacks."},
        {u"16", "Below the recommended 64 MB."},
        {u"63", "Below the recommended 64 MB."},
        {u"64", ""},
    };
    for (const auto& [text, expected] : rows) {
        form.memory = QString::fromUtf16(text);
        form.updateWarning();
        EXPECT_EQ(form.warning.toStdString(), expected) << form.memory.toStdString();
        EXPECT_EQ(form.warningVisible(), *expected != '\0');
    }
}

// Each number field: what a typed text applies, with the field's fallback and clamp.
TEST(SettingsForm, eachFieldFallsBackOrClamps)
{
    struct Row {
        QString SettingsForm::*field;
        const char16_t* text;
        const char* name;
    };
    const std::pair<Row, std::int64_t> rows[] = {
        {{&SettingsForm::memory, u"abc", "memory"}, 64},       {{&SettingsForm::memory, u"40", "memory"}, 40},
        {{&SettingsForm::memory, u"99999", "memory"}, 8192},   {{&SettingsForm::memory, u"7", "memory"}, 8},
        {{&SettingsForm::memory, u"1.5", "memory"}, 64},       {{&SettingsForm::iterations, u"0", "iterations"}, 1},
        {{&SettingsForm::iterations, u"5000", "iterations"}, 1000}, {{&SettingsForm::iterations, u"abc", "iterations"}, 10},
        {{&SettingsForm::parallelism, u"200", "threads"}, 64}, {{&SettingsForm::parallelism, u" 4", "threads"}, 2},
        {{&SettingsForm::autoLock, u"-5", "autoLock"}, 0},     {{&SettingsForm::autoLock, u"2000", "autoLock"}, 1440},
        {{&SettingsForm::historyField, u"abc", "history"}, 25}, {{&SettingsForm::historyField, u"-3", "history"}, 0},
        {{&SettingsForm::historyField, u"200000", "history"}, 100000}, {{&SettingsForm::historyField, u"7", "history"}, 7},
    };
    for (const auto& [row, expected] : rows) {
        Store store;
        auto header = openedHeader();
        auto document = documentWithHistory("25");
        model::Document model(document);
        auto form = SettingsForm::load(header, model, store.prefs);
        form.*row.field = QString::fromUtf16(row.text);
        ASSERT_TRUE(form.apply(header, model, store.prefs));
        const std::string where = std::string(row.name) + " \"" + QString::fromUtf16(row.text).toStdString() + '"';
        const std::string field = row.name;
        if (field == "memory")
            EXPECT_EQ(*header.kdf.get<std::uint64_t>("M"), static_cast<std::uint64_t>(expected) * 1048576) << where;
        else if (field == "iterations")
            EXPECT_EQ(*header.kdf.get<std::uint64_t>("I"), static_cast<std::uint64_t>(expected)) << where;
        else if (field == "threads")
            EXPECT_EQ(*header.kdf.get<std::uint32_t>("P"), static_cast<std::uint32_t>(expected)) << where;
        else if (field == "autoLock")
            EXPECT_EQ(state::Preferences(qpath(store.dir / "Quillon.conf")).idleLockMinutes(), expected) << where;
        else
            EXPECT_EQ(historyText(document), std::to_string(expected)) << where;
    }
}

TEST(SettingsForm, applyWritesTheHeaderKeepsOtherParametersAndUnlimitedHistory)
{
    Store store;
    auto header = openedHeader();
    auto document = documentWithHistory("25");
    model::Document model(document);
    auto form = SettingsForm::load(header, model, store.prefs);
    form.cipher = SettingsForm::aes256;
    form.kdf = SettingsForm::argon2id;
    form.memory = QStringLiteral("128");
    form.historyToggled(true);
    form.reopenLast = false;
    ASSERT_TRUE(form.apply(header, model, store.prefs));

    EXPECT_EQ(header.cipher, id(kdbx::cipherAes256));
    EXPECT_EQ(*header.kdf.get<std::vector<std::uint8_t>>("$UUID"), id(kdbx::kdfArgon2id));
    EXPECT_EQ(*header.kdf.get<std::uint64_t>("M"), std::uint64_t{128} << 20);
    EXPECT_EQ(*header.kdf.get<std::uint64_t>("I"), 4u);
    EXPECT_EQ(*header.kdf.get<std::uint32_t>("P"), 3u);
    EXPECT_EQ(*header.kdf.get<std::uint32_t>("V"), 0x13u);
    EXPECT_EQ(*header.kdf.get<std::vector<std::uint8_t>>("S"), std::vector<std::uint8_t>(32, 7));
    EXPECT_EQ(historyText(document), "-1");
    EXPECT_FALSE(state::Preferences(qpath(store.dir / "Quillon.conf")).reopenLastDatabase());

    // Back the other way, into a document that had no Meta at all.
    pugi::xml_document bare;
    bare.append_child("KeePassFile").append_child("Root");
    form.cipher = SettingsForm::chaCha20;
    form.kdf = SettingsForm::argon2d;
    form.historyToggled(false);
    form.historyField = QStringLiteral("5");
    model::Document bareDocument(bare);
    ASSERT_TRUE(form.apply(header, bareDocument, store.prefs));
    EXPECT_EQ(header.cipher, id(kdbx::cipherChaCha20));
    EXPECT_EQ(*header.kdf.get<std::vector<std::uint8_t>>("$UUID"), id(kdbx::kdfArgon2d));
    EXPECT_EQ(historyText(bare), "5");
    EXPECT_EQ(bare.first_child().first_child().name(), std::string("Meta"));

    form.useRecommended();
    EXPECT_EQ(form.memory, u"64");
    EXPECT_EQ(form.iterations, u"10");
    EXPECT_EQ(form.parallelism, u"2");
    EXPECT_EQ(form.kdf, SettingsForm::argon2id);
    EXPECT_EQ(form.cipher, SettingsForm::aes256);
    EXPECT_FALSE(form.warningVisible());
}

} // namespace
