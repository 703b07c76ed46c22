#include <QApplication>

#include "Platform/Platform.h"
#include "Sniffer/Log.h"
#include "Sniffer/Sniffer.h"

int main(int argc, char *argv[])
{
    qInstallMessageHandler(myMessageHandler);
    QApplication app(argc, argv);
    // The menu entry the desktop matches the window with (Wayland included).
    QGuiApplication::setDesktopFileName(QStringLiteral("org.vidorra2.vidorra2"));
    Q_INIT_RESOURCE(vidorra);
    // A termination signal ends the program as closing its window does.
    Platform::quitOnTerminationSignals();

    Sniffer sniffer(nullptr);
    sniffer.start();
    QObject::connect(&app, &QApplication::focusChanged, &sniffer, &Sniffer::focusChanged);
    return app.exec();
}
