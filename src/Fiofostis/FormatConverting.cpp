#include "Fiofostis/Downloader.h"

#include "Fiofostis/DownloaderRules.h"
#include "Platform/Platform.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>
#include <QFileInfo>

void Downloader::formatConverting(QString input, QString output, Downloader::FormatConvertingFrom from)
{
    convertingFrom = from;
    // Two ffmpeg builds ship with the program; the system decides which.
    const QString binFFmpeg =
        DownloaderRules::ffmpegPath(QCoreApplication::applicationDirPath(), Platform::ffmpegBuild());
    ffmpegArgs = DownloaderRules::ffmpegArguments(input, output, from);
    step = stepConverting;
    qDebug() << "src/Fiofostis/FormatConverting.cpp" << 61 << "formatConverting"
             << ":"
             << "binFFmpeg"
             << ":" << binFFmpeg;
    qDebug() << "src/Fiofostis/FormatConverting.cpp" << 62 << "formatConverting"
             << ":"
             << "params"
             << ":" << ffmpegArgs;
    processFFmpeg =
        startChild(binFFmpeg, ffmpegArgs, &Downloader::readFormatConverting, &Downloader::doneFormatConverting);
}

void Downloader::readFormatConverting()
{
    // ffmpeg reports on standard error; its standard output carries nothing
    // we use, but it must not fill the pipe.
    endedChild(processFFmpeg)->readAllStandardOutput();
}

void Downloader::doneFormatConverting(int exitCode)
{
    releaseEndedChild(processFFmpeg);
    qDebug() << "src/Fiofostis/FormatConverting.cpp" << 82 << "doneFormatConverting"
             << ":"
             << "exitCode"
             << ":" << exitCode;
    step = stepIdle;

    if (exitCode != 0) {
        emit hasError(errorConverting);
        qCritical() << "!!! ERROR: "
                    << "src/Fiofostis/FormatConverting.cpp" << 88 << "doneFormatConverting"
                    << ":"
                    << "exitCode"
                    << ":" << exitCode;
        return;
    }

    // A recording's conversion keeps its input: the recorder cleans up its
    // own work files.
    if (convertingFrom == fromRecording) {
        options->steps.append(stepConverting);
        emit doneExtractAudio();
        return;
    }

    // The output may be a work file made empty beforehand: only what ffmpeg
    // wrote counts.
    if (QFileInfo(ffmpegArgs.last()).size() <= 0) {
        qCritical() << "!!! ERROR: "
                    << "src/Fiofostis/FormatConverting.cpp" << 96 << "doneFormatConverting"
                    << ":"
                    << "no audio file";
        emit hasError(errorNoAudioFile);
        return;
    }

    // The download was only a carrier for the file the user asked for.
    const QString downloaded = ffmpegArgs.value(ffmpegArgs.indexOf(QStringLiteral("-i")) + 1);
    if (QFile::remove(downloaded)) {
        options->steps.append(stepConverting);
        emit doneExtractAudio();
        return;
    }
    qCritical() << "!!! ERROR: "
                << "src/Fiofostis/FormatConverting.cpp" << 111 << "doneFormatConverting"
                << ":"
                << "cannot remove";
    qCritical() << "!!! ERROR: "
                << "src/Fiofostis/FormatConverting.cpp" << 112 << "doneFormatConverting"
                << ":"
                << "file"
                << ":" << downloaded;
    emit hasError(errorCannotRemove);
}
