// The screen recorder against its parts run directly, on a real X server and
// a private sound server:
//  - frames per second in the result of a full-screen recording (target 30);
//  - Stop to the recording ready, against the 2 s pause plus the same merge
//    run directly (target at most 1.1);
//  - picture against sound: the screen flashes white while a beep plays;
//    how much later the beep is heard than the flash is seen (target 40 ms).
#include <QApplication>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QPainter>
#include <QProcess>
#include <QRegularExpression>
#include <QScreen>
#include <QTemporaryDir>
#include <QTimer>
#include <QtMath>

#include <sys/stat.h>

#include "AVRecorder/AVRecorder.h"
#include "AVRecorder/RecorderRules.h"
#include "BenchSupport.h"
#include "Fiofostis/DownloaderRules.h"
#include "Platform/Platform.h"

namespace {

// Plays into the sound server without a gap: silence, or a 1 kHz beep, fed
// as the clock runs so that nothing waits in a buffer.
class Speaker : public QObject
{
public:
    // `fifo` is a named pipe the player reads: written to directly, nothing
    // waits in a buffer of ours.
    Speaker(const QString &sink, const QString &fifo)
    {
        ::mkfifo(fifo.toLocal8Bit().constData(), 0600);
        player.setProcessChannelMode(QProcess::ForwardedChannels);
        player.start("pacat", {"--playback", "-d", sink, "--format=s16le", "--rate=48000", "--channels=1",
                               "--latency-msec=10", fifo});
        pipe.setFileName(fifo);
        pipe.open(QIODevice::WriteOnly | QIODevice::Unbuffered);
        clock.start();
        connect(&feed, &QTimer::timeout, this, [this] { write(); });
        feed.start(5);
    }
    ~Speaker() override
    {
        player.kill();
        player.waitForFinished();
    }
    void beep(int ms)
    {
        beepUntil = clock.elapsed() + ms;
    }
    bool running()
    {
        return player.state() == QProcess::Running && pipe.isOpen();
    }

private:
    void write()
    {
        const qint64 due = clock.elapsed() * 48 + 480; // 10 ms ahead
        // Time the program spent elsewhere is skipped, not caught up on: the
        // player would be behind by that much ever after.
        written = qMax(written, due - 960);
        QByteArray pcm;
        for (; written < due; ++written) {
            const bool on = written / 48 < beepUntil;
            const qint16 sample = on ? qint16(12000 * qSin(2 * M_PI * 1000 * written / 48000.0)) : 0;
            pcm.append(reinterpret_cast<const char *>(&sample), 2);
        }
        pipe.write(pcm);
    }
    QProcess player;
    QFile pipe;
    QTimer feed;
    QElapsedTimer clock;
    qint64 written = 0;
    qint64 beepUntil = 0;
};

class Screen : public QWidget
{
public:
    bool white = false;

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter(this).fillRect(rect(), white ? Qt::white : Qt::black);
    }
};

QString run(const QString &program, const QStringList &args)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    p.waitForFinished(120000);
    return QString::fromUtf8(p.readAll());
}

// How much later the beep is heard than the flash is seen in `file`, on its
// own time line (NaN when either is missing).
double beepLateMs(const QString &ffmpeg, const QString &file)
{
    const QString marks = run(ffmpeg, {"-i", file, "-vf", "signalstats,metadata=print:key=lavfi.signalstats.YAVG",
                                       "-af", "silencedetect=n=-30dB:d=0.1", "-f", "null", "-"});
    double flashAt = qQNaN();
    auto frame = QRegularExpression("pts_time:([\\d.]+)\\s*\\n.*YAVG=([\\d.]+)").globalMatch(marks);
    while (frame.hasNext() && qIsNaN(flashAt)) {
        const auto m = frame.next();
        if (m.captured(2).toDouble() > 128)
            flashAt = m.captured(1).toDouble();
    }
    // The silence ends where the beep begins, and starts again after it.
    const auto beep = QRegularExpression("silence_end: ([\\d.]+)[\\s\\S]*silence_start").match(marks);
    return beep.hasMatch() ? (beep.captured(1).toDouble() - flashAt) * 1000.0 : qQNaN();
}

void wait(int ms)
{
    QElapsedTimer t;
    t.start();
    Bench::spin([&] { return t.elapsed() >= ms; });
}

} // namespace

int main(int argc, char **argv)
{
    QTemporaryDir home, runtime;
    Bench::usePrivateHome(home.path());
    qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    QApplication app(argc, argv);
    int runs = 5;
    const QStringList args = app.arguments();
    if (args.size() > 2 && args[1] == "--runs")
        runs = qMax(1, args[2].toInt());
    QTextStream &out = Bench::out();
    if (!Platform::screenCaptureProblem(QGuiApplication::platformName()).isEmpty()) {
        out << "bench_recorder: needs an X display (xvfb-run -s \"-screen 0 1440x900x24\")\n";
        return 2;
    }
    // X11's grab or, in a Wayland session, the desktop's ScreenCast portal.
    out << "bench_recorder: the screen grabbed through " << Platform::screenGrabFormat() << "\n";

    QProcess server;
    server.start("pulseaudio", {"-n", "--daemonize=no", "--exit-idle-time=-1", "--disable-shm=yes", "-L",
                                "module-native-protocol-unix", "-L", "module-null-sink sink_name=speakers"});
    if (!Bench::spin([] { return run("pactl", {"info"}).contains("Default Sink: speakers"); })) {
        out << "bench_recorder: the sound server did not start\n";
        return 2;
    }
    // A sound card's output is taken in short periods; the null output
    // keeps its own pace unless a listener asks for short ones.
    QProcess listener;
    listener.setStandardOutputFile(QProcess::nullDevice());
    listener.start("parec", {"--latency-msec=10", "-d", "speakers.monitor"});
    Speaker speaker("speakers", runtime.path() + "/speaker");
    Screen screen;
    screen.setWindowFlags(Qt::FramelessWindowHint);
    const QRect full = QGuiApplication::primaryScreen()->geometry();
    screen.setGeometry(full);
    screen.show();
    wait(500);
    if (!speaker.running()) {
        out << "bench_recorder: pacat did not start\n";
        return 2;
    }

    const QString temp = home.path() + "/temp";
    QDir().mkpath(temp);
    const QString ffmpeg = DownloaderRules::ffmpegPath(QCoreApplication::applicationDirPath(), Platform::ffmpegBuild());
    QList<double> fps, stopRatio, offset, plainOffset;
    // The first recording on a fresh sound server is not counted: its null
    // output is still settling on short periods.
    for (int i = -1; i < runs; ++i) {
        AVRecorder recorder(nullptr, QCoreApplication::applicationDirPath(), temp);
        recorder.startRecorder(full);
        recorder.clickButtonStart();
        Bench::spin([&] { return recorder.pictureStartedMs() > 0; });
        wait(1500);
        screen.white = true;
        screen.repaint();
        speaker.beep(300);
        wait(400);
        screen.white = false;
        screen.repaint();
        Bench::spin([&] { return QDateTime::currentMSecsSinceEpoch() >= recorder.pictureStartedMs() + 3000; });

        const qint64 stoppedAt = QDateTime::currentMSecsSinceEpoch();
        QElapsedTimer stopClock;
        stopClock.start();
        recorder.stop();
        const double stopMs = stopClock.elapsed();
        const QString result = recorder.resultWorkFile();

        // The same merge, run directly.
        const QStringList merge = RecorderRules::mergeArguments(
            recorder.videoWorkFile(), recorder.audioWorkFile(), temp + "/direct.mpg",
            RecorderRules::audioShift(recorder.pictureStartedMs(), recorder.soundStartedMs()));
        QElapsedTimer mergeClock;
        mergeClock.start();
        run(ffmpeg, merge);
        const double directMs = 2000.0 + mergeClock.elapsed();

        // The frames in the result against the time the picture was grabbed.
        const QString info = run("ffprobe", {"-v", "error", "-count_frames", "-select_streams", "v", "-show_entries",
                                             "stream=nb_read_frames", "-of", "default=nw=1:nk=1", result});
        const double frames = info.trimmed().toDouble();
        const double length = (stoppedAt - recorder.pictureStartedMs()) / 1000.0;

        // The same recording merged plainly, as it was grabbed.
        const QString plain = temp + "/plain.mpg";
        run(ffmpeg, RecorderRules::mergeArguments(recorder.videoWorkFile(), recorder.audioWorkFile(), plain, 0));
        const double late = beepLateMs(ffmpeg, result), plainLate = beepLateMs(ffmpeg, plain);
        const qint64 shift = RecorderRules::audioShift(recorder.pictureStartedMs(), recorder.soundStartedMs());
        for (const QString &f :
             {recorder.audioWorkFile(), recorder.videoWorkFile(), result, temp + "/direct.mpg", plain})
            QFile::remove(f);
        if (i < 0)
            continue;
        fps << frames / length;
        stopRatio << stopMs / directMs;
        if (!qIsNaN(late))
            offset << late;
        if (!qIsNaN(plainLate))
            plainOffset << plainLate;
        out << QString(
                   "run %1: %2 frames in %3 s (%4 fps); stop to ready %5 ms, direct %6 ms; the beep heard %7 ms after "
                   "the flash is seen (%8 ms merged plainly); the sound shifted %9 ms\n")
                   .arg(i + 1)
                   .arg(frames)
                   .arg(length, 0, 'f', 3)
                   .arg(frames / length, 0, 'f', 2)
                   .arg(stopMs, 0, 'f', 0)
                   .arg(directMs, 0, 'f', 0)
                   .arg(late, 0, 'f', 0)
                   .arg(plainLate, 0, 'f', 0)
                   .arg(shift);
        out.flush();
    }
    listener.kill();
    listener.waitForFinished();
    server.terminate();
    server.waitForFinished(10000);

    QList<double> absOffset;
    for (double o : offset)
        absOffset << qAbs(o);
    const double medianFps = Bench::median(fps), medianStop = Bench::median(stopRatio);
    const double medianOffset = absOffset.isEmpty() ? 1e9 : Bench::median(absOffset);
    const double medianPlain = plainOffset.isEmpty() ? qQNaN() : Bench::median(plainOffset);
    out << QString("recorder: %1 fps (target 30 +- 0.5); stop to ready / (2 s + merge run directly) = %2 (target <= "
                   "1.1); picture to sound offset |median| %3 ms (target <= 40; a plain merge: %4 ms)\n")
               .arg(medianFps, 0, 'f', 2)
               .arg(medianStop, 0, 'f', 3)
               .arg(medianOffset, 0, 'f', 0)
               .arg(medianPlain, 0, 'f', 0);
    const bool ok = qAbs(medianFps - 30) <= 0.5 && medianStop <= 1.1 && medianOffset <= 40;
    return ok ? 0 : 1;
}
