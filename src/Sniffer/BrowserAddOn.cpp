#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QMessageBox>

#include "Feed/HostManifests.h"
#include "Feed/SniffServer.h"
#include "Sniffer/Sniffer.h"
#include "Sniffer/SnifferQueue.h"
#include "Sniffer/WindowRules.h"

namespace {
// The add-on lies beside the program, as its help page does.
QString addOnFolder()
{
    return QDir::toNativeSeparators(QCoreApplication::applicationDirPath() + QStringLiteral("/extension"));
}
} // namespace

void Sniffer::initSniffedFeed()
{
    sniffServer = new SniffServer(this);
    connect(sniffServer, &SniffServer::reportReceived, this,
            [this](const QString &address, const QString &source, const QString &size, const QString &type) {
                VideoSnifferCallback(address.toStdString(), source.toStdString(), size.toStdString(),
                                     type.toStdString());
                wakeUrlQueue();
            });
    // The add-on started the program for a video: the list comes first,
    // unless the window is busy with something else.
    connect(sniffServer, &SniffServer::showListRequested, this, [this] {
        const appLayer current = layerHistory.isEmpty() ? LayerMain : layerHistory.last();
        if (current == LayerMain || current == LayerUpdate)
            runOldSniffer();
        raise();
        activateWindow();
    });
    if (!sniffServer->listen())
        qWarning() << "src/Sniffer/BrowserAddOn" << __LINE__ << "initSniffedFeed"
                   << ":"
                   << "no reports from the browser"
                   << ":" << sniffServer->errorString();
}

void Sniffer::connectBrowserAddOn()
{
    QString error;
    const QStringList written = Feed::installHostManifests(Feed::hostExecutable(), &error);
    qDebug() << "src/Sniffer/BrowserAddOn" << __LINE__ << "connectBrowserAddOn"
             << ":"
             << "host manifests" << written << error;
    if (!error.isEmpty()) {
        appSettings.errorDetails = QStringList{QStringLiteral("src/Sniffer/BrowserAddOn"), QString::number(__LINE__),
                                               QStringLiteral("connectBrowserAddOn"), error};
        appSettings.errorDetails << written;
        showErrorMessage(10, FlagError);
        return;
    }
    const WindowRules::MessageRow row = WindowRules::splitMessageRow(tableText(QStringLiteral("warning_messages"), 3));
    const QString title = tableText(QStringLiteral("error_titles"), row.titleNumber);
    const QString folder = addOnFolder().toHtmlEscaped();
    QMessageBox::information(this, title.isEmpty() ? QStringLiteral("Browser add-on") : title,
                             row.text.contains(QLatin1String("%1")) ? row.text.arg(folder)
                                                                    : row.text + QStringLiteral("<br><br>") + folder);
}
