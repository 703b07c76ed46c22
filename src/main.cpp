#include <QApplication>

#include "Platform/Log.h"
#include "Sniffer/Sniffer.h"

int main(int argc, char *argv[])
{
    qInstallMessageHandler(myMessageHandler);
    QApplication app(argc, argv);
    // The menu entry the desktop matches the window with (Wayland included).
    QGuiApplication::setDesktopFileName(QStringLiteral("org.vidorra2.vidorra2"));
    Q_INIT_RESOURCE(vidorra);
    return Sniffer::runProgram();
}
