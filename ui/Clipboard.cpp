#include "ui/Clipboard.h"

#include <QClipboard>
#include <QMimeData>
#include <QPointer>
#include <QTimer>

namespace quillon::ui {

Clipboard::Clipboard(QClipboard* board, Scheduler schedule, QObject* parent)
    : QObject(parent), board_(board), schedule_(std::move(schedule))
{
    if (!schedule_)
        schedule_ = [this](std::chrono::milliseconds delay, std::function<void()> job) {
            QTimer::singleShot(delay, this, std::move(job));
        };
    connect(board_, &QClipboard::dataChanged, this, [this] { ++changes_; });
}

void Clipboard::copy(const QString& text, bool secret, std::chrono::milliseconds hold)
{
    auto* data = new QMimeData;
    data->setText(text);
    if (secret)
        data->setData(secretHintType, QByteArrayLiteral("secret"));
    const quint64 before = changes_;
    board_->setMimeData(data);
    // A platform that does not tell us about our own write still moves the count, so no older job matches.
    if (changes_ == before)
        ++changes_;
    memory_ = changes_;
    const quint64 count = memory_;
    QPointer<Clipboard> self(this);
    schedule_(hold, [self, count] {
        if (self)
            self->clearIfUnchangedSince(count);
    });
}

void Clipboard::clearIfUnchangedSince(quint64 count)
{
    if (changes_ != count)
        return;
    board_->clear();
    if (memory_ == count)
        memory_ = 0;
}

void Clipboard::clearIfStillOurs()
{
    if (memory_ == 0)
        return;
    if (changes_ == memory_)
        board_->clear();
    memory_ = 0;
}

} // namespace quillon::ui
