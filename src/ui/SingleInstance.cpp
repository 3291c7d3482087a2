#include "ui/SingleInstance.h"

#include <QDir>
#include <QLocalServer>
#include <QLocalSocket>
#include <QStandardPaths>

#include <unistd.h>

namespace pw::ui {
namespace {
constexpr char kShowRequest[] = "show\n";
}

SingleInstance::SingleInstance(QString name, QObject* parent)
    : QObject(parent), name_(std::move(name)) {}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultName() {
    // The runtime folder is per user and per session; without one, the user id keeps
    // two users on one machine apart.
    const QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (!runtime.isEmpty()) return QDir(runtime).filePath(QStringLiteral("panelwright.socket"));
    return QStringLiteral("panelwright-%1").arg(::getuid());
}

bool SingleInstance::notifyRunningInstance(int timeoutMs) {
    QLocalSocket socket;
    socket.connectToServer(name_);
    if (!socket.waitForConnected(timeoutMs)) return false;
    socket.write(kShowRequest);
    if (!socket.waitForBytesWritten(timeoutMs)) return false;
    // The running instance answers once it has taken the request.
    socket.waitForReadyRead(timeoutMs);
    socket.disconnectFromServer();
    return true;
}

bool SingleInstance::listen(QString* error) {
    server_ = new QLocalServer(this);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_->listen(name_)) {
        // Nobody answered before we got here, so a socket file left by a crash is stale.
        QLocalServer::removeServer(name_);
        if (!server_->listen(name_)) {
            if (error) *error = server_->errorString();
            return false;
        }
    }
    connect(server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* peer = server_->nextPendingConnection()) {
            connect(peer, &QLocalSocket::disconnected, peer, &QObject::deleteLater);
            connect(peer, &QLocalSocket::readyRead, this, [this, peer] {
                if (!peer->readAll().contains("show")) return;
                peer->write("ok\n");
                peer->flush();
                emit activationRequested();
            });
        }
    });
    return true;
}

} // namespace pw::ui
