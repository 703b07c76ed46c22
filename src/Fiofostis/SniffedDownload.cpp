#include "Fiofostis/SniffedDownload.h"

#include "Fiofostis/DownloaderRules.h"
#include "Platform/Platform.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>
#include <QProcess>

#include <utility>

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
    const QStringList args{address, QStringLiteral("-o"), transferPath(), QStringLiteral("--format"),
                           QStringLiteral("0")};
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
    discard();
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
    if (exitCode == 0 && QFile::exists(transferPath())) {
        if (!audioOnly) {
            removePartialFiles();
            emit finished(true, QString());
            return;
        }
        // The sound alone, as for the audio of a site's download.
        converting = true;
        QStringList args{QStringLiteral("-v"), QStringLiteral("error")};
        args << DownloaderRules::ffmpegArguments(transferPath(), path, Downloader::fromAudioExtraction);
        run(DownloaderRules::ffmpegPath(QCoreApplication::applicationDirPath(), Platform::ffmpegBuild()), args);
        return;
    }
    fail(exitCode, DownloaderRules::toolComplaint(errorOutput, exitCode));
}

void SniffedDownload::endConversion(int exitCode)
{
    if (exitCode == 0 && QFile::exists(path)) {
        removePartialFiles();
        emit finished(true, QString());
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
    discard();
    emit finished(false, message);
}

void SniffedDownload::discard() const
{
    removePartialFiles();
    if (converting)
        QFile::remove(path);
}

void SniffedDownload::removePartialFiles() const
{
    QFile::remove(transferPath() + QStringLiteral(".part"));
    QFile::remove(transferPath() + QStringLiteral(".ytdl"));
    if (audioOnly)
        QFile::remove(transferPath());
}

QString SniffedDownload::transferPath() const
{
    return audioOnly ? path + QStringLiteral(".media") : path;
}
