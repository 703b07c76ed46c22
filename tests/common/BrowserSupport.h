#pragma once

#include <QProcess>
#include <QString>

// Chromium on the display, with the repository's browser add-on, on a
// profile folder; stop() (and the destructor) ends all its processes, the
// add-on's native messaging host too.
class Browser
{
public:
    ~Browser()
    {
        stop();
    }
    static QString executable(); // empty when Chromium is not installed
    bool start(const QString &profile, const QString &url);
    // Opens `url` in a new tab of the running browser.
    bool open(const QString &url);
    void stop();
    QString log() const; // the end of what Chromium printed

private:
    QStringList arguments(const QString &url) const;
    QProcess process;
    QString profile;
    qint64 session = 0; // Chromium's process id, and that of its session
};

// A WebM clip (VP8, Vorbis) of a few hundred kilobytes; false when ffmpeg failed.
bool makeWebmClip(const QString &path, int seconds = 3);
