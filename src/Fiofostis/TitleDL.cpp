#include "Fiofostis/Downloader.h"

#include "Fiofostis/DownloaderRules.h"

#include <QDebug>

void Downloader::requestTitle()
{
    titleLines.clear();
    const QStringList args{QStringLiteral("--get-title"), QStringLiteral("--get-duration"), url};
    qDebug() << "src/Fiofostis/TitleDL.cpp" << 16 << "requestTitle"
             << ":"
             << "Start with arguments"
             << ":" << args;
    processTitle = startChild(binDL, args, &Downloader::readTitle, &Downloader::gotTitle);
}

void Downloader::readTitle()
{
    // Only the latest chunk counts; the tool prints both lines at once.
    const QString chunk = DownloaderRules::chunkText(endedChild(processTitle)->readAllStandardOutput());
    titleLines = DownloaderRules::chunkLines(chunk);
}

void Downloader::gotTitle(int exitCode)
{
    const QByteArray errors = readErrors(endedChild(processTitle));
    releaseEndedChild(processTitle);
    if (exitCode != 0) {
        qCritical() << "!!! ERROR: "
                    << "src/Fiofostis/TitleDL.cpp" << 28 << "gotTitle"
                    << ":"
                    << "exitCode"
                    << ":" << exitCode;
        keepComplaint(errors, exitCode);
        // One failed query is the answer for the address: the other one
        // cannot tell it again.
        endChild(processFormats);
        if (DownloaderRules::asksSignIn(errors))
            askSignIn();
        else
            emit hasError(errorTitle);
        return;
    }
    options->title = DownloaderRules::titleFromLines(titleLines);
    options->duration = DownloaderRules::durationFromLines(titleLines);
    options->steps.append(stepTitle);
    emit haveTitle();
}
