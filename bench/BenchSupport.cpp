#include "BenchSupport.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>
#include <cstdio>

#include <signal.h>

namespace Bench {

namespace {
constexpr int timeoutMs = 10 * 60 * 1000;
}

QTextStream &out()
{
    static QTextStream stream(stdout);
    return stream;
}

bool spin(const std::function<bool()> &done)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
    }
    return true;
}

void usePrivateHome(const QString &home)
{
    qputenv("HOME", home.toLocal8Bit());
    qputenv("XDG_DATA_HOME", (home + "/share").toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (home + "/config").toLocal8Bit());
    qputenv("XDG_CACHE_HOME", (home + "/cache").toLocal8Bit());
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
}

double seconds(const QElapsedTimer &clock)
{
    return clock.nsecsElapsed() / 1e9;
}

QProcess *startDirect(const QString &program, const QStringList &args)
{
    auto *p = new QProcess;
    p->setStandardOutputFile(QProcess::nullDevice());
    p->setStandardErrorFile(QProcess::nullDevice());
    p->start(program, args);
    return p;
}

bool finishedOk(QProcess *p)
{
    return p->state() == QProcess::NotRunning;
}

double median(QList<double> v)
{
    std::sort(v.begin(), v.end());
    const int n = v.size();
    return n % 2 ? v.at(n / 2) : (v.at(n / 2 - 1) + v.at(n / 2)) / 2;
}

double measure(const char *name, const Pair &pair, int runs)
{
    // One pair first to warm caches; not counted.
    pair.engine();
    pair.between();
    pair.direct();
    pair.between();
    QList<double> engineTimes, directTimes, ratios;
    for (int i = 0; i < runs; ++i) {
        double e, d;
        if (i % 2 == 0) {
            e = pair.engine();
            pair.between();
            d = pair.direct();
        } else {
            d = pair.direct();
            pair.between();
            e = pair.engine();
        }
        pair.between();
        engineTimes << e;
        directTimes << d;
        ratios << e / d;
        out() << QStringLiteral("  %1 run %2: engine %3 s, direct %4 s\n")
                     .arg(QLatin1String(name))
                     .arg(i + 1)
                     .arg(e, 0, 'f', 3)
                     .arg(d, 0, 'f', 3);
        out().flush();
    }
    // The ratio is taken within each pair, so that a change of load on the
    // machine between pairs does not count against either side.
    const double me = median(engineTimes), md = median(directTimes);
    const double ratio = median(ratios);
    out() << QStringLiteral("%1: engine %2 s, direct %3 s, ratio %4 (median of %5 paired runs; "
                            "ratio of the medians %6)\n")
                 .arg(QLatin1String(name))
                 .arg(me, 0, 'f', 3)
                 .arg(md, 0, 'f', 3)
                 .arg(ratio, 0, 'f', 3)
                 .arg(runs)
                 .arg(me / md, 0, 'f', 3);
    out().flush();
    return ratio;
}

double titleAndFormatsDirect(const QString &launcher, const QString &page)
{
    QElapsedTimer clock;
    clock.start();
    QProcess *t = startDirect(launcher, {QStringLiteral("--get-title"), QStringLiteral("--get-duration"), page});
    QProcess *f = startDirect(launcher, {QStringLiteral("--list-formats"), page});
    spin([&] { return finishedOk(t) && finishedOk(f); });
    const double s = seconds(clock);
    delete t;
    delete f;
    return s;
}

namespace {
QString launcherState;

QList<qint64> helperPids()
{
    QList<qint64> pids;
    for (const QString &name : QDir(launcherState).entryList({QStringLiteral("helper-*.pid")})) {
        QFile f(launcherState + QLatin1Char('/') + name);
        if (f.open(QIODevice::ReadOnly))
            pids << f.readAll().trimmed().toLongLong();
    }
    return pids;
}

// Processor time of a process so far, in clock ticks (utime + stime).
qint64 cpuTicks(qint64 pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray text = stat.readAll();
    const QList<QByteArray> rest = text.mid(text.lastIndexOf(')') + 2).split(' ');
    return rest.value(11).toLongLong() + rest.value(12).toLongLong();
}
} // namespace

void useLauncherState(const QString &dir)
{
    launcherState = dir;
    qputenv("VIDORRA_RUN_DIR", QFile::encodeName(dir));
}

void forgetLauncherState(bool index)
{
    for (qint64 pid : helperPids())
        if (pid > 0)
            ::kill(pid_t(pid), SIGKILL);
    QDir(launcherState).removeRecursively();
    if (index)
        QDir(qEnvironmentVariable("XDG_CACHE_HOME") + QStringLiteral("/vidorra2")).removeRecursively();
}

long launcherHelperKb()
{
    const QList<qint64> pids = helperPids();
    QFile status(QStringLiteral("/proc/%1/status").arg(pids.value(0)));
    if (pids.isEmpty() || !status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    return 0;
}

void waitForIdleHelper()
{
    QElapsedTimer clock;
    clock.start();
    qint64 before = -2;
    while (clock.elapsed() < 30000) {
        const QList<qint64> pids = helperPids();
        const qint64 now = pids.isEmpty() ? -1 : cpuTicks(pids.first());
        if (now >= 0 && now == before)
            return;
        before = now;
        QThread::msleep(300);
    }
}

double dumpJsonDirect(const QString &url)
{
    QElapsedTimer clock;
    clock.start();
    // The program's own copy of the tool when the benchmark gave it one.
    const QString own = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                        QStringLiteral("/Vidorra 2/tools/yt-dlp");
    QProcess *p = startDirect(QFile::exists(own) ? own : QStringLiteral("yt-dlp"), {QStringLiteral("-J"), url});
    spin([&] { return finishedOk(p); });
    const double s = seconds(clock);
    if (p->exitCode() != 0)
        out() << "  (yt-dlp -J failed)\n";
    delete p;
    return s;
}

QString startMediaServer(QProcess &server, const QString &dir)
{
    server.start(QStringLiteral("/usr/bin/python3"),
                 {QStringLiteral(VIDORRA_SOURCE_DIR "/tests/fixtures/media_server.py"), dir, QStringLiteral("0")});
    if (!server.waitForReadyRead(15000))
        return QString();
    const int port = QString::fromLatin1(server.readLine()).trimmed().mid(5).toInt();
    return QStringLiteral("http://127.0.0.1:%1/").arg(port);
}

void parseArguments(const QStringList &args, QString *mediaDir, int *runs)
{
    for (int i = 1; i + 1 < args.size(); ++i) {
        if (args.at(i) == QLatin1String("--media"))
            *mediaDir = args.at(++i);
        else if (args.at(i) == QLatin1String("--runs"))
            *runs = std::max(5, args.at(++i).toInt());
    }
}

QString serveMedia(QProcess &server, const QStringList &args, const QString &needed, const char *usage,
                   QString *mediaDir, int *runs, int *exitCode)
{
    parseArguments(args, mediaDir, runs);
    if (mediaDir->isEmpty() || !QFile::exists(*mediaDir + QLatin1Char('/') + needed)) {
        std::fprintf(stderr, "usage: %s\n", usage);
        *exitCode = 2;
        return QString();
    }
    const QString base = startMediaServer(server, *mediaDir);
    if (base.isEmpty()) {
        std::fprintf(stderr, "the media server did not start\n");
        *exitCode = 1;
    }
    return base;
}

} // namespace Bench
