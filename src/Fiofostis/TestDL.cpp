#include "Fiofostis/Downloader.h"

#include "Fiofostis/DownloaderRules.h"

#include <QDebug>

void Downloader::testIt(QString address, QString expectedTitle)
{
    testData.clear();
    testData << address << expectedTitle;
    // The self-test shares the title query's line list and starts it empty.
    titleLines.clear();
    const QStringList args{QStringLiteral("--get-title"), address};
    qDebug() << "src/Fiofostis/TestDL.cpp" << 19 << "testIt"
             << ":"
             << "Start with arguments"
             << ":" << args;
    processTest = startChild(binDL, args, &Downloader::testRead, &Downloader::testResult);
}

void Downloader::testRead()
{
    testData << DownloaderRules::chunkText(endedChild(processTest)->readAllStandardOutput());
}

void Downloader::testResult(int exitCode)
{
    releaseEndedChild(processTest);
    if (exitCode != 0) {
        qCritical() << "!!! ERROR: "
                    << "src/Fiofostis/TestDL.cpp" << 31 << "testResult"
                    << ":"
                    << "exitCode"
                    << ":" << exitCode;
        emit hasError(errorTestRun);
        return;
    }
    // The raw first chunk is compared, not the cleaned title: the tool must
    // print the title exactly as it was recorded.
    if (testData.value(1) == testData.value(2)) {
        emit testOK();
        return;
    }
    // 111 marks a mismatch in the log where a failed run has its exit code.
    qCritical() << "!!! ERROR: "
                << "src/Fiofostis/TestDL.cpp" << 37 << "testResult"
                << ":"
                << "exitCode"
                << ":" << 111;
    emit hasError(errorTestTitle);
}
