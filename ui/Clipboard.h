// ui/Clipboard.h: copies that clear themselves, unless something else was copied since.
#pragma once

#include <QObject>
#include <QString>

#include <chrono>
#include <functional>

class QClipboard;

namespace quillon::ui {

// X11 and Wayland keep no change count, so one is kept here: every dataChanged of the system clipboard bumps
// it, whoever wrote. A copy records the count right after its own write; clearing happens only while the count
// still equals it, so the user's later copy in another program is never wiped.
class Clipboard : public QObject {
    Q_OBJECT

public:
    // Runs a job once after a delay; the default is a single-shot timer on the main thread.
    using Scheduler = std::function<void(std::chrono::milliseconds, std::function<void()>)>;
    static constexpr std::chrono::seconds clearAfter{15};

    explicit Clipboard(QClipboard* board, Scheduler schedule = {}, QObject* parent = nullptr);

    // Writes plain text; a secret is also marked for clipboard managers not to record it. Clears after
    // `hold` if nothing was copied since (a one-time code is held only while it is valid).
    void copy(const QString& text, bool secret, std::chrono::milliseconds hold = clearAfter);
    // At lock and at quit: clears now if the clipboard still holds this application's last copy.
    void clearIfStillOurs();

    quint64 changeCount() const noexcept { return changes_; }
    // The count right after the application's last copy; 0 when none is remembered.
    quint64 memory() const noexcept { return memory_; }

private:
    void clearIfUnchangedSince(quint64 count);

    QClipboard* board_;
    Scheduler schedule_;
    quint64 changes_ = 0;
    quint64 memory_ = 0;
};

// The MIME type and value KDE's and other Linux clipboard managers read as "do not keep".
inline const QString secretHintType = QStringLiteral("x-kde-passwordManagerHint");

} // namespace quillon::ui
