#pragma once

#include <QObject>
#include <QString>

class QProcess;

// One transfer of a sniffed media address into a file the user chose, run
// by the downloader tool as for a download of the site's format 0; for an
// audio save ffmpeg then takes the sound out of what came. Ends in
// finished(): with success only when the file is complete; after a failure
// or a stop nothing of the file is left.
class SniffedDownload : public QObject
{
    Q_OBJECT

public:
    SniffedDownload(const QString &address, const QString &path, bool audioOnly, QObject *parent = nullptr);
    ~SniffedDownload() override;

    void start();
    // Ends the transfer at once and removes what it had written; no signal.
    void stop();
    bool isRunning() const
    {
        return process != nullptr;
    }

    const QString address;
    const QString path;
    const bool audioOnly;

signals:
    // `message` is the tool's own word on a failure.
    void finished(bool ok, const QString &message);

private:
    void run(const QString &program, const QStringList &args);
    void end(int exitCode);
    void endConversion(int exitCode);
    void fail(int exitCode, const QString &message);
    // Everything this save wrote: the tool's partial files and, once
    // ffmpeg runs, its output.
    void discard() const;
    void removePartialFiles() const;
    // Where the tool writes: the chosen file, or beside it while the sound
    // is still to be taken out.
    QString transferPath() const;

    QProcess *process = nullptr;
    bool converting = false;
    QByteArray errorOutput;
};
