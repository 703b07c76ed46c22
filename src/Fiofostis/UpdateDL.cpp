#include "Fiofostis/Downloader.h"

#include "Fiofostis/DownloaderRules.h"

#include <QDebug>

void Downloader::checkUpdates()
{
    const QStringList args{QStringLiteral("--update")};
    updateOutput.clear();
    processUpdate = startChild(binDL, args, &Downloader::readUpdate, &Downloader::gotUpdate);
}

void Downloader::readUpdate()
{
    // The versions are read from here; the exit code is the verdict.
    updateOutput += DownloaderRules::chunkText(endedChild(processUpdate)->readAllStandardOutput());
}

void Downloader::gotUpdate(int exitCode)
{
    const QByteArray errors = readErrors(endedChild(processUpdate));
    releaseEndedChild(processUpdate);
    if (exitCode != 0) {
        qCritical() << "!!! ERROR: "
                    << "src/Fiofostis/UpdateDL.cpp" << 24 << "gotUpdate"
                    << ":"
                    << "exitCode"
                    << ":" << exitCode;
        emit updateFailed(DownloaderRules::updateFailureReason(errors, exitCode));
        return;
    }
    emit snifferUpdated();
}
