// A soak: 200 downloads in a row through one engine from 127.0.0.1 (every
// second one also has its sound extracted, as an audio download has), then
// 200 reports added to the sniffed list and removed again. Prints resident
// memory after the 20th and after the last step, and the open files and
// children left at the end; exit 1 when memory grew more than 10 % or
// anything was left behind.
//
// bench_soak --media DIR   (DIR from tests/fixtures/make_media.sh)
#include <QApplication>
#include <QDate>
#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QTemporaryDir>

#include "BenchSupport.h"
#include "Fiofostis/Downloader.h"
#include "Sniffer/Sniffer.h"

using namespace Bench;

namespace {

// Resident memory in kB, from /proc/self/status.
long residentKb()
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLong();
    }
    return -1;
}

int openFiles()
{
    return int(QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).size());
}

// Processes whose parent is this one, but for `except`.
QStringList children(qint64 except)
{
    QStringList found;
    const QString self = QString::number(QCoreApplication::applicationPid());
    for (const QString &pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        QFile stat(QStringLiteral("/proc/") + pid + QStringLiteral("/stat"));
        if (pid.toLongLong() == except || !stat.open(QIODevice::ReadOnly))
            continue;
        // "pid (name) state ppid ...": the name may hold blanks.
        const QByteArray text = stat.readAll();
        const QList<QByteArray> rest = text.mid(text.lastIndexOf(')') + 2).split(' ');
        if (rest.value(1) == self.toLatin1())
            found << pid + QStringLiteral(" ") + QString::fromLatin1(text.left(text.indexOf(')') + 1));
    }
    return found;
}

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir home;
    usePrivateHome(home.path());
    QApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false\ndefault.warning=false"));
    QString mediaDir;
    int runs = 5, exitCode = 0; // runs is not used: the soak has its own count
    QProcess server;
    const QString base = serveMedia(server, app.arguments(), QStringLiteral("clip.mp4"),
                                    "bench_soak --media DIR  (DIR with clip.mp4)", &mediaDir, &runs, &exitCode);
    if (base.isEmpty())
        return exitCode;
    QTemporaryDir work, state;
    useLauncherState(state.path() + QStringLiteral("/run"));
    long helper20 = 0, helperEnd = 0; // the launcher's helper serves every download
    struct Half
    {
        const char *name;
        long after20 = 0, atEnd = 0;
        int files20 = 0, filesEnd = 0;
        void note(int i)
        {
            if (i == 20) {
                after20 = residentKb();
                files20 = openFiles();
            } else if (i == 200) {
                atEnd = residentKb();
                filesEnd = openFiles();
            }
        }
        bool flat() const
        {
            return atEnd <= after20 * 1.1 && filesEnd <= files20;
        }
    } downloads{"downloads"}, reports{"list reports"};
    int failures = 0;

    Downloader engine;
    const QUrl clip(base + QStringLiteral("clip.mp4"));
    for (int i = 1; i <= 200; ++i) {
        bool done = false, failed = false;
        const QString video = work.filePath(QStringLiteral("clip %1.mp4").arg(i));
        auto file = QObject::connect(&engine, &Downloader::haveFile, [&] {
            if (i % 2)
                return void(done = true);
            engine.formatConverting(video, work.filePath(QStringLiteral("clip %1.mp3").arg(i)),
                                    Downloader::fromAudioExtraction);
        });
        auto sound = QObject::connect(&engine, &Downloader::doneExtractAudio, [&] { done = true; });
        auto error = QObject::connect(&engine, &Downloader::hasError, [&] { failed = true; });
        QUrl url(clip);
        engine.setURL(&url);
        engine.requestFile(0, video);
        if (!spin([&] { return done || failed; }) || failed)
            ++failures;
        for (const auto &c : {file, sound, error})
            QObject::disconnect(c);
        for (const QString &name : QDir(work.path()).entryList(QDir::Files))
            QFile::remove(work.filePath(name));
        downloads.note(i);
        if (i == 20 || i == 200)
            (i == 20 ? helper20 : helperEnd) = launcherHelperKb();
    }

    // Today's update check counts as done: no job of the window's own runs
    // beside the reports.
    const QString data = qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Vidorra 2");
    QDir().mkpath(data);
    QFile settings(data + QStringLiteral("/sniffer.ini"));
    if (settings.open(QIODevice::WriteOnly))
        settings.write(QStringLiteral("[General]\nlast_update=%1\n").arg(QDate::currentDate().dayOfYear()).toUtf8());
    settings.close();
    Sniffer sniffer;
    sniffer.start();
    for (int i = 1; i <= 200; ++i) {
        sniffer.Append(base + QStringLiteral("media/%1.mp4").arg(i), base, QString::number(500000 + i),
                       QStringLiteral("video/mp4"));
        sniffer.RefreshList();
        QCoreApplication::processEvents();
        sniffer.RemoveAt(0);
        sniffer.RefreshList();
        QCoreApplication::processEvents();
        reports.note(i);
    }
    const QStringList left = children(server.processId());

    out() << QString("soak: %1 of 200 downloads failed\n").arg(failures);
    for (const Half &half : {downloads, reports})
        out() << QString("  %1: resident memory %2 kB after the 20th, %3 kB after the 200th (%4 %); open files %5 "
                         "then %6\n")
                     .arg(half.name)
                     .arg(half.after20)
                     .arg(half.atEnd)
                     .arg(100.0 * (half.atEnd - half.after20) / half.after20, 0, 'f', 1)
                     .arg(half.files20)
                     .arg(half.filesEnd);
    out() << QString("  the launcher's helper: resident memory %1 kB after the 20th download, %2 kB after the 200th\n")
                 .arg(helper20)
                 .arg(helperEnd);
    forgetLauncherState();
    out() << "  children left: " << (left.isEmpty() ? QStringLiteral("none") : left.join(QStringLiteral(", "))) << "\n";
    server.terminate();
    server.waitForFinished(5000);
    const bool helperFlat = helperEnd <= helper20 * 1.1;
    return failures == 0 && downloads.flat() && reports.flat() && helperFlat && left.isEmpty() ? 0 : 1;
}
