#pragma once

#include <QByteArray>
#include <QList>
#include <QLocalSocket>
#include <QString>

namespace Feed {

// The helpers' end of the feed (native messaging host, vidorra2-sniff):
// hands lines to the running program over its socket. It waits on the
// socket, so it is for those small programs, never for the window.
class Delivery
{
public:
    // `program` is started when nobody listens; empty: never start anything.
    explicit Delivery(const QString &program = QString());
    ~Delivery();

    // Queues one line; past maxPending the line is dropped.
    void add(const QByteArray &line);
    // Sends what is queued, connecting first (and starting the program when
    // allowed). True when nothing is left in the queue.
    bool flush();
    int pending() const
    {
        return queue.size();
    }

    static constexpr int maxPending = 3000;

private:
    bool connected();
    bool connectToProgram();
    bool tryConnect(int timeoutMs);
    bool startProgram();

    QString program;
    QLocalSocket socket;
    QList<QByteArray> queue;
    bool startedDeaf = false; // a program that never listened is not started again
    int droppedLines = 0;
};

} // namespace Feed
