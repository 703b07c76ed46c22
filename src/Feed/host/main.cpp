// vidorra2-sniffer-host: the native messaging host of the browser add-on.
// Reads the add-on's messages from standard input and hands each valid
// report to the running Vidorra 2, starting the program when it does not
// listen. On standard output it only answers the add-on's greeting (the
// browser reads it as a message); what it has to say goes to standard error
// and to the program's log of the day.
#include "Feed/Delivery.h"
#include "Feed/Report.h"
#include "Frames.h"
#include "Platform/Log.h"
#include "Platform/Platform.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>

#include <cstdio>

namespace {

void logMessage(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    std::fprintf(stderr, "%s\n", message.toLocal8Bit().constData());
    Log::append(type, message);
}

} // namespace

int main(int argc, char *argv[])
{
    qInstallMessageHandler(logMessage);
    QCoreApplication app(argc, argv);
    QFile in, out;
    if (!in.open(0, QIODevice::ReadOnly | QIODevice::Unbuffered) ||
        !out.open(1, QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        qWarning() << "src/Feed/host/main" << __LINE__ << "main"
                   << ":"
                   << "no standard input or output"
                   << ":" << in.errorString() << out.errorString();
        return 1;
    }
    Feed::Delivery delivery(Platform::programExecutable(QCoreApplication::applicationDirPath()));
    QByteArray frame;
    for (FrameRead read = readFrame(in, &frame); read != FrameRead::End; read = readFrame(in, &frame)) {
        if (read == FrameRead::Skipped) {
            qWarning() << "src/Feed/host/main" << __LINE__ << "main"
                       << ":"
                       << "message dropped"
                       << ":"
                       << "longer than" << Feed::maxMessageBytes << "bytes";
            continue;
        }
        const Feed::Message message = Feed::readMessage(frame, false);
        if (message.kind == Feed::Message::Hello) {
            // The add-on shows on its button that it reached the program.
            writeFrame(out, QByteArrayLiteral("{\"host\":\"" VIDORRA_VERSION "\"}"));
            if (!message.sitesAllowed)
                qWarning() << "src/Feed/host/main" << __LINE__ << "main"
                           << ":"
                           << "the browser add-on may not read the sites you visit"
                           << ":"
                           << "allow it on all sites in its permissions, then reload the page";
            continue;
        }
        if (message.kind != Feed::Message::MediaReport) {
            qWarning() << "src/Feed/host/main" << __LINE__ << "main"
                       << ":"
                       << "message dropped"
                       << ":" << message.reason;
            continue;
        }
        delivery.add(Feed::reportLine(message.report));
        delivery.flush();
    }
    if (delivery.pending() > 0)
        qWarning() << "src/Feed/host/main" << __LINE__ << "main"
                   << ":"
                   << "reports not delivered"
                   << ":" << delivery.pending();
    return 0;
}
