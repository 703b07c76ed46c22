#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>

#include "Feed/PageServer.h"
#include "Sniffer/DownloadRules.h"
#include "Sniffer/Sniffer.h"
#include "Sniffer/SnifferQueue.h"
#include "ui_OldSniffer.h"
#include "ui_Sniffer.h"

namespace {
// The queue is looked at now and then while nothing comes, and often while
// reports wait: one is taken per tick, so a burst of 100 is listed well
// within a second.
constexpr int queueIdleInterval = 250;
constexpr int queueBusyInterval = 8;
constexpr int listPageHeights[] = {170, 320};
} // namespace

void Sniffer::initSniffedList()
{
    urlQueueTimer = new QTimer(this);
    connect(urlQueueTimer, &QTimer::timeout, this, &Sniffer::checkUrlQueue);
    urlQueueTimer->start(queueIdleInterval);
    // The test notice's help-desk link opens the address of the settings.
    connect(uiOldSniffer->label_2, &QLabel::linkActivated, this, &Sniffer::showHelpDesk);
    initSniffedFeed();
}

void Sniffer::checkUrlQueue()
{
    UrlData record;
    if (!takeUrlData(&record)) {
        if (urlQueueTimer->interval() != queueIdleInterval)
            urlQueueTimer->setInterval(queueIdleInterval);
        return;
    }
    if (urlQueueTimer->interval() != queueBusyInterval)
        urlQueueTimer->setInterval(queueBusyInterval);
    Append(QString::fromLatin1(record.url.c_str()), QString::fromUtf8(record.source.c_str()),
           QString::fromUtf8(record.size.c_str()), QString::fromUtf8(record.type.c_str()));
}

void Sniffer::wakeUrlQueue()
{
    if (urlQueueTimer->interval() != queueBusyInterval || !urlQueueTimer->isActive())
        urlQueueTimer->start(queueBusyInterval);
}

void Sniffer::setListPageView(int view)
{
    if (uiOldSniffer->stackedWidget->currentIndex() == view)
        return;
    pageHeights.insert(ui->widgetOldSniffer, listPageHeights[view]);
    ui->widgetOldSniffer->setFixedHeight(listPageHeights[view]);
    uiOldSniffer->stackedWidget->setCurrentIndex(view);
}

void Sniffer::runOldSniffer()
{
    // Back from the self-test: its page is no longer served.
    if (testPageServer)
        testPageServer->stop();
    setListPageView(0);
    showOldSniffer();
}

void Sniffer::showOldSniffer()
{
    if (!snifferPageWired) {
        snifferPageWired = true;
        // What was listed before the page was first opened starts over.
        sniffedSequence = 0;
        sniffedCount = 0;
        connect(uiOldSniffer->pbDownloadAudio, &QPushButton::clicked, this, &Sniffer::onClickOldSnifferDownloadAudio);
        connect(uiOldSniffer->pbDownloadVideo, &QPushButton::clicked, this, &Sniffer::onClickOldSnifferDownloadVideo);
        connect(uiOldSniffer->pbRemove, &QPushButton::clicked, this, &Sniffer::onClickOldSnifferRemove);
        connect(uiOldSniffer->pbPreview, &QPushButton::clicked, this, &Sniffer::onClickOldSnifferPreview);
        connect(uiOldSniffer->mediaList, &QListWidget::itemClicked, this,
                QOverload<QListWidgetItem *>::of(&Sniffer::onClickOldSnifferListItem));
        connect(this, &Sniffer::downloadFinished, this, &Sniffer::onOldSnifferDownloadFinished);
    }
    RefreshList();
    showLayer(LayerOldSniffer);
}

void Sniffer::onOldSnifferDownloadFinished(QString path)
{
    if (snifferSaveMode != DownloadRules::KindAudio)
        return;
    // A plain copy under the ".mp3" name beside the file, on purpose: no
    // conversion, and the saved file stays.
    const QFileInfo info(path);
    sniffedSourceFile = path;
    sniffedTargetFile = QDir::fromNativeSeparators(info.absolutePath() + QDir::separator() + info.completeBaseName() +
                                                   QStringLiteral(".mp3"));
    QFile::copy(sniffedSourceFile, sniffedTargetFile);
}
