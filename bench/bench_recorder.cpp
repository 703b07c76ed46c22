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

// Where the flash is seen and the beep begins in `file`, in milliseconds on
// its own time line (NaN for one missing); `sinceFirstFrame` counts the
// flash from the first frame rather than from the time line's zero.
struct Marks
{
    double flash = qQNaN(), beep = qQNaN();
};
Marks marks(const QString &ffmpeg, const QString &file, bool sinceFirstFrame = false)
{
    const QString said = run(ffmpeg, {"-i", file, "-vf", "signalstats,metadata=print:key=lavfi.signalstats.YAVG", "-af",
                                      "silencedetect=n=-30dB:d=0.1", "-f", "null", "-"});
    Marks found;
    double first = qQNaN();
    auto frame = QRegularExpression("pts_time:([\\d.]+)\\s*\\n.*YAVG=([\\d.]+)").globalMatch(said);
    while (frame.hasNext() && qIsNaN(found.flash)) {
        const auto m = frame.next();
        if (qIsNaN(first))
            first = sinceFirstFrame ? m.captured(1).toDouble() : 0;
        if (m.captured(2).toDouble() > 128)
            found.flash = (m.captured(1).toDouble() - first) * 1000.0;
    }
    // The silence ends where the beep begins, and starts again after it.
    const auto beep = QRegularExpression("silence_end: ([\\d.]+)[\\s\\S]*silence_start").match(said);
    if (beep.hasMatch())
        found.beep = beep.captured(1).toDouble() * 1000.0;
    return found;
}

// How much later the beep is heard than the flash is seen in `file`.
double beepLateMs(const QString &ffmpeg, const QString &file)
{
    const Marks m = marks(ffmpeg, file);
    return m.beep - m.flash;
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
    // keeps its own pace unless a listener asks for short ones. The listener
    // also notes when the beep reaches the sound server: the moment against
    // which the recorder's estimate of the sound's start is checked.
    QProcess listener;
    qint64 heardAt = 0;
    bool listening = false;
    QObject::connect(&listener, &QProcess::readyReadStandardOutput, [&] {
        const qint64 now = QDateTime::currentMSecsSinceEpoch();
        const QByteArray pcm = listener.readAllStandardOutput();
        const auto *samples = reinterpret_cast<const qint16 *>(pcm.constData());
        const int count = pcm.size() / 2;
        for (int i = 0; listening && heardAt == 0 && i < count; ++i) {
            if (qAbs(samples[i]) > 3000)
                heardAt = now - (count - i) / 48;
        }
    });
    listener.start("parec",
                   {"--latency-msec=10", "-d", "speakers.monitor", "--format=s16le", "--rate=48000", "--channels=1"});
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
    int recordings = 0, shifted = 0;
    // The first recording on a fresh sound server is not counted: its null
    // output is still settling on short periods.
    for (int i = -1; i < runs; ++i) {
        AVRecorder recorder(nullptr, QCoreApplication::applicationDirPath(), temp);
        recorder.startRecorder(full);
        recorder.clickButtonStart();
        Bench::spin([&] { return recorder.pictureStartedMs() > 0; });
        // The flash comes 1.5 s into the picture, however late its start is learnt.
        Bench::spin([&] { return QDateTime::currentMSecsSinceEpoch() >= recorder.pictureStartedMs() + 1500; });
        screen.white = true;
        screen.repaint();
        // A pixel read back: the X server has drawn the flash once it answers.
        QGuiApplication::primaryScreen()->grabWindow(0, 0, 0, 1, 1);
        const qint64 flashAt = QDateTime::currentMSecsSinceEpoch();
        heardAt = 0;
        listening = true;
        speaker.beep(300);
        wait(400);
        screen.white = false;
        screen.repaint();
        Bench::spin([&] { return QDateTime::currentMSecsSinceEpoch() >= recorder.pictureStartedMs() + 3000; });

        // The beep may reach a fresh sound server late: it is listened for
        // until the recording ends.
        const qint64 stoppedAt = QDateTime::currentMSecsSinceEpoch();
        listening = false;
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

        // The frames in the result against the time from the picture's start
        // to Stop. ffmpeg goes on grabbing until it has read its quit key:
        // the frames after Stop are not counted.
        const double length = (stoppedAt - recorder.pictureStartedMs()) / 1000.0;
        const QString counted =
            run(ffmpeg, {"-t", QString::number(length, 'f', 3), "-i", result, "-map", "0:v", "-f", "null", "-"});
        auto counts = QRegularExpression("frame=\\s*(\\d+)").globalMatch(counted);
        double frames = 0;
        while (counts.hasNext())
            frames = counts.next().captured(1).toDouble();

        // The same recording merged plainly, as it was grabbed.
        const QString plain = temp + "/plain.mpg";
        run(ffmpeg, RecorderRules::mergeArguments(recorder.videoWorkFile(), recorder.audioWorkFile(), plain, 0));
        const double late = beepLateMs(ffmpeg, result), plainLate = beepLateMs(ffmpeg, plain);
        const qint64 shift = RecorderRules::audioShift(recorder.pictureStartedMs(), recorder.soundStartedMs());
        // The moments picture and sound really began, from where the flash
        // and the beep lie in the work files: the flash was painted at
        // `flashAt` (and grabbed within a frame after), the beep reached the
        // sound server at `heardAt`.
        const double pictureBegan = flashAt - marks(ffmpeg, recorder.videoWorkFile(), true).flash;
        const double soundBegan = heardAt > 0 ? heardAt - marks(ffmpeg, recorder.audioWorkFile()).beep : qQNaN();
        for (const QString &f :
             {recorder.audioWorkFile(), recorder.videoWorkFile(), result, temp + "/direct.mpg", plain})
            QFile::remove(f);
        ++recordings;
        if (shift != 0)
            ++shifted;
        const QString lineUp =
            QString("the beep heard %1 ms after the flash is seen (%2 ms merged plainly); the sound shifted %3 ms; "
                    "its start estimated %4 ms after the picture's, measured %5 ms (picture's start off by %6 ms, "
                    "sound's by %7 ms; the beep reached the sound server %8 ms after the flash was painted)")
                .arg(late, 0, 'f', 0)
                .arg(plainLate, 0, 'f', 0)
                .arg(shift)
                .arg(recorder.soundStartedMs() - recorder.pictureStartedMs())
                .arg(soundBegan - pictureBegan, 0, 'f', 0)
                .arg(recorder.pictureStartedMs() - pictureBegan, 0, 'f', 0)
                .arg(recorder.soundStartedMs() - soundBegan, 0, 'f', 0)
                .arg(heardAt > 0 ? QString::number(heardAt - flashAt) : QString("no"));
        if (i < 0) {
            out << "fresh sound server: " << lineUp << "\n";
            continue;
        }
        fps << frames / length;
        stopRatio << stopMs / directMs;
        if (!qIsNaN(late))
            offset << late;
        if (!qIsNaN(plainLate))
            plainOffset << plainLate;
        out << QString("run %1: %2 frames in %3 s (%4 fps); stop to ready %5 ms, direct %6 ms; %7\n")
                   .arg(i + 1)
                   .arg(frames)
                   .arg(length, 0, 'f', 3)
                   .arg(frames / length, 0, 'f', 2)
                   .arg(stopMs, 0, 'f', 0)
                   .arg(directMs, 0, 'f', 0)
                   .arg(lineUp);
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
    out << QString("recorder: the sound shifted in %1 of %2 recordings (the fresh sound server's included)\n")
               .arg(shifted)
               .arg(recordings);
    const bool ok = qAbs(medianFps - 30) <= 0.5 && medianStop <= 1.1 && medianOffset <= 40;
    return ok ? 0 : 1;
}
