#include <QDebug>
#include <QUrl>

#include "Sniffer/DownloadRules.h"
#include "Sniffer/Sniffer.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"

namespace {

// Support quotes these two places by their long-standing line numbers, so
// they stay fixed whatever this file looks like.
const int lineInvalidAddress = 78;
const int lineRefusedAddress = 83;

} // namespace

void Sniffer::showURLField()
{
    if (sender() == uiNavigation->btnDownloaderYT) {
        appSettings.urlTable = QStringLiteral("yt_urls");
        appSettings.urlMode = 2;
    } else {
        appSettings.urlTable = QStringLiteral("os_urls");
        appSettings.urlMode = 1;
    }
    uiInsertURL->inputURL->setText(QString());
    // The stored entry still ends with the hint picture that the focus
    // handling takes off; applying it whole brings the hint back.
    uiInsertURL->inputURL->setStyleSheet(styles.value(uiInsertURL->inputURL).join(QLatin1Char(';')));
    urlHintShown = true;
    showLayer(LayerInsertURL);
}

void Sniffer::processURL()
{
    const QString typed = uiInsertURL->inputURL->text();
    DownloadRules::Address address = DownloadRules::normaliseAddress(typed, appSettings.urlTable, appSettings.urlMode,
                                                                     appSettings.tables.value(appSettings.urlTable));
    qDebug() << "src/Sniffer/ProcessURL.cpp" << __LINE__ << "processURL"
             << ":"
             << "user URL"
             << ":" << address.text;

    auto fail = [this](int line, int number) {
        qCritical() << "!!! ERROR: "
                    << "src/Sniffer/ProcessURL.cpp" << line << "processURL"
                    << ":" << number;
        appSettings.errorDetails = QStringList{QStringLiteral("src/Sniffer/ProcessURL.cpp"), QString::number(line),
                                               QStringLiteral("processURL"), QString()};
        showErrorMessage(Sniffer::appFlag(number));
    };

    if (address.error != 0) {
        fail(address.error == 3 ? lineInvalidAddress : __LINE__, address.error);
        return;
    }
    if (!downloader->setURL(&address.url)) {
        fail(lineRefusedAddress, 1);
        return;
    }
    progressBarStart(100);
    // The Options page opens only once both answers for this address are in;
    // the steps of an earlier address must not open it early.
    downloader->options->steps.clear();
    downloader->getOptions();
}
