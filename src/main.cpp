#include <QApplication>

#include "Sniffer/Log.h"
#include "Sniffer/Sniffer.h"

int main(int argc, char *argv[])
{
    qInstallMessageHandler(myMessageHandler);
    QApplication app(argc, argv);
    Q_INIT_RESOURCE(vidorra);

    // Lives until the process ends.
    auto *sniffer = new Sniffer(nullptr);
    sniffer->start();
    QObject::connect(&app, &QApplication::focusChanged, sniffer, &Sniffer::focusChanged);
    return app.exec();
}
