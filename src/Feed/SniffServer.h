#pragma once

#include "Feed/LineReader.h"

#include <QHash>
#include <QLocalServer>
#include <QObject>
#include <QString>

class QLocalSocket;

// The program's end of the feed: listens on Feed::socketPath() for the
// native messaging host and vidorra2-sniff, one JSON object per line, and
// turns each valid line into a signal. Reads only when data is there, so it
// never holds up the window.
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

signals:
    void reportReceived(const QString &address, const QString &source, const QString &size, const QString &type);
    void showListRequested();

private:
    void acceptConnections();
    void readFrom(QLocalSocket *socket);

    QLocalServer server;
    QHash<QLocalSocket *, Feed::LineReader> readers;
    QString error;
};
