#include <QCoreApplication>
#include <QDate>
#include <QDebug>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QLineEdit>
#include <QMessageBox>
#include <QProgressBar>
#include <QUrl>

#include "Feed/PageServer.h"
#include "Sniffer/SniffedRules.h"
#include "Sniffer/Sniffer.h"
#include "ui_InsertURL.h"
#include "ui_OldSniffer.h"
#include "ui_Update.h"

bool Sniffer::checkLastUpdateDate()
{
    const QString last = appSettings.ini->value(QStringLiteral("last_update"), QString()).toString();
    // The day of the year only: the same day a year later counts as checked.
    const QString today = QString::number(QDate::currentDate().dayOfYear());
    qDebug() << "src/Sniffer/SnifferUpdate" << 37 << "checkLastUpdateDate"
             << ":"
             << "date" << today;
    if (last == today)
        return false;
    appSettings.ini->setValue(QStringLiteral("last_update"), today);
    syncSettings();
    return true;
}

void Sniffer::updateSniffer()
{
    showLayer(LayerUpdate);
    if (downloader->processUpdate)
        return; // one update at a time; its end shows the notice
    uiUpdate->lblUpdate->setText(QStringLiteral("Looking for a newer downloader…"));
    uiUpdate->updateBar->setValue(0);
    downloader->checkUpdates();
}

void Sniffer::showUpdateProgress(float percent, const QString &name)
{
    uiUpdate->lblUpdate->setText(QStringLiteral("Downloading ") + name + QStringLiteral("…"));
    uiUpdate->updateBar->setValue(int(percent));
}

void Sniffer::postUpdateSniffer()
{
    const QString version = SniffedRules::versionFromUpdateOutput(downloader->updateOutput);
    appSettings.ini->setValue(QStringLiteral("last_update_v"), version);
    setVDWindowTitle(version);
    showLayer(LayerMain);
    // A copy kept by the system is not updated here; its notice says so.
    const QString notice = SniffedRules::systemToolNotice(downloader->updateOutput);
    if (notice.isEmpty())
        QMessageBox::information(this, QStringLiteral("Vidorra 2"), SniffedRules::upToDateText(version),
                                 QMessageBox::Ok);
    else
        showPlainMessage(QMessageBox::Information, QStringLiteral("Vidorra 2"), notice);
}

void Sniffer::postUpdateFailure(const QString &reason)
{
    // The version still in use, when the launcher could name one.
    const QString version = SniffedRules::versionFromUpdateOutput(downloader->updateOutput);
    if (version != QLatin1String("last")) {
        appSettings.ini->setValue(QStringLiteral("last_update_v"), version);
        setVDWindowTitle(version);
    }
    showLayer(LayerMain);
    showPlainMessage(QMessageBox::Warning, QStringLiteral("Update not possible"),
                     SniffedRules::updateFailedText(reason, version, downloader->updateOutput));
}

void Sniffer::testSniffer()
{
    const QString address = tableText(QStringLiteral("test_sniffer"), 0);
    if (address.isEmpty()) {
        qCritical() << "!!! ERROR: "
                    << "src/Sniffer/TestSniffer" << 9 << "testSniffer"
                    << ":" << 8;
        appSettings.errorDetails = QStringList{
            QStringLiteral("src/Sniffer/TestSniffer"), QStringLiteral("9"), QStringLiteral("testSniffer"), {}};
        showErrorMessage(8, FlagError);
        return;
    }
    // A page shipped beside the program (a name, no scheme) comes from a
    // server on 127.0.0.1 while the test runs: the test needs no network.
    QUrl url(address);
    if (url.scheme().isEmpty()) {
        const QFileInfo page(QCoreApplication::applicationDirPath() + QDir::separator() + address);
        if (!testPageServer)
            testPageServer = new PageServer(this);
        const QString problem = !page.isFile() ? QStringLiteral("it is missing, reinstall Vidorra 2")
                                : !testPageServer->serve(page.path()) ? testPageServer->errorString()
                                                                      : QString();
        if (!problem.isEmpty()) {
            showPlainMessage(QMessageBox::Warning, QStringLiteral("Vidorra 2"),
                             QStringLiteral("The self-test cannot show its page %1: %2")
                                 .arg(QDir::toNativeSeparators(page.filePath()), problem));
            return;
        }
        url = QUrl(testPageServer->address(page.fileName()));
    }
    // The list page grows to show the test notice under the list.
    setListPageView(1);
    showOldSniffer();
    QDesktopServices::openUrl(url);
}

void Sniffer::mirelSetDefaultURL()
{
    ++testUrlIndex;
    uiInsertURL->inputURL->setFocus();
    uiInsertURL->inputURL->setText(tableText(QStringLiteral("mirel_test_urls"), testUrlIndex));
    if (testUrlIndex == 3)
        testUrlIndex = 0;
}

void Sniffer::showHelpDesk()
{
    // The help desk is an address, or the name of a page shipped beside the program.
    const QString address = tableText(QStringLiteral("test_sniffer"), 1);
    if (address.isEmpty())
        return;
    const QUrl url(address);
    QDesktopServices::openUrl(url.scheme().isEmpty() ? QUrl::fromLocalFile(QCoreApplication::applicationDirPath() +
                                                                           QDir::separator() + address)
                                                     : url);
}
