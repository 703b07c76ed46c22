#include "Feed/SniffServer.h"

#include "Feed/Report.h"
#include "Feed/SocketPath.h"

#include <QDebug>
#include <QDir>
#include <QFileInfo>
#include <QLocalSocket>

SniffServer::SniffServer(QObject *parent)
    : QObject(parent)
{
    connect(&server, &QLocalServer::newConnection, this, &SniffServer::acceptConnections);
}

SniffServer::~SniffServer()
{
    // The connections go with the server; they must not call back into
    // this half-destroyed object when they close.
    for (QLocalSocket *socket : readers.keys())
        socket->disconnect(this);
}

bool SniffServer::listen()
{
    if (server.isListening())
        return true;
    const QString path = Feed::socketPath();
    QDir().mkpath(QFileInfo(path).path());
    // Listening replaces the socket file, so ask first whether someone
    // still answers on it. A local connection is accepted or refused at
    // once, however busy the other side is: this does not wait.
    QLocalSocket probe;
    probe.connectToServer(path);
    if (probe.waitForConnected(1000)) {
        error = QStringLiteral("another running Vidorra 2 listens on %1").arg(path);
        qWarning() << "src/Feed/SniffServer" << __LINE__ << "listen"
                   << ":"
                   << "not listening"
                   << ":" << error;
        return false;
    }
    QLocalServer::removeServer(path);
    server.setSocketOptions(QLocalServer::UserAccessOption);
    if (!server.listen(path)) {
        error = server.errorString();
        qWarning() << "src/Feed/SniffServer" << __LINE__ << "listen"
                   << ":"
                   << "not listening"
                   << ":" << path << error;
        return false;
    }
    return true;
}

QString SniffServer::errorString() const
{
    return error;
}

void SniffServer::acceptConnections()
{
    while (QLocalSocket *socket = server.nextPendingConnection()) {
        readers.insert(socket, Feed::LineReader());
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { readFrom(socket); });
        connect(socket, &QLocalSocket::disconnected, this, [this, socket] {
            readers.remove(socket);
            socket->deleteLater();
        });
    }
}

void SniffServer::readFrom(QLocalSocket *socket)
{
    auto reader = readers.find(socket);
    if (reader == readers.end())
        return;
    const int droppedBefore = reader->dropped();
    const QList<QByteArray> lines = reader->add(socket->readAll());
    if (reader->dropped() != droppedBefore)
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
