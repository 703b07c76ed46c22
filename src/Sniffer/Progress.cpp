#include <QLabel>
#include <QProgressBar>
#include <QRandomGenerator>
#include <QTime>
#include <QTimer>

#include "Sniffer/Sniffer.h"
#include "Sniffer/WindowRules.h"
#include "ui_Progress.h"

void Sniffer::progressBarStart(int interval)
{
    progressBarStart();
    // A creeping bar is a sign of life, not a figure to read.
    progressBar->setTextVisible(false);
    progressTimer->start(interval);
}

void Sniffer::progressBarStart()
{
    uiProgress->lblConverting->hide();
    uiProgress->lblDots->hide();
    progressBar->setValue(progressBar->minimum());
    progressBar->setTextVisible(true);
    showLayer(LayerProgress);
}

void Sniffer::progressBarStart(int interval, bool caption)
{
    // Only the captioned form exists; without a caption nothing happens.
    if (!caption)
        return;
    uiProgress->lblConverting->show();
    uiProgress->lblDots->show();
    showLayer(LayerProgress);
    progressBar->setValue(progressBar->maximum());
    progressBar->setTextVisible(false);
    // An earlier dots timer goes: only the latest one is ever stopped.
    delete dotsTimer;
    dotsTimer = new QTimer(this);
    dotsCount = 3;
    dotsGrowing = true;
    dotsRunning = true;
    connect(dotsTimer, &QTimer::timeout, this, &Sniffer::progressBarTextIteration);
    dotsTimer->start(interval);
}

void Sniffer::progressBarIteration()
{
    // The bar is a sign of life: it creeps forward and never reaches the end
    // by itself. The generator is seeded from the clock's milliseconds.
    QRandomGenerator random(quint32(QTime::currentTime().msec()));
    progressBar->setValue(WindowRules::progressNext(progressBar->value(), progressBar->minimum(),
                                                    progressBar->maximum(), random.generate()));
}

void Sniffer::progressBarTextIteration()
{
    WindowRules::dotsNext(dotsCount, dotsGrowing);
    uiProgress->lblDots->setText(QString().leftJustified(dotsCount, QLatin1Char('.')));
}

void Sniffer::stopLastProcess()
{
    if (progressTimer->isActive())
        progressTimer->stop();
    progressBar->setValue(progressBar->maximum());
    downloader->stop();
    discardSave();
    showLayer(LayerMain);
}
