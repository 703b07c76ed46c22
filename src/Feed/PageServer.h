#pragma once

#include <QObject>
#include <QString>
#include <QTcpServer>
#include <QTimer>

class QTcpSocket;

// The self-test's page server: the files of one folder, over plain http on
// 127.0.0.1 at a free port, for this computer's browser. It answers GET and
// HEAD of a file right in the folder, whole (200); anything else gets an
// error status. It stops by itself after ten minutes without a request.
class PageServer : public QObject
{
    Q_OBJECT

public:
    explicit PageServer(QObject *parent = nullptr);

    // Serves `folder` (stopping what was served before); false, with
    // errorString(), when no port can be had.
    bool serve(const QString &folder);
    void stop();
    bool isServing() const
    {
        return server.isListening();
    }
    // "http://127.0.0.1:<port>/" + `file`.
    QString address(const QString &file) const;
    QString errorString() const
    {
        return server.errorString();
    }

    // A request head longer than this is refused.
    static constexpr int maxRequestBytes = 8192;

private:
    void read(QTcpSocket *socket);
    QByteArray answer(const QByteArray &head) const;

    QTcpServer server;
    QString folder;
    QTimer quiet;
};
