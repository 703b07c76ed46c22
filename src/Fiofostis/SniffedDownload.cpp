#include "Fiofostis/SniffedDownload.h"

#include "Fiofostis/DownloaderRules.h"

#include <QCoreApplication>
#include <QDebug>
#include <QFile>
#include <QProcess>

#include <utility>

SniffedDownload::SniffedDownload(const QString &address, const QString &path, QObject *parent)
    : QObject(parent)
    , address(address)
    , path(path)
{
}

SniffedDownload::~SniffedDownload()
{
    stop();
}

void SniffedDownload::start()
{
    const QStringList args{address, QStringLiteral("-o"), path, QStringLiteral("--format"), QStringLiteral("0")};
    qDebug() << "src/Fiofostis/SniffedDownload.cpp" << __LINE__ << "start"
             << ":"
             << "Download file"
             << ":" << args;
    process = new QProcess(this);
    // Progress is not shown for these; the tool's complaints are.
    process->setStandardOutputFile(QProcess::nullDevice());
    connect(process, &QProcess::readyReadStandardError, this,
            [this] { errorOutput += process->readAllStandardError().right(16384); });
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this](int exitCode, QProcess::ExitStatus status) { end(status == QProcess::NormalExit ? exitCode : -1); });
    connect(process, &QProcess::errorOccurred, this, [this](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart)
            QMetaObject::invokeMethod(
                this, [this] { end(127); }, Qt::QueuedConnection);
    });
    process->start(DownloaderRules::launcherPath(QCoreApplication::applicationDirPath()), args, QIODevice::ReadOnly);
}

void SniffedDownload::stop()
{
    QProcess *child = std::exchange(process, nullptr);
    if (!child)
        return;
    disconnect(child, nullptr, this, nullptr);
    child->kill();
    child->waitForFinished(5000);
    delete child;
    // Only what the tool had written so far: a file the user chose to
    // replace stays until the new one is complete.
    removePartialFiles();
}

void SniffedDownload::end(int exitCode)
{
    QProcess *child = std::exchange(process, nullptr);
    if (!child)
        return;
    errorOutput += child->readAllStandardError();
    child->deleteLater();
    if (exitCode == 0 && QFile::exists(path)) {
        removePartialFiles();
        emit finished(true, QString());
        return;
    }
    qCritical() << "!!! ERROR: "
                << "src/Fiofostis/SniffedDownload.cpp" << __LINE__ << "end"
                << ":"
                << "exitCode"
                << ":" << exitCode;
    removePartialFiles();
    emit finished(false, DownloaderRules::toolComplaint(errorOutput, exitCode));
}

void SniffedDownload::removePartialFiles() const
{
    QFile::remove(path + QStringLiteral(".part"));
    QFile::remove(path + QStringLiteral(".ytdl"));
}
