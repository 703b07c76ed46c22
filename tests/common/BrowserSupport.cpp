#include "BrowserSupport.h"

#include "TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <csignal>

QString Browser::executable()
{
    // Debian's own binary, without the flags its wrapper script adds.
    const QString debian = QStringLiteral("/usr/lib/chromium/chromium");
    return QFileInfo(debian).isExecutable() ? debian : QStandardPaths::findExecutable(QStringLiteral("chromium"));
}

QStringList Browser::arguments(const QString &url) const
{
    // --no-sandbox: tests may run as root.
    return QStringLiteral("--no-sandbox --no-first-run --no-default-browser-check --disable-gpu "
                          "--disable-background-networking --disable-component-update --disable-sync "
                          "--disable-quic --disable-dev-shm-usage --password-store=basic "
                          "--disable-features=DisableLoadExtensionCommandLineSwitch")
               .split(QLatin1Char(' '))
           << QStringLiteral("--user-data-dir=") + profile
           << QStringLiteral("--load-extension=" VIDORRA_SOURCE_DIR "/extension") << url;
}

bool Browser::start(const QString &profileFolder, const QString &url)
{
    profile = profileFolder;
    QDir().mkpath(profile);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardOutputFile(profile + QStringLiteral("/test-chromium.log"));
    // In a session of its own, so that stop() reaches every process it starts.
    process.start(QStringLiteral("setsid"), QStringList(executable()) + arguments(url));
    session = process.waitForStarted() ? process.processId() : 0;
    return session > 0;
}

bool Browser::open(const QString &url)
{
    // A second start on the same profile hands the address to the running one.
    const QString singleton = profile + QStringLiteral("/SingletonSocket");
    if (!waitFor([&] { return QFileInfo::exists(singleton) || process.state() != QProcess::Running; }, 30000) ||
        process.state() != QProcess::Running)
        return false;
    QProcess second;
    second.start(executable(), arguments(url));
    return second.waitForFinished(30000) && second.exitCode() == 0;
}

void Browser::stop()
{
    if (session <= 0)
        return;
    ::kill(-session, SIGTERM);
    process.waitForFinished(10000);
    ::kill(-session, SIGKILL); // what is left: renderers, the host
    process.waitForFinished(5000);
    session = 0;
}

QString Browser::log() const
{
    QFile file(profile + QStringLiteral("/test-chromium.log"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll().right(4000)) : QString();
}

bool makeWebmClip(const QString &path, int seconds)
{
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"),
                 QStringLiteral("-loglevel error -y -f lavfi -i testsrc=size=320x240:rate=25 "
                                "-f lavfi -i sine=frequency=440 -t %1 -vf noise=alls=30:allf=t "
                                "-c:v libvpx -b:v 1M -c:a libvorbis")
                         .arg(seconds)
                         .split(QLatin1Char(' '))
                     << path);
    return ffmpeg.waitForFinished(120000) && ffmpeg.exitStatus() == QProcess::NormalExit && ffmpeg.exitCode() == 0;
}
