#include "TestSupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTimer>

TestHome::TestHome()
{
    const QString home = dir.path();
    QDir(home).mkpath(QStringLiteral(".local/share"));
    QDir(home).mkpath(QStringLiteral(".config"));
    QDir(home).mkpath(QStringLiteral("Documents"));
    QDir(home).mkpath(QStringLiteral("Desktop"));
    QDir(home).mkpath(QStringLiteral("Music"));
    QDir(home).mkpath(QStringLiteral("Videos"));
    qputenv("HOME", home.toLocal8Bit());
    qputenv("XDG_DATA_HOME", (home + QStringLiteral("/.local/share")).toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (home + QStringLiteral("/.config")).toLocal8Bit());
    qunsetenv("XDG_DOCUMENTS_DIR");
}

QString TestHome::dataFolder() const
{
    return dir.path() + QStringLiteral("/.local/share/Vidorra 2");
}

QString TestHome::documentsFolder() const
{
    return dir.path() + QStringLiteral("/Documents");
}

QString toolFolder()
{
    return QCoreApplication::applicationDirPath();
}

void answerNextModal(std::function<void(QWidget *)> action, int timeoutMs)
{
    auto *timer = new QTimer;
    auto *clock = new QElapsedTimer;
    clock->start();
    timer->setInterval(50);
    QObject::connect(timer, &QTimer::timeout, [timer, clock, action, timeoutMs]() {
        QWidget *modal = QApplication::activeModalWidget();
        if (!modal && clock->elapsed() < timeoutMs)
            return;
        timer->stop();
        timer->deleteLater();
        delete clock;
        if (modal)
            action(modal);
    });
    timer->start();
}

bool waitFor(std::function<bool()> condition, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QTest::qWait(10);
    }
    return true;
}

bool makeClip(const QString &path, double seconds, bool withVideo)
{
    QStringList args{QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                     QStringLiteral("-y")};
    const QString duration = QString::number(seconds);
    if (withVideo)
        args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i")
             << QStringLiteral("testsrc=size=160x120:rate=15:duration=") + duration;
    args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i")
         << QStringLiteral("sine=frequency=440:duration=") + duration;
    if (withVideo)
        args << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-pix_fmt")
             << QStringLiteral("yuv420p");
    args << QStringLiteral("-c:a") << QStringLiteral("aac") << QStringLiteral("-shortest") << path;
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"), args);
    return ffmpeg.waitForFinished(60000) && ffmpeg.exitStatus() == QProcess::NormalExit
           && ffmpeg.exitCode() == 0;
}
