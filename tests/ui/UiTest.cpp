#include "tests/ui/UiTest.h"

#include "tests/support/TestDb.h"
#include "ui/BrowseView.h"
#include "ui/EntryTableModel.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QLineEdit>
#include <QTableView>
#include <QTest>

namespace quillon::test {

QApplication& uiApplication()
{
    static int argc = 1;
    static char name[] = "test_ui";
    static char* argv[] = {name, nullptr};
    static QApplication* app = [] {
        qputenv("QT_QPA_PLATFORM", "offscreen");
        return new QApplication(argc, argv);
    }();
    return *app;
}

UiRig::UiRig()
    : preferences((uiApplication(), QString::fromStdString((dir / "settings.ini").string()))),
      clipboard(QApplication::clipboard(),
                [this](std::chrono::milliseconds, std::function<void()> job) { clipboardJobs.push_back(std::move(job)); })
{
    relaunch();
}

state::SessionServices UiRig::services(const files::Backups* backups)
{
    state::SessionServices services;
    services.runInBackground = [this](std::function<void()> job) { jobs.push_back(std::move(job)); };
    services.clock = [this] { return now; };
    services.isDuress = [](kdbx::ByteView) { return false; };
    services.backups = backups;
    return services;
}

void UiRig::relaunch(const files::Backups* backups)
{
    windows.reset();
    QApplication::processEvents();
    windows = std::make_unique<ui::Windows>(asker, clipboard, preferences, services(backups));
}

UiRig::~UiRig()
{
    windows.reset();
    QApplication::processEvents();
}

void UiRig::finishJobs()
{
    while (!jobs.empty()) {
        auto job = std::move(jobs.front());
        jobs.pop_front();
        job();
    }
    // The result, then what the window does in the turns after it.
    for (int turn = 0; turn < 3; ++turn)
        QApplication::processEvents();
}

QString UiRig::database(const char* name)
{
    const auto path = dir / name;
    writeFile(path, tinyFile(passwordOnly("right")));
    return QString::fromStdString(path.string());
}

ui::VaultWindow* UiRig::openUnlocked(const QString& path, ui::MainWindow* window)
{
    auto* vault = windows->open(path, window, window ? window->currentVault() : nullptr);
    vault->session().attemptUnlock(kdbx::SecureBytes::fromText("right"));
    finishJobs();
    EXPECT_TRUE(vault->session().isOpen());
    return vault;
}

int undoDepth(state::DatabaseSession& session)
{
    int n = 0;
    while (session.undo())
        ++n;
    for (int i = 0; i < n; ++i)
        session.redo();
    return n;
}

void retype(QWidget* field, const QString& text)
{
    field->setFocus(Qt::TabFocusReason);
    if (auto* line = qobject_cast<QLineEdit*>(field))
        line->selectAll();
    else
        QTest::keyClick(field, Qt::Key_A, Qt::ControlModifier);
    QTest::keyClick(field, Qt::Key_Backspace);
    QTest::keyClicks(field, text);
}

const char* const sampleVaultXml = R"(<?xml version="1.0" encoding="utf-8" standalone="yes"?>
<KeePassFile><Meta><Generator>t</Generator></Meta><Root><Group><UUID>AAAAAAAAAAAAAAAAAAAAAQ==</UUID><Name>Root</Name>
<Entry><UUID>AAAAAAAAAAAAAAAAAAAAAg==</UUID><String><Key>Title</Key><Value>item 10</Value></String>
<String><Key>UserName</Key><Value>Zoe</Value></String><String><Key>Password</Key><Value Protected="True">office</Value></String>
<String><Key>URL</Key><Value> example.com/login </Value></String>
<Times><LastModificationTime>2024-03-01T00:00:00Z</LastModificationTime></Times></Entry>
<Entry><UUID>AAAAAAAAAAAAAAAAAAAAAw==</UUID><String><Key>Title</Key><Value>Item 9</Value></String>
<String><Key>UserName</Key><Value>Adam</Value></String><String><Key>Notes</Key><Value>office key</Value></String>
<String><Key>URL</Key><Value>ftp://example.com</Value></String>
<Times><LastModificationTime>2024-01-01T00:00:00Z</LastModificationTime></Times></Entry>
<Entry><UUID>AAAAAAAAAAAAAAAAAAAABA==</UUID><String><Key>Title</Key><Value>apple</Value></String>
<String><Key>UserName</Key><Value>bob</Value></String>
<Times><LastModificationTime>2024-02-01T00:00:00Z</LastModificationTime></Times></Entry>
<Group><UUID>AAAAAAAAAAAAAAAAAAAABQ==</UUID><Name>Work</Name>
<Entry><UUID>AAAAAAAAAAAAAAAAAAAABg==</UUID><String><Key>Title</Key><Value>W1</Value></String></Entry>
<Group><UUID>AAAAAAAAAAAAAAAAAAAABw==</UUID><Name>Deep</Name>
<Entry><UUID>AAAAAAAAAAAAAAAAAAAACA==</UUID><String><Key>Title</Key><Value>Office deep</Value></String></Entry>
</Group></Group>
<Group><UUID>AAAAAAAAAAAAAAAAAAAACQ==</UUID><Name>Hidden</Name><EnableSearching>false</EnableSearching>
<Entry><UUID>AAAAAAAAAAAAAAAAAAAACg==</UUID><String><Key>Title</Key><Value>Office hidden</Value></String></Entry>
</Group>
</Group></Root></KeePassFile>)";

void adoptSampleVault(state::DatabaseSession& session)
{
    auto file = tinyDatabase();
    setDocument(*file, sampleVaultXml);
    session.adopt(std::nullopt, std::move(file), passwordOnly("pw"), std::nullopt);
}

QStringList tableTitles(const ui::BrowseView& view)
{
    QStringList out;
    const auto* table = view.entryTable()->model();
    for (int r = 0; r < table->rowCount(); ++r)
        out << table->index(r, ui::EntryTableModel::title).data().toString();
    return out;
}

} // namespace quillon::test
