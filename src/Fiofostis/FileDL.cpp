#include "Fiofostis/Downloader.h"

#include "Fiofostis/DownloaderRules.h"

#include <QDebug>
#include <QFile>

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
    const QByteArray errors = readErrors(endedChild(processFile));
    releaseEndedChild(processFile);
    // A download that ended without its file (the tool crashed, the disk is
    // full, the folder is gone) is told with the tool's words, and what it
    // had written goes.
    if (exitCode != 0 || !QFile::exists(partFile.chopped(5))) {
        qCritical() << "!!! ERROR: "
                    << "src/Fiofostis/FileDL.cpp" << 32 << "gotFile"
                    << ":"
                    << "exitCode"
                    << ":" << exitCode;
        keepComplaint(errors, exitCode);
        QFile::remove(partFile);
        step = stepIdle;
        emit hasError(errorDownload);
        return;
    }
    options->steps.append(step);
    step = stepIdle;
    emit haveFile();
}
