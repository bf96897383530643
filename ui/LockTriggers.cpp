#include "ui/LockTriggers.h"

#include <QCoreApplication>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusMessage>
#include <QEvent>

#include <unistd.h>

namespace quillon::ui {

LockTriggers::LockTriggers(Targets targets, QObject* parent) : QObject(parent), targets_(std::move(targets))
{
    timer_.setInterval(1000);
    connect(&timer_, &QTimer::timeout, this, &LockTriggers::tick);
}

void LockTriggers::tick()
{
    if (targets_.tick)
        targets_.tick();
}

void LockTriggers::watchApplication()
{
    QCoreApplication::instance()->installEventFilter(this);
    timer_.start();
}

bool LockTriggers::eventFilter(QObject* watched, QEvent* event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::KeyPress:
    case QEvent::Wheel:
        // One input reaches several objects on its way; each is the same activity, and cheap to note.
        if (targets_.activity)
            targets_.activity();
        break;
    default:
        break;
    }
    return QObject::eventFilter(watched, event);
}

void LockTriggers::listenOn(const QDBusConnection& sessionBus, const QDBusConnection& systemBus)
{
    if (sessionBus.isConnected()) {
        // Any path: KDE's screen saver answers on /ScreenSaver as well as on the freedesktop path.
        for (const char* interface : {"org.freedesktop.ScreenSaver", "org.gnome.ScreenSaver"})
            QDBusConnection(sessionBus)
                .connect(QString(), QString(), QString::fromLatin1(interface), QStringLiteral("ActiveChanged"), this,
                         SLOT(screenSaverActiveChanged(bool)));
    }
    if (!systemBus.isConnected())
        return;
    QDBusConnection system(systemBus);
    const QString login1 = QStringLiteral("org.freedesktop.login1");
    system.connect(login1, QStringLiteral("/org/freedesktop/login1"), QStringLiteral("org.freedesktop.login1.Manager"),
                   QStringLiteral("PrepareForSleep"), this, SLOT(prepareForSleep(bool)));
    // The session's own Lock signal, on the object of the session this process belongs to.
    auto call = QDBusMessage::createMethodCall(login1, QStringLiteral("/org/freedesktop/login1"),
                                               QStringLiteral("org.freedesktop.login1.Manager"),
                                               QStringLiteral("GetSessionByPID"));
    call << static_cast<quint32>(::getpid());
    auto* watcher = new QDBusPendingCallWatcher(system.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, system, login1](QDBusPendingCallWatcher* w) {
        QDBusPendingReply<QDBusObjectPath> reply = *w;
        w->deleteLater();
        if (reply.isError())
            return;
        QDBusConnection(system).connect(login1, reply.value().path(), QStringLiteral("org.freedesktop.login1.Session"),
                                        QStringLiteral("Lock"), this, SLOT(sessionLocked()));
    });
}

void LockTriggers::screenSaverActiveChanged(bool active)
{
    if (active && targets_.lockAll)
        targets_.lockAll();
}

void LockTriggers::prepareForSleep(bool sleeping)
{
    if (sleeping && targets_.lockAll)
        targets_.lockAll();
}

void LockTriggers::sessionLocked()
{
    if (targets_.lockAll)
        targets_.lockAll();
}

} // namespace quillon::ui
