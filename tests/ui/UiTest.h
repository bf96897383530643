// tests/ui/UiTest.h: an application on the offscreen platform, answered questions, and decoding held until asked.
#pragma once

#include "state/DatabaseSession.h"
#include "state/Preferences.h"
#include "tests/support/TempDir.h"
#include "ui/Asker.h"
#include "ui/Clipboard.h"
#include "ui/Windows.h"

#include <QApplication>
#include <QStringList>

#include <deque>
#include <functional>
#include <memory>

namespace quillon::test {

QApplication& uiApplication();

// Records every alert and answers every chooser with the next queued answer.
class AnsweringAsker final : public ui::Asker {
public:
    void warn(QWidget*, const QString& message) override { warnings << message; }
    std::optional<QString> chooseFile(QWidget*, const QString& message, const QString&) override
    {
        asked << message;
        if (answers.isEmpty())
            return std::nullopt;
        const QString answer = answers.takeFirst();
        return answer.isEmpty() ? std::nullopt : std::optional(answer);
    }
    QStringList warnings;
    QStringList asked;
    // An empty answer cancels.
    QStringList answers;
};

// A window manager over a private settings file, a held background queue and a clock the test moves.
struct UiRig {
    UiRig();
    ~UiRig();
    // Runs the decoding handed to the background and delivers the results.
    void finishJobs();
    // A tiny database (Argon2 at 64 KiB) with the password "right", in the rig's folder.
    QString database(const char* name);

    TempDir dir;
    state::Preferences preferences;
    AnsweringAsker asker;
    std::deque<std::function<void()>> clipboardJobs;
    ui::Clipboard clipboard;
    std::deque<std::function<void()>> jobs;
    kdbx::SystemTime now{std::chrono::seconds(1'700'000'000)};
    std::unique_ptr<ui::Windows> windows;
};

} // namespace quillon::test
