#pragma once

// What the benchmarks share: paired runs of the program's way against the
// tool run directly, medians and ratios, and the media server on 127.0.0.1.

#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTextStream>

#include <functional>

class QElapsedTimer;

namespace Bench {

QTextStream &out();

// Runs the event loop until `done` holds; false on time-out.
bool spin(const std::function<bool()> &done);
double seconds(const QElapsedTimer &clock);

// The tool started directly: a plain child with its output thrown away.
QProcess *startDirect(const QString &program, const QStringList &args);
bool finishedOk(QProcess *p);
double median(QList<double> v);

struct Pair
{
    std::function<double()> engine;
    std::function<double()> direct;
    std::function<void()> between;
};

// Runs one warm-up pair and `runs` counted pairs, the order alternating;
// prints every pair and the medians; returns the median of the per-pair
// ratios (program / direct).
double measure(const char *name, const Pair &pair, int runs);

// The two launcher runs the Options page waits for (title and format list),
// started directly at the same moment; the time until both have ended.
double titleAndFormatsDirect(const QString &launcher, const QString &page);

// Starts tests/fixtures/media_server.py on `dir`; returns the base address
// ("http://127.0.0.1:PORT/") or an empty string.
QString startMediaServer(QProcess &server, const QString &dir);

// The launcher keeps the tool's information and its helper in a folder of
// its own (VIDORRA_RUN_DIR). useLauncherState() points it into `dir`;
// forgetLauncherState() stops the helper there and empties the folder, as
// on a computer where the launcher has not run for a while; with `index`,
// the helper's index of the tool's extractors (in the private home's cache
// folder) goes too, as after an update of the tool.
void useLauncherState(const QString &dir);
void forgetLauncherState(bool index = false);
// Resident memory of the launcher's helper in kB (0 when there is none).
long launcherHelperKb();
// Waits until the helper of the launcher state has started and is idle (it
// loads the rest of the tool after its first run), at most 30 s.
void waitForIdleHelper();

// `yt-dlp -J URL`, as other programs ask the tool once per address: the
// time until it ends.
double dumpJsonDirect(const QString &url);

// Points HOME and the XDG folders into `home`, so the program's settings and
// data never touch the user's, and runs the window offscreen unless told.
void usePrivateHome(const QString &home);

// "--media DIR" and "--runs N" (at least 5).
void parseArguments(const QStringList &args, QString *mediaDir, int *runs);

// Reads the arguments, checks that DIR holds `needed`, and serves DIR on
// 127.0.0.1. Returns the base address; on failure prints `usage` or the
// reason and returns an empty text with *exitCode set.
QString serveMedia(QProcess &server, const QStringList &args, const QString &needed, const char *usage,
                   QString *mediaDir, int *runs, int *exitCode);

} // namespace Bench
