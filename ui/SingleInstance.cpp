#include "ui/SingleInstance.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>

#include <unistd.h>

namespace quillon::ui {

QString SingleInstance::defaultName()
{
    return QStringLiteral("quillon-%1").arg(::getuid());
}

SingleInstance::SingleInstance(QString name, QObject* parent) : QObject(parent), name_(std::move(name)) {}

SingleInstance::~SingleInstance() = default;

bool SingleInstance::handOver(const QStringList& paths, int timeoutMs) const
{
    QLocalSocket socket;
    socket.connectToServer(name_);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    QByteArray message = QJsonDocument(QJsonArray::fromStringList(paths)).toJson(QJsonDocument::Compact);
    message.append('\n');
    socket.write(message);
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    while (!socket.canReadLine())
        if (!socket.waitForReadyRead(timeoutMs))
            return false;
    return socket.readLine().trimmed() == "ok";
}

bool SingleInstance::listen()
{
    server_ = new QLocalServer(this);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_->listen(name_)) {
        // Nobody answered a moment ago, so the socket is a crashed run's.
        QLocalServer::removeServer(name_);
        if (!server_->listen(name_))
            return false;
    }
    connect(server_, &QLocalServer::newConnection, this, &SingleInstance::accept);
    return true;
}

void SingleInstance::accept()
{
    while (QLocalSocket* socket = server_->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (socket->bytesAvailable() > maxMessage) {
                socket->abort();
                return;
            }
            if (!socket->canReadLine())
                return;
            const QJsonDocument document = QJsonDocument::fromJson(socket->readLine(maxMessage));
            QStringList paths;
            if (document.isArray())
                for (const auto& value : document.array())
                    if (value.isString())
                        paths << value.toString();
            socket->write("ok\n");
            socket->flush();
            socket->disconnectFromServer();
            if (document.isArray())
                Q_EMIT filesArrived(paths);
        });
    }
}

} // namespace quillon::ui
