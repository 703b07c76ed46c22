#include "Feed/Delivery.h"

#include "Feed/Report.h"
#include "Feed/SocketPath.h"
#include "Platform/PrivateFiles.h"

#include <QDebug>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QThread>

namespace Feed {

namespace {
constexpr int startTimeoutMs = 20000;
constexpr int writeTimeoutMs = 5000;
} // namespace

Delivery::Delivery(const QString &program)
    : program(program)
{
}

Delivery::~Delivery()
{
    if (socket.state() == QLocalSocket::ConnectedState) {
        socket.disconnectFromServer();
        if (socket.state() != QLocalSocket::UnconnectedState)
            socket.waitForDisconnected(writeTimeoutMs);
    }
}

void Delivery::add(const QByteArray &line)
{
    if (queue.size() < maxPending) {
        queue << line;
        return;
    }
    if (droppedLines++ == 0)
        qWarning() << "src/Feed/Delivery" << __LINE__ << "add"
                   << ":"
                   << "queue full, reports dropped"
                   << ":" << maxPending << "waiting";
}

bool Delivery::flush()
{
    if (queue.isEmpty())
        return true;
    if (!connected() && !connectToProgram())
        return false;
    while (!queue.isEmpty()) {
        socket.write(queue.first());
        while (socket.bytesToWrite() > 0 && socket.waitForBytesWritten(writeTimeoutMs)) {
        }
        if (socket.bytesToWrite() > 0 || socket.state() != QLocalSocket::ConnectedState) {
            qWarning() << "src/Feed/Delivery" << __LINE__ << "flush"
                       << ":"
                       << "program went away"
                       << ":" << socket.errorString();
            socket.abort();
            return false;
        }
        queue.removeFirst();
    }
    droppedLines = 0;
    return true;
}

bool Delivery::connected()
{
    if (socket.state() != QLocalSocket::ConnectedState)
        return false;
    // The program never writes: anything readable is its end closing.
    socket.waitForReadyRead(0);
    socket.readAll();
    return socket.state() == QLocalSocket::ConnectedState;
}

bool Delivery::tryConnect(int timeoutMs)
{
    socket.abort();
    const QString path = socketPath();
    if (path.isEmpty())
        return false;
    socket.connectToServer(path);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    if (Platform::peerIsThisUser(socket.socketDescriptor()))
        return true;
    // Another user's program would read every address the browser plays.
    qWarning() << "src/Feed/Delivery" << __LINE__ << "tryConnect"
               << ":"
               << "refused"
               << ":"
               << "another user listens on" << path;
    socket.abort();
    return false;
}

bool Delivery::connectToProgram()
{
    if (tryConnect(2000))
        return true;
    if (program.isEmpty() || startedDeaf || !startProgram())
        return false;
    QElapsedTimer started;
    started.start();
    while (started.elapsed() < startTimeoutMs) {
        if (tryConnect(1000)) {
            // Started by us: the list opens before its first report comes.
            queue.prepend(showListLine());
            return true;
        }
        QThread::msleep(200);
    }
    qWarning() << "src/Feed/Delivery" << __LINE__ << "connectToProgram"
               << ":"
               << "program does not listen"
               << ":" << program << socketPath();
    startedDeaf = true;
    return false;
}

bool Delivery::startProgram()
{
    QProcess process;
    process.setProgram(program);
    process.setWorkingDirectory(QFileInfo(program).path());
    // The program must not share the browser's pipes.
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    if (process.startDetached())
        return true;
    qWarning() << "src/Feed/Delivery" << __LINE__ << "startProgram"
               << ":"
               << "cannot start"
               << ":" << program;
    return false;
}

} // namespace Feed
