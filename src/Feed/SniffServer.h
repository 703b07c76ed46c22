#pragma once

#include "Feed/LineReader.h"

#include <QHash>
#include <QObject>
#include <QString>

class QLocalSocket;
class QSocketNotifier;

// The program's end of the feed: listens on Feed::socketPath() for the
// native messaging host and vidorra2-sniff, one JSON object per line, and
// turns each valid line into a signal. Reads only when data is there, so it
// never holds up the window. Only the user's own programs are heard, and
// however many connect, it keeps listening.
class SniffServer : public QObject
{
    Q_OBJECT

public:
    explicit SniffServer(QObject *parent = nullptr);
    ~SniffServer() override;

    // Starts listening, for the current user only. A socket file left by a
    // crashed run is replaced; one that a running instance still answers on
    // is not, and the answer is false.
    bool listen();
    QString errorString() const;

    // Past this many open connections the one idle longest is closed.
    static constexpr int maxConnections = 64;

signals:
    void reportReceived(const QString &address, const QString &source, const QString &size, const QString &type);
    void showListRequested();

private:
    struct Connection
    {
        Feed::LineReader reader;
        quint64 used = 0; // when it last sent something, in uses of the server
    };

    bool openListener();
    void closeListener();
    void acceptConnections();
    void listenAgainLater();
    bool dropIdlest();
    void readFrom(QLocalSocket *socket);

    QString path;
    int listener = -1;
    QSocketNotifier *notifier = nullptr;
    QHash<QLocalSocket *, Connection> connections;
    quint64 uses = 0;
    QString error;
};
