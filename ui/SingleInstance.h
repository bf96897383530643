// ui/SingleInstance.h: one running Quillon per user; a later start hands its files to it and leaves.
#pragma once

#include <QObject>
#include <QStringList>

class QLocalServer;

namespace quillon::ui {

// A local socket that only the same user can connect to. The message is the files' absolute paths as a JSON
// array, one line; the running instance answers "ok" once it has taken them.
class SingleInstance : public QObject {
    Q_OBJECT

public:
    // The per-user name: the socket lives in the temporary folder under it.
    static QString defaultName();

    explicit SingleInstance(QString name = defaultName(), QObject* parent = nullptr);
    ~SingleInstance() override;

    // True when a running instance took the files (an empty list just brings it forward).
    bool handOver(const QStringList& paths, int timeoutMs = 3000) const;
    // Becomes the instance later starts hand over to; a socket left by a crashed run is replaced.
    bool listen();

    static constexpr qint64 maxMessage = 1 << 20;

Q_SIGNALS:
    void filesArrived(const QStringList& paths);

private:
    void accept();

    QString name_;
    QLocalServer* server_ = nullptr;
};

} // namespace quillon::ui
