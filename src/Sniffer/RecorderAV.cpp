#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QMessageBox>

#include "Platform/Platform.h"
#include "Sniffer/Sniffer.h"

namespace {

// Fills the work file `work` (already there, empty) with `source`.
bool copyInto(const QString &source, const QString &work)
{
    QFile in(source), out(work);
    if (work.isEmpty() || !in.open(QIODevice::ReadOnly) || !out.open(QIODevice::WriteOnly | QIODevice::ExistingOnly))
        return false;
    while (!in.atEnd()) {
        const QByteArray block = in.read(1 << 20);
        if (block.isEmpty() || out.write(block) != block.size())
            return false;
    }
    return out.flush();
}

} // namespace

void Sniffer::runRecorderAV()
{
    if (Platform::macOSOlderThan(10, 8)) {
        QMessageBox::warning(this, QStringLiteral("KV Recorder requires OSX 10.8 or newer"),
                             QStringLiteral("This KV Recorder Module requires Mac OSX 10.8 or newer.<br><br>"
                                            "                             It appears that you have an older OS, "
                                            "therefore, it will not run on your machine."),
                             QMessageBox::Ok);
        return;
    }
    // Without a screen ffmpeg can grab, a recording would only be black.
    const QString problem = Platform::screenCaptureProblem(QGuiApplication::platformName());
    if (!problem.isEmpty()) {
        QMessageBox::warning(this, QStringLiteral("Screen recording is not available"), problem, QMessageBox::Ok);
        return;
    }
    // One recorder at a time: the button stays reachable only through the
    // hidden window, but a second press must not leave the first behind.
    if (recorder)
        return;

    const QString tempDir = getApplicationDataFolder(QStringLiteral("temp"));
    recorder = new AVRecorder(nullptr, QCoreApplication::applicationDirPath(), tempDir);
    connect(recorder, QOverload<QString>::of(&AVRecorder::done), this,
            QOverload<QString>::of(&Sniffer::doneRecorderAV));
    connect(recorder, QOverload<AVRecorder::ResultingData>::of(&AVRecorder::done), this,
            QOverload<AVRecorder::ResultingData>::of(&Sniffer::doneRecorderAV));
    connect(recorder, &AVRecorder::close, this, &Sniffer::closeRecorderAV);
    connect(recorder, &AVRecorder::error, this, &Sniffer::errorRecorderAV);
    // The screen the desktop shared last time is shared again without asking.
    if (appSettings.ini) {
        recorder->setScreenCastToken(appSettings.ini->value(QStringLiteral("screencast_token")).toString());
        connect(recorder, &AVRecorder::screenCastTokenChanged, this, [this](const QString &token) {
            appSettings.ini->setValue(QStringLiteral("screencast_token"), token);
            syncSettings();
        });
    }
    hide();
    if (haveRecordedRegion)
        recorder->startRecorder(recordedRegion);
    else
        recorder->startRecorder();
}

void Sniffer::doneRecorderAV(AVRecorder::ResultingData data)
{
    recordedAudio = data.audioFile;
    recordedVideo = data.videoFile;
    recordedResult = data.resultFile;
    recordedRegion = data.geometry;
    haveRecordedRegion = true;
    qDebug() << "src/Sniffer/RecorderAV.cpp" << __LINE__ << "doneRecorderAV"
             << ":"
             << "path"
             << ":" << data.resultFile;
    recorder->deleteLater();
    postRecorderAV();
}

void Sniffer::doneRecorderAV(QString path)
{
    qDebug() << "src/Sniffer/RecorderAV.cpp" << __LINE__ << "doneRecorderAV"
             << ":"
             << "path"
             << ":" << path;
    recorder->deleteLater();
    postRecorderAV();
}

void Sniffer::postRecorderAV()
{
    fromRecorder = true;
    recordingMode = true; // the Options page shows the recording's rows
    show();
    showLayer(LayerOptions);
}

void Sniffer::closeRecorderAV()
{
    recorder->deleteLater();
    show();
}

void Sniffer::errorRecorderAV(int code, QString description)
{
    qCritical() << "!!! ERROR: "
                << "src/Sniffer/RecorderAV.cpp" << __LINE__ << "errorRecorderAV"
                << ":"
                << "code"
                << ":" << code;
    qCritical() << "!!! ERROR: "
                << "src/Sniffer/RecorderAV.cpp" << __LINE__ << "errorRecorderAV"
                << ":"
                << "description"
                << ":" << description;
    recorder->deleteLater();
    QMessageBox::critical(this, QStringLiteral("AV Recorder"),
                          description + QStringLiteral("<hr>") + QString::number(code));
    show();
}

void Sniffer::saveRecorderAV(QString file)
{
    setOutputVideoFile();
    const QString target = QDir::toNativeSeparators(outputVideoFile + QLatin1Char('.') + outputExtension);
    const QString source = QDir::toNativeSeparators(file);
    qDebug() << "src/Sniffer/RecorderAV.cpp" << __LINE__ << "saveRecorderAV"
             << ":"
             << "oldFile"
             << ":" << source;
    qDebug() << "src/Sniffer/RecorderAV.cpp" << __LINE__ << "saveRecorderAV"
             << ":"
             << "newFile"
             << ":" << target;

    // Copied or converted into a work file beside the target, which takes
    // the target's place at the end (postDownload).
    discardSave();
    outputTarget = QDir::fromNativeSeparators(target);
    outputAudioFile = saveFiles.create(outputTarget, outputExtension);
    if (QFileInfo(source).suffix() != outputExtension && !outputAudioFile.isEmpty()) {
        progressBarStart(800);
        downloader->formatConverting(source, QDir::toNativeSeparators(outputAudioFile), Downloader::fromRecording);
        return;
    }
    if (copyInto(source, outputAudioFile)) {
        for (const QString &work : {recordedAudio, recordedVideo, recordedResult})
            QFile::remove(work);
    } else {
        discardSave();
        qCritical() << "src/Sniffer/RecorderAV.cpp" << __LINE__ << "saveRecorderAV"
                    << ":"
                    << "File " + target + "cannot be created";
        showFileNotCreated(target);
    }
    postDownload();
}

void Sniffer::clearDir(const QString &path)
{
    QDir dir(path);
    if (!dir.exists())
        return;
    const QFileInfoList entries =
        dir.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::DirsFirst);
    for (const QFileInfo &entry : entries) {
        if (entry.isDir() && !entry.isSymLink())
            clearDir(entry.absoluteFilePath());
        else
            QFile::remove(entry.absoluteFilePath());
    }
}
