// ui/LockTriggers.h: what locks every window: idleness, the machine going to sleep, the screen locking.
#pragma once

#include <QDBusConnection>
#include <QObject>
#include <QTimer>

#include <functional>

namespace quillon::ui {

class LockTriggers : public QObject {
    Q_OBJECT

public:
    struct Targets {
        std::function<void()> activity; // the user touched the application
        std::function<void()> tick;     // once a second: the idle check
        std::function<void()> lockAll;  // sleep or screen lock
    };

    explicit LockTriggers(Targets targets, QObject* parent = nullptr);

    // Watches input to every window of the application and starts the one-second timer.
    void watchApplication();
    // Listens for the screen saver and the session's lock on this session bus, and for sleep on the system
    // bus. A bus that is not connected is passed over without a word.
    void listenOn(const QDBusConnection& sessionBus, const QDBusConnection& systemBus);

    // What the timer runs each second.
    void tick();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private Q_SLOTS:
    void screenSaverActiveChanged(bool active);
    void prepareForSleep(bool sleeping);
    void sessionLocked();

private:
    Targets targets_;
    QTimer timer_;
};

} // namespace quillon::ui
