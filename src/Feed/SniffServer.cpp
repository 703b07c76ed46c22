#include "Feed/SniffServer.h"

#include "Feed/Report.h"
#include "Feed/SocketPath.h"
#include "Platform/PrivateFiles.h"

#include <QDebug>
#include <QFile>
#include <QLocalSocket>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {
constexpr int listenAgainMs = 1000;

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}
} // namespace

SniffServer::SniffServer(QObject *parent)
    : QObject(parent)
{
}

SniffServer::~SniffServer()
{
    // The connections go with the server; they must not call back into
    // this half-destroyed object when they close.
    for (QLocalSocket *socket : connections.keys())
        socket->disconnect(this);
    closeListener();
    if (!path.isEmpty())
        ::unlink(QFile::encodeName(path).constData());
}

bool SniffServer::listen()
{
    if (listener >= 0)
        return true;
    const QString socketPath = Feed::socketPath();
    // Listening replaces the socket file, so ask first whether someone
    // still answers on it. A local connection is accepted or refused at
    // once, however busy the other side is: this does not wait.
    QLocalSocket probe;
    if (!socketPath.isEmpty())
        probe.connectToServer(socketPath);
    if (socketPath.isEmpty()) {
        error = QStringLiteral("no folder of this user's alone for the socket");
    } else if (probe.waitForConnected(1000)) {
        error = QStringLiteral("another running Vidorra 2 listens on %1").arg(socketPath);
    } else {
        path = socketPath;
        if (openListener())
            return true;
        path.clear();
    }
    qWarning() << "src/Feed/SniffServer" << __LINE__ << "listen"
               << ":"
               << "not listening"
               << ":" << socketPath << error;
    return false;
}

QString SniffServer::errorString() const
{
    return error;
}

bool SniffServer::openListener()
{
    const QByteArray name = QFile::encodeName(path);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name.constData(), qMin(size_t(name.size()), sizeof address.sun_path - 1));
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    if (socket < 0) {
        error = systemError();
        return false;
    }
    ::fcntl(socket, F_SETFD, FD_CLOEXEC);
    ::fcntl(socket, F_SETFL, O_NONBLOCK);
    ::unlink(name.constData());
    if (::bind(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        ::chmod(name.constData(), 0600) != 0 || ::listen(socket, SOMAXCONN) != 0) {
        error = systemError();
        ::close(socket);
        return false;
    }
    listener = socket;
    notifier = new QSocketNotifier(listener, QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, &SniffServer::acceptConnections);
    return true;
}

void SniffServer::closeListener()
{
    if (listener < 0)
        return;
    notifier->setEnabled(false);
    notifier->deleteLater(); // it may be the one calling
    notifier = nullptr;
    ::close(listener);
    listener = -1;
}

void SniffServer::listenAgainLater()
{
    closeListener();
    QTimer::singleShot(listenAgainMs, this, [this] {
        if (!path.isEmpty() && listener < 0 && !openListener())
            listenAgainLater();
    });
}

void SniffServer::acceptConnections()
{
    while (listener >= 0) {
        const int socket = ::accept(listener, nullptr, nullptr);
        if (socket < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK)
                return;
            // Out of descriptors: the connection idle longest makes room.
            const bool full = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
            if (full && dropIdlest())
                continue;
            qWarning() << "src/Feed/SniffServer" << __LINE__ << "acceptConnections"
                       << ":"
                       << "listening again soon"
                       << ":" << systemError();
            listenAgainLater();
            return;
        }
        ::fcntl(socket, F_SETFD, FD_CLOEXEC);
        if (!Platform::peerIsThisUser(socket)) {
            qWarning() << "src/Feed/SniffServer" << __LINE__ << "acceptConnections"
                       << ":"
                       << "connection refused"
                       << ":"
                       << "another user";
            ::close(socket);
            continue;
        }
        if (connections.size() >= maxConnections)
            dropIdlest();
        auto *connection = new QLocalSocket(this);
        if (!connection->setSocketDescriptor(socket)) {
            ::close(socket);
            delete connection;
            continue;
        }
        connections.insert(connection, Connection{Feed::LineReader(), ++uses});
        connect(connection, &QLocalSocket::readyRead, this, [this, connection] { readFrom(connection); });
        connect(connection, &QLocalSocket::disconnected, this, [this, connection] {
            connections.remove(connection);
            connection->deleteLater();
        });
    }
}

bool SniffServer::dropIdlest()
{
    if (connections.isEmpty())
        return false;
    auto idlest = connections.begin();
    for (auto it = connections.begin(); it != connections.end(); ++it)
        if (it->used < idlest->used)
            idlest = it;
    QLocalSocket *socket = idlest.key();
    connections.erase(idlest);
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
    return true;
}

void SniffServer::readFrom(QLocalSocket *socket)
{
    auto connection = connections.find(socket);
    if (connection == connections.end())
        return;
    connection->used = ++uses;
    Feed::LineReader &reader = connection->reader;
    const int droppedBefore = reader.dropped();
    const QList<QByteArray> lines = reader.add(socket->readAll());
    if (reader.dropped() != droppedBefore)
        qWarning() << "src/Feed/SniffServer" << __LINE__ << "readFrom"
                   << ":"
                   << "line dropped"
                   << ":"
                   << "longer than" << Feed::maxMessageBytes << "bytes";
    for (const QByteArray &line : lines) {
        const Feed::Message message = Feed::readMessage(line, true);
        if (message.kind == Feed::Message::ShowList) {
            emit showListRequested();
        } else if (message.kind == Feed::Message::MediaReport) {
            const Feed::Report &report = message.report;
            emit reportReceived(report.address, report.source, report.size, report.type);
        } else {
            qWarning() << "src/Feed/SniffServer" << __LINE__ << "readFrom"
                       << ":"
                       << "line dropped"
                       << ":" << message.reason;
        }
    }
}
