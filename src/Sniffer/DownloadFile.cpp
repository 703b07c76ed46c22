#include <QDebug>
#include <QDir>
#include <QGuiApplication>
#include <QIcon>
#include <QKeySequence>
#include <QListWidget>
#include <QMessageBox>
#include <QProgressBar>
#include <QScreen>
#include <QShortcut>
#include <QTimer>

#include "Sniffer/DownloadRules.h"
#include "Sniffer/Sniffer.h"
#include "Sniffer/WindowRules.h"
#include "ui_Options.h"
#include "ui_Settings.h"

void Sniffer::initDownloader()
{
    downloader = new Downloader(nullptr);
    connect(downloader, &Downloader::hasError, this, &Sniffer::onDownloaderError);
    connect(downloader, &Downloader::percent, this, &Sniffer::showPercents);
    connect(downloader, &Downloader::haveTitle, this, &Sniffer::postTitleRequest);
    connect(downloader, &Downloader::haveFormats, this, &Sniffer::postFormatsRequest);
    connect(downloader, &Downloader::haveFile, this, &Sniffer::postFileRequest);
    connect(downloader, &Downloader::doneExtractAudio, this, &Sniffer::postDownload);
    connect(downloader, &Downloader::snifferUpdated, this, &Sniffer::postUpdateSniffer);
    connect(downloader, &Downloader::updateFailed, this, &Sniffer::postUpdateFailure);
    connect(downloader, &Downloader::updateProgress, this, &Sniffer::showUpdateProgress);
    connect(downloader, &Downloader::signInNeeded, this, &Sniffer::showSignInNeeded);

    auto *update = new QShortcut(QKeySequence(Qt::CTRL + Qt::Key_U), this);
    update->setContext(Qt::WindowShortcut);
    connect(update, &QShortcut::activated, this, &Sniffer::updateSniffer);

    connect(uiOptions->btnSelectPath, &QPushButton::clicked, this, &Sniffer::selectSavePath);
}

void Sniffer::postTitleRequest()
{
    const DownloaderOptions *options = downloader->options;
    uiOptions->lblTitle->setText(options->title);
    uiOptions->inputTitle->setText(options->title);
    uiOptions->lblDLLength->setText(options->duration);
    if (options->duration == QLatin1String("0:00"))
        uiOptions->lblDLLength->hide();
    else if (uiOptions->lblDLLength->isHidden())
        uiOptions->lblDLLength->show();
    showLayer(LayerOptions);
}

void Sniffer::postFormatsRequest()
{
    QListWidget *list = uiOptions->listFormats;
    const QHash<int, Downloader::videoFormat> &formats = downloader->options->formats;
    list->clear();
    formatLabels.clear();

    if (formats.isEmpty()) {
        list->hide();
        showLayer(LayerOptions);
        return;
    }
    if (formats.size() == 1) {
        // A single format is not worth a choice; a plain audio address
        // offers only the audio button.
        list->hide();
        if (formats.value(0).extension == QLatin1String("mp3")) {
            uiOptions->btnDownloadVideo->hide();
            uiOptions->btnDownloadVideo->setIcon(QIcon(QStringLiteral(":/btnAudioDL")));
        }
        showLayer(LayerOptions);
        return;
    }

    for (auto it = formats.constBegin(); it != formats.constEnd(); ++it) {
        const QString text = DownloadRules::formatRowText(it.value());
        auto *item = new QListWidgetItem(QIcon(DownloadRules::formatIcon(it.value().extension)), text);
        item->setSizeHint(QSize(120, 26));
        list->insertItem(0, item);
        formatLabels.insert(it.key(), text);
    }
    list->setIconSize(QSize(87, 23));
    list->setCurrentRow(0);
    // The window never grows past the screen: a long list scrolls instead.
    const QScreen *screen = QGuiApplication::primaryScreen();
    const int rows = WindowRules::formatRowsShown(list->count(), screen ? screen->availableGeometry().height() : 0);
    list->setMinimumHeight(27 * rows);
    list->setMaximumHeight(27 * rows + 10);
    if (list->isHidden())
        list->show();
    if (uiOptions->btnDownloadVideo->isHidden())
        uiOptions->btnDownloadVideo->show();
    uiOptions->btnDownloadVideo->setIcon(QIcon(QStringLiteral(":/btnVideoDL")));
    showLayer(LayerOptions);
}

void Sniffer::setOutputVideoFile()
{
    outputVideoFile = uiOptions->selectPath->currentText() + QLatin1Char('/') +
                      DownloadRules::outputBaseName(uiOptions->inputTitle->text());
}

void Sniffer::downloadVideo()
{
    downloadMode = DownloadRules::KindVideo;
    saveMode = DownloadRules::KindVideo;
    if (!selectSaveFile())
        return;
    if (fromRecorder) {
        saveRecorderAV(recordedResult);
        return;
    }
    runDownloader();
}

void Sniffer::downloadAudio()
{
    downloadMode = DownloadRules::KindAudio;
    saveMode = DownloadRules::KindAudio;
    const QString audioFolder = uiSettings->pathAudio->text();
    if (!audioFolder.isEmpty() && uiOptions->selectPath->currentText() != audioFolder) {
        uiOptions->selectPath->insertItem(0, audioFolder);
        uiOptions->selectPath->setCurrentIndex(0);
    }
    if (!selectSaveFile())
        return;
    if (!fromRecorder)
        runDownloader();
    else
        saveRecorderAV(recordedResult);
}

void Sniffer::runDownloader()
{
    setOutputVideoFile();
    QListWidgetItem *current = uiOptions->listFormats->currentItem();
    const int code = DownloadRules::formatCodeForRow(formatLabels, current ? current->text() : QString());
    const QString downloaded = downloader->options->formats.value(code).extension;
    // The file chosen in the save dialog, in its container. The tool and
    // ffmpeg write work files of their own beside it, so a file of the same
    // name in another container is never touched, and the chosen one is
    // replaced only by the finished result (postDownload).
    const QString chosen = outputExtension.isEmpty() ? downloaded : outputExtension;
    discardSave();
    outputTarget = outputVideoFile + QLatin1Char('.') + chosen;
    outputVideoFile = saveFiles.create(
        outputTarget, SniffedRules::isMediaExtension(downloaded) ? downloaded : QStringLiteral("media"));
    outputAudioFile = chosen == downloaded ? outputVideoFile : saveFiles.create(outputTarget, chosen);
    // A failing download reports nothing and would leave the progress page
    // waiting; a folder that cannot take the file is told at once instead.
    if (outputVideoFile.isEmpty() || outputAudioFile.isEmpty()) {
        const QString target = QDir::toNativeSeparators(outputTarget);
        discardSave();
        qCritical() << "!!! ERROR: "
                    << "src/Sniffer/DownloadFile.cpp" << __LINE__ << "runDownloader"
                    << ":"
                    << "File " + target + " cannot be created";
        showFileNotCreated(target);
        return;
    }

    progressBarStart();
    downloader->requestFile(code, QDir::toNativeSeparators(outputVideoFile));
}

void Sniffer::discardSave()
{
    saveFiles.removeCreated();
    outputTarget.clear();
}

void Sniffer::showFileNotCreated(const QString &target)
{
    QMessageBox::critical(this, QStringLiteral("Processing error:"),
                          QStringLiteral("<b>File</b> <i>") + target.toHtmlEscaped() +
                              QStringLiteral("</i><br><b>cannot be created</b>"));
}

void Sniffer::showPercents(float percent)
{
    progressBar->setValue(int(percent));
}

void Sniffer::postFileRequest()
{
    // A video is converted like an audio file is extracted when the
    // container chosen in the save dialog is not the one downloaded.
    if (outputAudioFile != outputVideoFile)
        extractAudio();
    else
        postDownload();
}

void Sniffer::extractAudio()
{
    // A download saved in its own container is already the wanted file;
    // ffmpeg cannot convert a file onto itself.
    if (outputVideoFile == outputAudioFile) {
        postDownload();
        return;
    }
    progressBarStart(100, true);
    const auto kind =
        downloadMode == DownloadRules::KindAudio ? Downloader::fromAudioExtraction : Downloader::fromVideoDownload;
    downloader->formatConverting(QDir::toNativeSeparators(outputVideoFile), QDir::toNativeSeparators(outputAudioFile),
                                 kind);
}

void Sniffer::postDownload()
{
    progressBar->setValue(progressBar->maximum());
    if (progressTimer && progressTimer->isActive())
        progressTimer->stop();
    if (dotsTimer)
        dotsTimer->stop();
    dotsRunning = false;
    setStyleSheet(QString());

    // The finished work file takes the chosen file's place in one step.
    const QString target = outputTarget;
    const bool saved = target.isEmpty() || saveFiles.commit(outputAudioFile, target);
    discardSave();
    if (saved) {
        QMessageBox::information(this, QStringLiteral("Processing state:"), QStringLiteral("Processing is completed"),
                                 QMessageBox::Ok);
    } else {
        qCritical() << "!!! ERROR: "
                    << "src/Sniffer/DownloadFile.cpp" << __LINE__ << "postDownload"
                    << ":"
                    << "File " + target + " cannot be created";
        showFileNotCreated(QDir::toNativeSeparators(target));
    }

    if (!fromRecorder) {
        // A download started from the sniffed list goes back to that list.
        if (rememberedLayer == LayerOldSniffer) {
            rememberedLayer = LayerSettings;
            showLayer(LayerOldSniffer);
        } else {
            showLayer(LayerInsertURL);
        }
        return;
    }
    fromRecorder = false;
    showLayer(LayerMain);
}

void Sniffer::showSignInNeeded()
{
    showLayer(LayerInsertURL);
    showPlainMessage(QMessageBox::Warning, QStringLiteral("Sign-in needed"),
                     QStringLiteral("The site asks you to sign in to prove you're not a bot.\n\n"
                                    "Choose your browser under Settings, Cookies from browser, be signed in to the "
                                    "site in that browser, then try again."));
}

void Sniffer::onDownloaderError(Downloader::errors error)
{
    if (progressTimer->isActive())
        progressTimer->stop();
    showLayer(LayerInsertURL);
    discardSave();
    const int line = __LINE__;
    qCritical() << "!!! ERROR: "
                << "src/Sniffer/DownloadFile.cpp" << line << "onDownloaderError"
                << ":" << int(error);
    appSettings.errorDetails = QStringList{QStringLiteral("src/Sniffer/DownloadFile.cpp"), QString::number(line),
                                           QStringLiteral("onDownloaderError")};
    // The tool's own words on why, when it was the tool that failed.
    const bool toolFailed =
        error == Downloader::errorTitle || error == Downloader::errorFormats || error == Downloader::errorDownload;
    appSettings.errorDetails << (toolFailed ? downloader->lastComplaint.split(QLatin1Char('\n'))
                                            : QStringList{QString()});
    showErrorMessage(error);
}
