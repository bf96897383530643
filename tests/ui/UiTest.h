// tests/ui/UiTest.h: an application on the offscreen platform, answered questions, and decoding held until asked.
#pragma once

#include "files/Backups.h"
#include "state/DatabaseSession.h"
#include "state/Preferences.h"
#include "tests/support/TempDir.h"
#include "ui/Asker.h"
#include "ui/Clipboard.h"
#include "ui/MainWindow.h"
#include "ui/VaultWindow.h"
#include "ui/Windows.h"

#include <QApplication>
#include <QStringList>

#include <deque>
#include <functional>
#include <memory>
#include <ostream>

QT_BEGIN_NAMESPACE
inline void PrintTo(const QString& text, std::ostream* out) { *out << '"' << text.toStdString() << '"'; }
QT_END_NAMESPACE

namespace quillon::ui {
class BrowseView;
}

namespace quillon::test {

QApplication& uiApplication();

inline std::filesystem::path pathOf(const QString& path) { return std::filesystem::path(path.toStdString()); }

// Records every alert and question, and answers each with the next queued answer of its kind.
class AnsweringAsker final : public ui::Asker {
public:
    void warn(QWidget*, const QString& message, const QString& note) override
    {
        warnings << message;
        notes << note;
    }
    // With no answer queued, the default button: "No".
    bool confirm(QWidget*, const QString& question, const QString& note) override
    {
        questions << question;
        notes << note;
        return !confirmations.empty() && confirmations.takeFirst();
    }
    // With no answer queued, "Cancel", so that nothing is lost.
    ui::SaveAnswer askToSave(QWidget*, const QString& message, const QString& note) override
    {
        questions << message;
        notes << note;
        return saveAnswers.empty() ? ui::SaveAnswer::cancel : saveAnswers.takeFirst();
    }
    std::optional<QString> chooseFile(QWidget*, const QString& message, const QString&) override
    {
        asked << message;
        if (answers.isEmpty())
            return std::nullopt;
        const QString answer = answers.takeFirst();
        return answer.isEmpty() ? std::nullopt : std::optional(answer);
    }
    std::optional<QString> chooseSaveFile(QWidget* parent, const QString& message, const QString& suggested,
                                          const QString& filter) override
    {
        suggestions << suggested;
        return chooseFile(parent, message, filter);
    }
    QStringList warnings;
    QStringList questions;
    QStringList notes;
    QStringList asked;
    QStringList suggestions;
    // An empty answer cancels.
    QStringList answers;
    QList<bool> confirmations;
    QList<ui::SaveAnswer> saveAnswers;
};

// A window manager over a private settings file, a held background queue and a clock the test moves.
struct UiRig {
    UiRig();
    ~UiRig();
    // What the rig's sessions use: its queue, its clock, no duress password, and the backups if given.
    state::SessionServices services(const files::Backups* backups = nullptr);
    // The windows made again over the same settings file, as the next launch makes them.
    void relaunch(const files::Backups* backups = nullptr);
    // Runs the decoding handed to the background and delivers the results.
    void finishJobs();
    // A tiny database (Argon2 at 64 KiB) with the password "right", in the rig's folder.
    QString database(const char* name);
    // The database at `path` opened and unlocked with "right", in the front window's tab when one is given.
    ui::VaultWindow* openUnlocked(const QString& path, ui::MainWindow* window = nullptr);

    TempDir dir;
    state::Preferences preferences;
    AnsweringAsker asker;
    std::deque<std::function<void()>> clipboardJobs;
    ui::Clipboard clipboard;
    std::deque<std::function<void()>> jobs;
    kdbx::SystemTime now{std::chrono::seconds(1'700'000'000)};
    std::unique_ptr<ui::Windows> windows;
};

// How many commands the session can undo; it is left as it was.
int undoDepth(state::DatabaseSession& session);
// Selects the field's text and types over it, as the user does.
void retype(QWidget* field, const QString& text);

// Root holds "item 10" (Zoe, password office, a bare address), "Item 9" (notes "office key", an ftp address) and
// "apple"; the group Work with W1 and the subgroup Deep holding "Office deep"; and Hidden, which is not searched.
extern const char* const sampleVaultXml;
// The sample vault, open in the session with the password "pw".
void adoptSampleVault(state::DatabaseSession& session);
// The titles of the entry table as the user sees it, through the sort.
QStringList tableTitles(const ui::BrowseView& view);

} // namespace quillon::test
