// vidorra2-sniff ADDRESS SIZE TYPE [SOURCE]: reports one media address to
// the running Vidorra 2, as the browser add-on does, for scripts and tests.
// Exit status: 0 delivered, 1 refused (not a web address, size not a whole
// number of bytes), 2 wrong arguments, 3 the program does not listen.
#include "Feed/Delivery.h"
#include "Feed/Report.h"
#include "Feed/SocketPath.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace {
int fail(int status, const QString &message)
{
    std::fprintf(stderr, "vidorra2-sniff: %s\n", qUtf8Printable(message));
    return status;
}
} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    if (args.size() < 3 || args.size() > 4)
        return fail(2, QStringLiteral("usage: vidorra2-sniff ADDRESS SIZE TYPE [SOURCE]"));
    const QJsonObject object{{QStringLiteral("url"), args[0]},
                             {QStringLiteral("size"), args[1]},
                             {QStringLiteral("type"), args[2]},
                             {QStringLiteral("source"), args.value(3)}};
    const Feed::Message message = Feed::readMessage(QJsonDocument(object).toJson(), false);
    if (message.kind != Feed::Message::MediaReport)
        return fail(1, QStringLiteral("refused: %1").arg(message.reason));
    Feed::Delivery delivery;
    delivery.add(Feed::reportLine(message.report));
    if (!delivery.flush()) {
        const QString path = Feed::socketPath();
        return fail(3, path.isEmpty() ? QStringLiteral("no folder of this user's alone for Vidorra 2's socket")
                                      : QStringLiteral("Vidorra 2 is not listening on %1").arg(path));
    }
    return 0;
}
