#include "Fiofostis/Downloader.h"

#include "Fiofostis/DownloaderRules.h"
#include "Platform/Platform.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>

#include <utility>

namespace {

// A child that never started reports no exit code of its own; the job takes
// the shell's "cannot run" code so that its failure path runs as for any
// failed run.
constexpr int notStartedExitCode = 127;

const char *const errorTailProperty = "errorTail";

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

// Children still running are ended with the engine (they are its QObject
// children); what they leave on disk is for stop() to clear first.
Downloader::~Downloader()
{
    delete options;
}

bool Downloader::setURL(QUrl *address)
{
    if (!address || address->isEmpty() || !address->isValid())
        return false;
    url = address->toString();
    return true;
}

void Downloader::getOptions()
{
    signInAsked = false;
    requestTitle();
    requestFormats();
}

void Downloader::stop()
{
    // Every job ends, the address queries too: a cancelled address must not
    // answer later. Safe to call any number of times.
    for (QProcess **child :
         {&processTitle, &processFormats, &processUpdate, &processTest, &processFile, &processFFmpeg})
        endChild(*child);
    if (step == stepFile) {
        QFile::remove(partFile);
    } else if (step == stepConverting) {
        // The download the conversion read and what ffmpeg had written of
        // its output; nothing else.
        QFile::remove(ffmpegArgs.value(1));
        QFile::remove(ffmpegArgs.last());
    }
}

QProcess *Downloader::startChild(const QString &program, const QStringList &arguments, void (Downloader::*readSlot)(),
                                 void (Downloader::*doneSlot)(int))
{
    auto *process = new Platform::ChildProcess(this);
    connect(process, &QProcess::readyReadStandardOutput, this, readSlot);
    connect(process, &QProcess::readyReadStandardError, this, [this, process] { readErrors(process); });
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this, doneSlot);
    // QProcess never sends finished for a program that did not start; without
    // this the window would wait for the job forever.
    // The end is reported from the event loop, once the job holds the child;
    // a child stopped in the meantime reports nothing.
    connect(process, &QProcess::errorOccurred, this, [this, process, doneSlot](QProcess::ProcessError error) {
        if (error != QProcess::FailedToStart)
            return;
        QMetaObject::invokeMethod(
            this,
            [this, process, doneSlot]() {
                if (holdsChild(process))
                    (this->*doneSlot)(notStartedExitCode);
            },
            Qt::QueuedConnection);
    });
    process->start(program, arguments, QIODevice::ReadWrite);
    return process;
}

QProcess *Downloader::endedChild(QProcess *current) const
{
    auto *ended = qobject_cast<QProcess *>(sender());
    return ended ? ended : current;
}

void Downloader::releaseEndedChild(QProcess *&field)
{
    QProcess *ended = endedChild(field);
    if (!ended)
        return;
    if (ended == field)
        field = nullptr;
    ended->deleteLater();
}

void Downloader::endChild(QProcess *&field)
{
    QProcess *child = std::exchange(field, nullptr);
    if (!child)
        return;
    disconnect(child, nullptr, this, nullptr);
    // Gone, with what it started, before its files are removed, so nothing
    // writes them again.
    static_cast<Platform::ChildProcess *>(child)->endGroup();
    child->deleteLater();
}

bool Downloader::holdsChild(const QProcess *child) const
{
    for (const QProcess *held : {processTitle, processFormats, processUpdate, processTest, processFile, processFFmpeg})
        if (held == child)
            return true;
    return false;
}

QByteArray Downloader::readErrors(QProcess *child)
{
    if (!child)
        return {};
    const QByteArray tail =
        (child->property(errorTailProperty).toByteArray() + child->readAllStandardError()).right(16384);
    child->setProperty(errorTailProperty, tail);
    float figure = 0;
    QString name;
    if (child == processUpdate && DownloaderRules::updateProgress(tail, &figure, &name))
        emit updateProgress(figure, name);
    return tail;
}

void Downloader::keepComplaint(const QByteArray &errors, int exitCode)
{
    lastComplaint = DownloaderRules::toolComplaint(errors, exitCode);
    qCritical() << "!!! ERROR: "
                << "the downloader said" << QString::fromUtf8(errors).trimmed();
}

void Downloader::askSignIn()
{
    if (signInAsked)
        return;
    signInAsked = true;
    emit signInNeeded();
}
