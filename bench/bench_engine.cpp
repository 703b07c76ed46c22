// Times the engine's jobs against the same tools run directly with the same
// arguments, on media served on 127.0.0.1. Each figure is the median of
// paired runs (engine and direct back to back, the order alternating).
//
// bench_engine --media DIR [--runs N]
//   DIR holds watch.html and big.mp4 (tests/fixtures/make_media.sh DIR --big 200).
// The executable lies in a folder with "run" (the real launcher) and
// "ffmpeg9_311"/"ffmpeg7_311" beside it, as the program's own folder has.
#include "Fiofostis/Downloader.h"
#include "Fiofostis/DownloaderRules.h"
#include "Platform/Platform.h"

#include "BenchSupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QTextStream>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <functional>

#include <unistd.h>

using namespace Bench;

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    // The engine's log lines would only compete with the figures.
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false\ndefault.critical=false"));
    QString mediaDir;
    int runs = 5;
    int exitCode = 0;
    QProcess server;
    const QString base =
        serveMedia(server, app.arguments(), QStringLiteral("big.mp4"),
                   "bench_engine --media DIR [--runs N]  (DIR with watch.html, big.mp4)", &mediaDir, &runs, &exitCode);
    if (base.isEmpty())
        return exitCode;
    const QString page = base + QStringLiteral("watch.html");
    const QString bigUrl = base + QStringLiteral("big.mp4");
    const QString work = mediaDir + QStringLiteral("/work");
    QDir().mkpath(work);

    Downloader downloader;
    const QString launcher = downloader.binDL;
    out() << "launcher: " << launcher << "\nmedia: " << base << "\n";
    out().flush();

    // (a) title and format list together.
    // Every run asks for an address of its own: nothing the launcher kept
    // is used again.
    int asked = 0;
    QString fresh;
    Pair options;
    options.engine = [&] {
        Downloader d;
        QUrl url(fresh);
        d.setURL(&url);
        bool title = false, formats = false;
        QObject::connect(&d, &Downloader::haveTitle, [&] { title = true; });
        QObject::connect(&d, &Downloader::haveFormats, [&] { formats = true; });
        QElapsedTimer clock;
        clock.start();
        d.getOptions();
        spin([&] { return title && formats; });
        return seconds(clock);
    };
    options.direct = [&] { return titleAndFormatsDirect(launcher, fresh); };
    options.between = [&] { fresh = page + QStringLiteral("?options=%1").arg(++asked); };
    options.between();

    // (b) a download of the big file.
    const QString target = work + QStringLiteral("/big download.mp4");
    Pair download;
    download.engine = [&] {
        Downloader d;
        QUrl url(bigUrl);
        d.setURL(&url);
        bool done = false;
        QObject::connect(&d, &Downloader::haveFile, [&] { done = true; });
        QElapsedTimer clock;
        clock.start();
        d.requestFile(0, target);
        spin([&] { return done || (d.processFile && finishedOk(d.processFile)); });
        const double s = seconds(clock);
        if (!done)
            out() << "  (engine download failed)\n";
        return s;
    };
    download.direct = [&] {
        QElapsedTimer clock;
        clock.start();
        QProcess *p = startDirect(
            launcher, {bigUrl, QStringLiteral("-o"), target, QStringLiteral("--format"), QStringLiteral("0")});
        spin([&] { return finishedOk(p); });
        const double s = seconds(clock);
        if (p->exitCode() != 0)
            out() << "  (direct download failed)\n";
        delete p;
        return s;
    };
    download.between = [&] { QFile::remove(target); };

    // (h) from the download button to the first progress figure, for a
    // format just listed (the Options page was shown a moment before):
    // the engine against the tool started directly with the arguments the
    // launcher used to hand it (before it kept the tool loaded and the
    // listed information).
    useLauncherState(work + QStringLiteral("/run"));
    const QString small = work + QStringLiteral("/clip download.mp4");
    int address = 0;
    QString listed;
    Pair progress;
    progress.engine = [&] {
        Downloader d;
        QUrl url(listed);
        d.setURL(&url);
        bool first = false;
        QObject::connect(&d, &Downloader::percent, [&] { first = true; });
        QElapsedTimer clock;
        clock.start();
        d.requestFile(0, small);
        spin([&] { return first || (d.processFile && finishedOk(d.processFile)); });
        const double s = seconds(clock);
        if (!first)
            out() << "  (no progress from the engine)\n";
        spin([&] { return !d.processFile || finishedOk(d.processFile); });
        return s;
    };
    progress.direct = [&] {
        QElapsedTimer clock;
        clock.start();
        QProcess *p = new QProcess;
        p->setStandardErrorFile(QProcess::nullDevice());
        p->start(QStringLiteral("yt-dlp"),
                 {"--ignore-config", "--no-colors", "--no-warnings", "--no-playlist", "--playlist-items", "1",
                  "--newline", "--quiet", "--progress", "--force-overwrites", "--no-mtime", "--format", "0/b/b*",
                  "--output", small, "--", listed});
        QByteArray seen;
        spin([&] {
            seen += p->readAllStandardOutput();
            return seen.contains('%') || finishedOk(p);
        });
        const double s = seconds(clock);
        if (!seen.contains('%'))
            out() << "  (no progress from the tool)\n";
        p->waitForFinished(-1);
        delete p;
        return s;
    };
    progress.between = [&] {
        // The next address is listed as the Options page would, and the
        // helper has settled, as while the user picks a format.
        QFile::remove(small);
        listed = page + QStringLiteral("?run=%1").arg(++address);
        Downloader d;
        QUrl url(listed);
        d.setURL(&url);
        bool title = false, formats = false;
        QObject::connect(&d, &Downloader::haveTitle, [&] { title = true; });
        QObject::connect(&d, &Downloader::haveFormats, [&] { formats = true; });
        d.getOptions();
        spin([&] { return title && formats; });
        waitForIdleHelper();
    };

    // (c) the audio of the big file extracted, as after an audio download.
    const QString input = work + QStringLiteral("/downloaded.mp4");
    const QString audio = work + QStringLiteral("/extracted.mp3");
    const QString ffmpeg = DownloaderRules::ffmpegPath(QCoreApplication::applicationDirPath(), Platform::ffmpegBuild());
    auto freshInput = [&] {
        // A hard link: the extraction removes its input, the original stays.
        QFile::remove(input);
        QFile::remove(audio);
        const QString original = mediaDir + QStringLiteral("/big.mp4");
        if (::link(QFile::encodeName(original).constData(), QFile::encodeName(input).constData()) != 0)
            QFile::copy(original, input);
    };
    Pair conversion;
    conversion.engine = [&] {
        Downloader d;
        bool done = false;
        QObject::connect(&d, &Downloader::doneExtractAudio, [&] { done = true; });
        QObject::connect(&d, &Downloader::hasError, [&] { done = true; });
        QElapsedTimer clock;
        clock.start();
        d.formatConverting(input, audio, Downloader::fromAudioExtraction);
        spin([&] { return done; });
        return seconds(clock);
    };
    conversion.direct = [&] {
        QElapsedTimer clock;
        clock.start();
        QProcess *p =
            startDirect(ffmpeg, DownloaderRules::ffmpegArguments(input, audio, Downloader::fromAudioExtraction));
        spin([&] { return finishedOk(p); });
        const double s = seconds(clock);
        delete p;
        return s;
    };
    conversion.between = freshInput;

    QList<double> ratios;
    ratios << measure("(a) title + formats", options, runs);
    download.between();
    ratios << measure("(b) download 200 MB", download, runs);
    freshInput();
    ratios << measure("(c) audio extraction", conversion, runs);
    progress.between();
    const double firstProgress = measure("(h) download button to the first progress figure", progress, runs);
    forgetLauncherState();
    QFile::remove(input);
    QFile::remove(audio);
    QFile::remove(target);

    server.closeWriteChannel();
    server.waitForFinished(5000);
    const bool ok = std::all_of(ratios.begin(), ratios.end(), [](double r) { return r <= 1.05; }) &&
                    firstProgress < 1.0;
    out() << (ok ? "all ratios within 1.05, and the first progress figure comes sooner than before\n"
                 : "some ratio above 1.05, or the first progress figure no sooner than before\n");
    return ok ? 0 : 1;
}
