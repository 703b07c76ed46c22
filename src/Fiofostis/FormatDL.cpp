#include "Fiofostis/Downloader.h"

#include "Fiofostis/DownloaderRules.h"

#include <QDebug>

void Downloader::requestFormats()
{
    formatLines.clear();
    const QStringList args{QStringLiteral("--list-formats"), url};
    qDebug() << "src/Fiofostis/FormatDL.cpp" << 16 << "requestFormats"
             << ":"
             << "Start with arguments"
             << ":" << args;
    processFormats = startChild(binDL, args, &Downloader::readFormats, &Downloader::gotFormats);
}

void Downloader::readFormats()
{
    const QString chunk = DownloaderRules::chunkText(endedChild(processFormats)->readAllStandardOutput());
    formatLines = DownloaderRules::chunkLines(chunk);
}

void Downloader::gotFormats(int exitCode)
{
    const QByteArray errors = readErrors(endedChild(processFormats));
    releaseEndedChild(processFormats);
    // A failed listing ends the title query too and tells why, or that the
    // site wants a sign-in.
    if (exitCode != 0) {
        qCritical() << "!!! ERROR: "
                    << "src/Fiofostis/FormatDL.cpp" << 28 << "gotFormats"
                    << ":"
                    << "exitCode"
                    << ":" << exitCode;
        keepComplaint(errors, exitCode);
        endChild(processTitle);
        if (DownloaderRules::asksSignIn(errors))
            askSignIn();
        else if (!signInAsked)
            emit hasError(errorFormats);
        return;
    }
    fillFormatAudio();
    options->formats.clear();
    options->formats = DownloaderRules::parseFormats(formatLines, audioFormats);
    options->steps.append(stepFormats);
    emit haveFormats();
}

void Downloader::fillFormatAudio()
{
    if (!audioFormats.isEmpty())
        return;
    audioFormats = DownloaderRules::audioFormatLabels();
}
