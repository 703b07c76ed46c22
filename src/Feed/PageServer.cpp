#include "Feed/PageServer.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QUrl>

namespace {

QByteArray status(int code, const QByteArray &text, const QByteArray &type, qint64 length)
{
    return "HTTP/1.1 " + QByteArray::number(code) + ' ' + text + "\r\nContent-Type: " + type +
           "\r\nContent-Length: " + QByteArray::number(length) +
           "\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n";
}

QByteArray failure(int code, const QByteArray &text)
{
    return status(code, text, "text/plain; charset=utf-8", text.size() + 1) + text + '\n';
}

QByteArray mediaType(const QString &name)
{
    if (name.endsWith(QLatin1String(".html")))
        return "text/html; charset=utf-8";
    if (name.endsWith(QLatin1String(".webm")))
        return "video/webm";
    return "application/octet-stream";
}

} // namespace

PageServer::PageServer(QObject *parent)
    : QObject(parent)
{
    // Ten quiet minutes end the serving, should the list never be shown again.
    quiet.setInterval(10 * 60 * 1000);
    quiet.setSingleShot(true);
    connect(&quiet, &QTimer::timeout, this, &PageServer::stop);
    connect(&server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket *socket = server.nextPendingConnection()) {
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { read(socket); });
        }
    });
}

bool PageServer::serve(const QString &folder)
{
    stop();
    this->folder = folder;
    quiet.start();
    return server.listen(QHostAddress::LocalHost, 0);
}

void PageServer::stop()
{
    server.close();
    quiet.stop();
}

QString PageServer::address(const QString &file) const
{
    return QStringLiteral("http://127.0.0.1:%1/").arg(server.serverPort()) + file;
}

void PageServer::read(QTcpSocket *socket)
{
    quiet.start();
    // One request per connection: its head, whatever comes after it.
    if (socket->property("answered").toBool()) {
        socket->readAll();
        return;
    }
    const QByteArray head = socket->peek(maxRequestBytes + 1);
    const int end = head.indexOf("\r\n\r\n");
    if (end < 0 && head.size() <= maxRequestBytes)
        return;
    socket->setProperty("answered", true);
    socket->write(end < 0 ? failure(431, "Request Header Fields Too Large") : answer(head.left(end)));
    socket->disconnectFromHost();
}

QByteArray PageServer::answer(const QByteArray &head) const
{
    static const QRegularExpression request(QStringLiteral("^(GET|HEAD) /([^ ?#]*)(?:[?#][^ ]*)? HTTP/1\\.[01]$"));
    const QRegularExpressionMatch match = request.match(QString::fromLatin1(head).section(QLatin1String("\r\n"), 0, 0));
    if (!match.hasMatch())
        return failure(400, "Bad Request");
    // A name right in the folder: no other folder, no hidden file.
    const QString name = QUrl::fromPercentEncoding(match.captured(2).toLatin1());
    static const QRegularExpression plainName(QStringLiteral("^[A-Za-z0-9_-][A-Za-z0-9._-]*$"));
    QFile file(QDir(folder).filePath(name));
    if (!plainName.match(name).hasMatch() || !QFileInfo(file).isFile() || !file.open(QIODevice::ReadOnly))
        return failure(404, "Not Found");
    const QByteArray body = file.readAll();
    return status(200, "OK", mediaType(name), body.size()) +
           (match.captured(1) == QLatin1String("GET") ? body : QByteArray());
}
