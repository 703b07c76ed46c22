#include "Fiofostis/Downloader.h"

#include "Fiofostis/DownloaderRules.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>

namespace {

// A child that never started reports no exit code of its own; the job takes
// the shell's "cannot run" code so that its failure path runs as for any
// failed run.
constexpr int notStartedExitCode = 127;

} // namespace

Downloader::Downloader(QObject *parent)
    : QObject(parent)
    , options(new DownloaderOptions)
{
    binDL = DownloaderRules::launcherPath(QCoreApplication::applicationDirPath());
    if (QFile::exists(binDL))
        scriptSuffix = QStringLiteral(".sh");
    else
        emit hasError(errorNoLauncher); // nobody is connected yet; the queries fail later
}

// The children are not ours to kill, and the controller may still read the
// options record while it winds down.
Downloader::~Downloader() = default;

bool Downloader::setURL(QUrl *address)
{
    if (!address || address->isEmpty() || !address->isValid())
        return false;
    url = address->toString();
    return true;
}

void Downloader::getOptions()
{
    requestTitle();
    requestFormats();
}

void Downloader::stop()
{
    if (step == stepFile) {
        if (processFile) {
            processFile->disconnect();
            processFile->kill();
            processFile->deleteLater();
        }
        QFile::remove(partFile);
    } else if (step == stepConverting) {
        if (processFFmpeg) {
            processFFmpeg->disconnect();
            processFFmpeg->kill();
            processFFmpeg->deleteLater();
        }
        // Index 1 is the input, index 0 the "-i" before it: stopping throws
        // the input away and leaves the partial output.
        QFile::remove(ffmpegArgs.value(1));
        QFile::remove(ffmpegArgs.value(0));
    }
}

QProcess *Downloader::startChild(const QString &program, const QStringList &arguments, void (Downloader::*readSlot)(),
                                 void (Downloader::*doneSlot)(int))
{
    auto *process = new QProcess;
    connect(process, &QProcess::readyReadStandardOutput, this, readSlot);
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this, doneSlot);
    // QProcess never sends finished for a program that did not start; without
    // this the window would wait for the job forever.
    connect(process, &QProcess::errorOccurred, this, [this, doneSlot](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        QMetaObject::invokeMethod(
            this, [this, doneSlot]() { (this->*doneSlot)(notStartedExitCode); }, Qt::QueuedConnection);
    });
    process->start(program, arguments, QIODevice::ReadWrite);
    return process;
}

QProcess *Downloader::endedChild(QProcess *current) const
{
    auto *ended = qobject_cast<QProcess *>(sender());
    return ended ? ended : current;
}
