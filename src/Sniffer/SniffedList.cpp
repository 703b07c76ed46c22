#include <QListWidget>
#include <QPainter>
#include <QPixmap>
#include <QPushButton>
#include <QTime>

#include "Sniffer/SniffedRules.h"
#include "Sniffer/Sniffer.h"
#include "ui_OldSniffer.h"

// The list of sniffed media: at most 25 entries, the oldest at index 0, shown
// newest first (row r shows entry sniffedCount - 1 - r).

void Sniffer::Append(const QString &url, const QString &source, const QString &size, const QString &type)
{
    if (sniffedCount == -1)
        return;
    const qint64 bytes = SniffedRules::sizeBytes(size);
    if (bytes < SniffedRules::sizeFloor)
        return;
    // The same size under another address counts as the same media.
    if (FindByURL(url) != -1 || FindBySizeBytes(bytes) != -1)
        return;
    ++sniffedSequence;

    VS_RECENTLY_SNIFFED_VIDEO_DATA &entry = sniffedEntries[sniffedCount];
    entry.number = sniffedSequence;
    entry.time = QTime::currentTime().toString(QStringLiteral("hh:mm:ss"));
    entry.url = url;
    entry.source = source.toLatin1();
    entry.sizeBytes = bytes;
    entry.type = SniffedRules::cleanType(type);
    entry.downloadState = 0;
    entry.isVideoSitePage = SniffedRules::isVideoSitePage(url);

    if (sniffedCount++ < SniffedRules::keptEntries)
        RefreshList();
    else
        RemoveAt(0);
}

int Sniffer::FindByURL(const QString &url) const
{
    for (int i = 0; i < sniffedCount; ++i)
        if (sniffedEntries[i].url == url)
            return i;
    return -1;
}

int Sniffer::FindBySizeBytes(qint64 size) const
{
    for (int i = 0; i < sniffedCount; ++i)
        if (sniffedEntries[i].sizeBytes == size)
            return i;
    return -1;
}

void Sniffer::RemoveAt(int index)
{
    if (sniffedCount < 1 || index < 0 || index >= sniffedCount)
        return;
    for (int i = index; i + 1 < sniffedCount; ++i)
        sniffedEntries[i] = sniffedEntries[i + 1];
    --sniffedCount;
    RefreshList();
}

void Sniffer::SetDownloadState(int index, int state)
{
    if (index < 0 || index >= sniffedCount)
        return;
    sniffedEntries[index].downloadState = state;
    QPixmap square(16, 16);
    square.fill(Qt::transparent);
    // Red: not saved, yellow: being saved, green: saved.
    const QColor colours[] = {QColor(0xe0, 0x45, 0x3a), QColor(0xf2, 0xc2, 0x30), QColor(0x3f, 0xbf, 0x5a)};
    if (state >= 0 && state <= 2)
        square.fill(colours[state]);
    if (QListWidgetItem *item = uiOldSniffer->mediaList->item(sniffedCount - 1 - index))
        item->setIcon(QIcon(square));
}

void Sniffer::AddListItem(const QString &first, const QString &second, const QString &third)
{
    uiOldSniffer->mediaList->addItem(SniffedRules::rowText(first, second, third));
}

void Sniffer::RefreshList()
{
    QListWidget *list = uiOldSniffer->mediaList;
    list->clear();
    QPushButton *const buttons[] = {uiOldSniffer->pbDownloadAudio, uiOldSniffer->pbDownloadVideo,
                                    uiOldSniffer->pbPreview, uiOldSniffer->pbRemove};
    if (sniffedCount < 1) {
        for (QPushButton *button : buttons)
            button->setEnabled(false);
        return;
    }
    for (int i = sniffedCount - 1; i >= 0; --i) {
        const VS_RECENTLY_SNIFFED_VIDEO_DATA &entry = sniffedEntries[i];
        AddListItem(QString::asprintf("%d. %s", entry.number, entry.time.toLatin1().constData()), entry.type,
                    SniffedRules::sizeText(entry.sizeBytes));
        SetDownloadState(i, entry.downloadState);
    }
    for (QPushButton *button : buttons)
        button->setEnabled(true);
    // Download video waits for the list's saves under way.
    uiOldSniffer->pbDownloadVideo->setEnabled(sniffedDownloads.isEmpty());
    list->setCurrentRow(0);
    onClickOldSnifferListItem();
}
