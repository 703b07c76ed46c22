#include "Fiofostis/Downloader.h"

#include "Fiofostis/DownloaderRules.h"

#include <QDebug>

void Downloader::requestFile(int format, QString outputPath)
{
    // The tool keeps the unfinished file under this name; it is only needed
    // to clean up after a stop.
    partFile = outputPath + QStringLiteral(".part");
    const QStringList args{url, QStringLiteral("-o"), outputPath, QStringLiteral("--format"), QString::number(format)};
    qDebug() << "src/Fiofostis/FileDL.cpp" << 16 << "requestFile"
             << ":"
             << "Download file"
             << ":" << args;
    processFile = startChild(binDL, args, &Downloader::readFile, &Downloader::gotFile);
    step = stepFile;
}

void Downloader::readFile()
{
    const QString chunk = DownloaderRules::chunkText(endedChild(processFile)->readAllStandardOutput());
    emit percent(DownloaderRules::percentFromChunk(chunk));
}

void Downloader::gotFile(int exitCode)
{
    releaseEndedChild(processFile);
    // No error for the user here: the step stays at "downloading", so a
    // later stop still removes the partial file.
    if (exitCode != 0) {
        qCritical() << "!!! ERROR: "
                    << "src/Fiofostis/FileDL.cpp" << 32 << "gotFile"
                    << ":"
                    << "exitCode"
                    << ":" << exitCode;
        return;
    }
    options->steps.append(step);
    step = stepIdle;
    emit haveFile();
}
