#include <QAction>
#include <QDebug>
#include <QDesktopServices>
#include <QDir>
#include <QListWidget>
#include <QMenu>
#include <QProcess>
#include <QPushButton>
#include <QTimer>
#include <QUrl>

#include <algorithm>

#include "Fiofostis/SniffedDownload.h"
#include "Sniffer/DownloadRules.h"
#include "Sniffer/SniffedRules.h"
#include "Sniffer/Sniffer.h"
#include "ui_Navigation.h"
#include "ui_OldSniffer.h"

namespace {
// The entry of the list's current row, -1 when no row is current.
int currentEntry(const QListWidget *list, int count)
{
    const int row = list->currentRow();
    return row < 0 ? -1 : count - 1 - row;
}
} // namespace

// Every button of the list shows its pressed look for 300 ms.
static void flash(Sniffer *sniffer, QPushButton *button, const QString &icon)
{
    // A button pressed within another's flash takes it over: the other one
    // gets its own look back now.
    if (sniffer->flashButton && sniffer->flashButton != button)
        sniffer->flashButton->setIcon(QIcon(sniffer->flashIconPath));
    sniffer->flashButton = button;
    sniffer->flashIconPath = icon;
    sniffer->flashDone = false;
    sniffer->changeButtonIcon();
    QTimer::singleShot(300, sniffer, &Sniffer::changeButtonIcon);
}

void Sniffer::changeButtonIcon()
{
    if (!flashButton)
        return;
    flashButton->setIcon(QIcon(flashDone ? flashIconPath : flashIconPath + QStringLiteral("clc")));
    flashDone = true;
}

void Sniffer::onClickOldSnifferPreview()
{
    flash(this, uiOldSniffer->pbPreview, QStringLiteral(":btnPreviewOSN"));
    const int index = currentEntry(uiOldSniffer->mediaList, sniffedCount);
    if (index < 0 || sniffedEntries[index].url.isEmpty())
        return;
    // Played on its own, not waited for; what it prints is not ours to show.
    QProcess player;
    player.setProgram(QDir::toNativeSeparators(QCoreApplication::applicationDirPath() + QStringLiteral("/ffplay")));
    player.setArguments(
        SniffedRules::previewArguments(sniffedEntries[index].url, qEnvironmentVariable("SSL_CERT_FILE")));
    player.setStandardOutputFile(QProcess::nullDevice());
    player.setStandardErrorFile(QProcess::nullDevice());
    qint64 pid = 0;
    if (player.startDetached(&pid))
        lastPreviewPid = pid;
}

void Sniffer::onClickOldSnifferRemove()
{
    flash(this, uiOldSniffer->pbRemove, QStringLiteral(":btnRemoveOSN"));
    const int index = currentEntry(uiOldSniffer->mediaList, sniffedCount);
    if (index >= 0)
        RemoveAt(index);
}

// The list's own save buttons: the entry is saved in the kind of the
// button, and the list hears of the file once it is complete.
static void saveCurrentEntry(Sniffer *sniffer, QPushButton *button, const QString &icon, int kind)
{
    flash(sniffer, button, icon);
    sniffer->snifferSaveMode = kind;
    const int index = currentEntry(sniffer->uiOldSniffer->mediaList, sniffer->sniffedCount);
    sniffer->announceSniffedDownload = true;
    if (index >= 0)
        sniffer->DownloadYouTubeVideoFromSniffedURL(index);
    sniffer->announceSniffedDownload = false;
}

void Sniffer::onClickOldSnifferDownloadVideo()
{
    saveCurrentEntry(this, uiOldSniffer->pbDownloadVideo, QStringLiteral(":btnVideoOSN"), DownloadRules::KindVideo);
}

void Sniffer::onClickOldSnifferDownloadAudio()
{
    saveCurrentEntry(this, uiOldSniffer->pbDownloadAudio, QStringLiteral(":btnAudioOSN"), DownloadRules::KindAudio);
}

QString Sniffer::onClickOldSnifferDownload()
{
    const int index = currentEntry(uiOldSniffer->mediaList, sniffedCount);
    return index < 0 ? QString() : DownloadYouTubeVideoFromSniffedURL(index);
}

QString Sniffer::DownloadYouTubeVideoFromSniffedURL(int index)
{
    // An audio save is named .mp3; a video takes the extension of its type
    // from the table, or none that the server chose (the dialog then falls
    // back on the typed one).
    const QString extension = snifferSaveMode == DownloadRules::KindAudio
                                  ? QStringLiteral("mp3")
                                  : SniffedRules::extensionForType(sniffedEntries[index].type);
    // New reports may move the entries while the dialog is open: the entry
    // is found again by its address.
    const QString url = sniffedEntries[index].url;
    const QString path = GetSaveAsFullPath(extension);
    if (path.isEmpty())
        return QString();

    // A save started by the list's buttons is announced once the file is
    // complete, as the kind it was started in.
    const bool announce = announceSniffedDownload;
    const int kind = snifferSaveMode;
    auto *transfer =
        new SniffedDownload(SniffedRules::transferAddress(url), path, kind == DownloadRules::KindAudio, this);
    sniffedDownloads.append(transfer);
    connect(
        transfer, &SniffedDownload::finished, this, [this, transfer, url, announce, kind](bool ok, const QString &why) {
            sniffedDownloads.removeOne(transfer);
            transfer->deleteLater();
            SetDownloadState(FindByURL(url), ok ? 2 : 0);
            uiOldSniffer->pbDownloadVideo->setEnabled(sniffedCount > 0 && sniffedDownloads.isEmpty());
            if (ok) {
                if (announce) {
                    snifferSaveMode = kind;
                    emit downloadFinished(transfer->path);
                }
                return;
            }
            const int line = __LINE__;
            qCritical() << "!!! ERROR: "
                        << "src/Sniffer/ListActions.cpp" << line << "DownloadYouTubeVideoFromSniffedURL"
                        << ":" << transfer->path << ":" << why;
            appSettings.errorDetails = QStringList{QStringLiteral("src/Sniffer/ListActions.cpp"), QString::number(line),
                                                   QStringLiteral("DownloadYouTubeVideoFromSniffedURL"),
                                                   QDir::toNativeSeparators(transfer->path)};
            appSettings.errorDetails << why.split(QLatin1Char('\n'));
            showErrorMessage(9, FlagError);
        });
    SetDownloadState(FindByURL(url), 1);
    uiOldSniffer->pbDownloadVideo->setEnabled(false);
    transfer->start();
    return path;
}

void Sniffer::onClickOldSnifferListItem(QListWidgetItem *)
{
    onClickOldSnifferListItem();
}

void Sniffer::onClickOldSnifferListItem()
{
    const int index = currentEntry(uiOldSniffer->mediaList, sniffedCount);
    if (index >= 0)
        uiOldSniffer->pbPreview->setEnabled(!sniffedEntries[index].isVideoSitePage);
}

void Sniffer::initClickDownloadOS()
{
    // In the order of the settings' numbers.
    const QHash<int, QString> sites = appSettings.tables.value(QStringLiteral("os_urls"));
    QList<int> keys = sites.keys();
    std::sort(keys.begin(), keys.end());
    for (int key : qAsConst(keys)) {
        const QString site = sites.value(key);
        auto *action = new QAction(site, this);
        action->setStatusTip(site);
        downloadOSMenu.append(menuItem{site, site, action});
        connect(action, &QAction::triggered, this, &Sniffer::onClickDownloadOSItem);
    }
    connect(this, &Sniffer::customContextMenuRequested, this, &Sniffer::onRightClickDownloadOS);
}

void Sniffer::onRightClickDownloadOS(QPoint pos)
{
    QPushButton *button = uiNavigation->btnDownloaderOS;
    if (!button->isVisible())
        return;
    const QPoint origin = button->mapTo(this, QPoint(0, 0));
    const QRect area(origin, button->size());
    if (!area.contains(pos))
        return;
    auto *menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    for (const menuItem &item : qAsConst(downloadOSMenu))
        menu->addAction(item.menuAction);
    menu->popup(button->mapToGlobal(pos - origin));
}

void Sniffer::onClickDownloadOSItem()
{
    for (const menuItem &item : qAsConst(downloadOSMenu)) {
        if (item.menuAction == sender()) {
            QDesktopServices::openUrl(QUrl(QStringLiteral("http://") + item.caption));
            break;
        }
    }
    uiNavigation->btnDownloaderOS->click();
}
