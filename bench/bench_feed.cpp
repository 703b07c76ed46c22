// Times the feed from the browser's side to the list: a native-messaging
// frame written to the host's standard input until its row is shown in the
// sniffed list of the running window (offscreen), one frame at a time, then
// a burst of 100 frames written at once.
//
// bench_feed --host PATH [--frames N]
// Runs in a private home; PATH is the native messaging host
// (vidorra2-sniffer-host) of a build.
#include "BenchSupport.h"

#include <QApplication>
#include <QDate>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QListWidget>
#include <QLoggingCategory>
#include <QSettings>
#include <QTemporaryDir>
#include <QtEndian>

#include <algorithm>

#include "Sniffer/Sniffer.h"
#include "ui_OldSniffer.h"

using namespace Bench;

namespace {

QByteArray frame(int n)
{
    const QJsonObject report{{"url", QStringLiteral("https://media.example/clip-%1.mp4").arg(n)},
                             {"source", QStringLiteral("https://page.example/watch")},
                             {"size", 100000 + n},
                             {"type", QStringLiteral("video/mp4")}};
    const QByteArray json = QJsonDocument(report).toJson(QJsonDocument::Compact);
    const quint32 length = json.size(); // the browser writes it in the machine's own order
    return QByteArray(reinterpret_cast<const char *>(&length), 4) + json;
}

double percentile(QList<double> v, double p)
{
    std::sort(v.begin(), v.end());
    return v.at(std::min(int(v.size() * p), v.size() - 1));
}

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir home;
    usePrivateHome(home.path());
    QApplication app(argc, argv);
    Q_INIT_RESOURCE(vidorra);
    if (!qEnvironmentVariableIsSet("VIDORRA_BENCH_LOG"))
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.warning=false\ndefault.critical=false"));

    const QStringList args = app.arguments();
    const QString hostPath = args.value(args.indexOf("--host") + 1);
    const int frames = args.contains("--frames") ? args.value(args.indexOf("--frames") + 1).toInt() : 100;
    if (!args.contains("--host") || hostPath.isEmpty() || frames < 10) {
        out() << "usage: bench_feed --host PATH [--frames N]   (N at least 10)\n";
        return 2;
    }

    // Today's update of the downloader counts as done: its notice would wait for a click.
    QSettings(home.path() + QStringLiteral("/share/Vidorra 2/sniffer.ini"), QSettings::IniFormat)
        .setValue(QStringLiteral("last_update"), QDate::currentDate().dayOfYear());
    Sniffer sniffer;
    sniffer.start();
    sniffer.runOldSniffer();
    QProcess host;
    host.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    host.start(hostPath, {"chrome-extension://bench/"});
    if (!host.waitForStarted(10000)) {
        out() << "the host did not start: " << host.errorString() << "\n";
        return 1;
    }

    int sent = 0;
    auto listed = [&](int n) { return sniffer.sniffedSequence >= n; };
    // One warm-up frame opens the host's connection to the window.
    host.write(frame(++sent));
    if (!spin([&] { return listed(sent); })) {
        out() << "the first report never reached the list\n";
        return 1;
    }

    QList<double> latencies;
    for (int i = 0; i < frames; ++i) {
        QElapsedTimer clock;
        clock.start();
        host.write(frame(++sent));
        spin([&] { return listed(sent) && sniffer.uiOldSniffer->mediaList->count() > 0; });
        latencies << clock.nsecsElapsed() / 1e6;
    }
    QElapsedTimer burstClock;
    burstClock.start();
    QByteArray burst;
    for (int i = 0; i < frames; ++i)
        burst += frame(++sent);
    host.write(burst);
    spin([&] { return listed(sent); });
    const double burstMs = burstClock.nsecsElapsed() / 1e6;

    const double p95 = percentile(latencies, 0.95);
    out() << QString::asprintf("(e) frame to row, %d frames: median %.1f ms, 95th percentile %.1f ms, "
                               "slowest %.1f ms\n",
                               frames, median(latencies), p95, percentile(latencies, 1.0));
    out() << QString::asprintf("(f) burst of %d frames to the last row: %.1f ms (%.1f ms per frame)\n", frames, burstMs,
                               burstMs / frames);
    out() << (p95 < 300 ? "95th percentile under 300 ms\n" : "95th percentile at or above 300 ms\n");
    out().flush();
    host.closeWriteChannel();
    host.waitForFinished(10000);
    return p95 < 300 ? 0 : 1;
}
