#include "Fiofostis/SniffedDownload.h"

#include "Fiofostis/DownloaderRules.h"
#include "Platform/Platform.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFileInfo>
#include <QProcess>

#include <utility>

namespace {
QString notWritable()
{
    return QStringLiteral("The file cannot be written in that folder.");
}
} // namespace

SniffedDownload::SniffedDownload(const QString &address, const QString &path, bool audioOnly, QObject *parent)
    : QObject(parent)
    , address(address)
    , path(path)
    , audioOnly(audioOnly)
{
}

SniffedDownload::~SniffedDownload()
{
    stop();
}

void SniffedDownload::start()
{
    transfer = files.create(path, audioOnly ? QStringLiteral("media") : QFileInfo(path).suffix());
    if (transfer.isEmpty()) {
        QMetaObject::invokeMethod(
            this, [this] { fail(-1, notWritable()); }, Qt::QueuedConnection);
        return;
    }
    const QStringList args{address, QStringLiteral("-o"), transfer, QStringLiteral("--format"), QStringLiteral("0")};
    qDebug() << "src/Fiofostis/SniffedDownload.cpp" << __LINE__ << "start"
             << ":"
             << "Download file"
             << ":" << args;
    run(DownloaderRules::launcherPath(QCoreApplication::applicationDirPath()), args);
}

void SniffedDownload::run(const QString &program, const QStringList &args)
{
    errorOutput.clear();
    process = new Platform::ChildProcess(this);
    // Progress is not shown for these; the tools' complaints are.
    process->setStandardOutputFile(QProcess::nullDevice());
    connect(process, &QProcess::readyReadStandardError, this,
            [this] { errorOutput = (errorOutput + process->readAllStandardError()).right(16384); });
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this](int exitCode, QProcess::ExitStatus status) { end(status == QProcess::NormalExit ? exitCode : -1); });
    connect(process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            QMetaObject::invokeMethod(
                this, [this] { end(127); }, Qt::QueuedConnection);
    });
    process->start(program, args, QIODevice::ReadOnly);
}

void SniffedDownload::stop()
{
    QProcess *child = std::exchange(process, nullptr);
    if (!child)
        return;
    disconnect(child, nullptr, this, nullptr);
    static_cast<Platform::ChildProcess *>(child)->endGroup();
    delete child;
    files.removeCreated();
}

void SniffedDownload::end(int exitCode)
{
    QProcess *child = std::exchange(process, nullptr);
    if (!child)
        return;
    errorOutput += child->readAllStandardError();
    child->deleteLater();
    if (converting) {
        endConversion(exitCode);
        return;
    }
    // The work file is there from the start: only what the tool wrote counts.
    if (exitCode == 0 && QFileInfo(transfer).size() > 0) {
        if (!audioOnly) {
            finish(transfer);
            return;
        }
        // The sound alone, as for the audio of a site's download.
        converting = true;
        output = files.create(path, QFileInfo(path).suffix());
        if (output.isEmpty()) {
            fail(-1, notWritable());
            return;
        }
        QStringList args{QStringLiteral("-v"), QStringLiteral("error")};
        args << DownloaderRules::ffmpegArguments(transfer, output, Downloader::fromAudioExtraction);
        run(DownloaderRules::ffmpegPath(QCoreApplication::applicationDirPath(), Platform::ffmpegBuild()), args);
        return;
    }
    fail(exitCode, DownloaderRules::toolComplaint(errorOutput, exitCode));
}

void SniffedDownload::endConversion(int exitCode)
{
    if (exitCode == 0 && QFileInfo(output).size() > 0) {
        finish(output);
        return;
    }
    const QString said = QString::fromUtf8(errorOutput).trimmed();
    fail(exitCode, said.isEmpty() ? QStringLiteral("ffmpeg ended with exit code %1.").arg(exitCode)
                                  : QStringLiteral("ffmpeg: ") + said.section(QLatin1Char('\n'), -3));
}

void SniffedDownload::fail(int exitCode, const QString &message)
{
    qCritical() << "!!! ERROR: "
                << "src/Fiofostis/SniffedDownload.cpp" << __LINE__ << "fail"
                << ":"
                << "exitCode"
                << ":" << exitCode << (converting ? "ffmpeg" : "downloader");
    files.removeCreated();
    emit finished(false, message);
}

void SniffedDownload::finish(const QString &work)
{
    const bool saved = files.commit(work, path);
    files.removeCreated();
    if (saved)
        emit finished(true, QString());
    else
        emit finished(false, notWritable());
}
