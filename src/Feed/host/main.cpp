// vidorra2-sniffer-host: the native messaging host of the browser add-on.
// Reads the add-on's messages from standard input and hands each valid
// report to the running Vidorra 2, starting the program when it does not
// listen. Writes nothing to standard output (that would be read as a
// message); what it has to say goes to standard error.
#include "Feed/Delivery.h"
#include "Feed/Report.h"
#include "Frames.h"
#include "Platform/Platform.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QFile in;
    if (!in.open(0, QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        qWarning() << "src/Feed/host/main" << __LINE__ << "main"
                   << ":"
                   << "no standard input"
                   << ":" << in.errorString();
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
