// Conversions through the real ffmpeg ("ffmpeg9_311" beside this test), checked with ffprobe, and their clean-up.
#include "Fiofostis/Downloader.h"
#include "TestSupport.h"

#include <sys/stat.h>

class TestConversion : public QObject
{
    Q_OBJECT

    QTemporaryDir work;
    QString clip;

    // A fresh copy of the clip in the work folder.
    QString input(const QString &name)
    {
        QFile::remove(work.filePath(name));
        QFile::copy(clip, work.filePath(name));
        return work.filePath(name);
    }
    QStringList events;
    // Starts a conversion; what the engine says goes to `events`.
    void start(Downloader &d, const QString &in, const QString &out, int kind)
    {
        events.clear();
        connect(&d, &Downloader::doneExtractAudio, this, [this] { events << "done"; });
        connect(&d, &Downloader::hasError, this,
                [this](Downloader::errors e) { events << QString("error %1").arg(e); });
        d.formatConverting(in, out, Downloader::FormatConvertingFrom(kind));
    }
    // Runs one conversion to its end; what the engine said.
    QStringList convert(Downloader &d, const QString &in, const QString &out, int kind)
    {
        start(d, in, out, kind);
        waitFor([this] { return !events.isEmpty(); }, 60000);
        QTest::qWait(100);
        return events;
    }

private slots:
    void initTestCase()
    {
        clip = work.filePath("source.mp4");
        QVERIFY(makeClip(clip, 1.0, true));
    }

    void targets_data()
    {
        QTest::addColumn<QString>("output");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("expected");
        auto row = [](const QString &output, int kind, const QString &expected) {
            QTest::newRow(qPrintable(output)) << output << kind << expected;
        };
        // Video: a recording's conversion (1, input kept), a download in another container (2, download removed).
        for (const char *output : {"out.mp4", "out.m4v", "out.mov"})
            row(output, 1, "mpeg4=video");
        row("out.flv", 1, "flv1=video");
        row("out.mkv", 2, "mpeg4=video");
        // The audio of a download (kind 0, download removed) is the sound alone; a recording's WAV too.
        for (const QString audio :
             {"mp3 mp3", "m4a aac", "aiff pcm_s16be", "wma wmav2", "flac flac", "aac aac", "ogg vorbis"})
            row("out." + audio.section(' ', 0, 0), 0, audio.section(' ', 1) + "=audio");
        row("out.wav", 1, "pcm_s16le=audio");
    }
    void targets()
    {
        QFETCH(QString, output);
        QFETCH(int, kind);
        QFETCH(QString, expected);
        const QString in = input("My Video.mp4"), target = work.filePath(output);
        QFile::remove(target);
        Downloader d;
        QCOMPARE(convert(d, in, target, kind), QStringList{"done"});
        // A video keeps whatever audio codec ffmpeg picks; an audio file holds exactly one stream.
        const QString found = streams(target);
        if (expected.contains("video"))
            QVERIFY2(found.contains(expected) && found.contains("=audio"), qPrintable(found));
        else
            QCOMPARE(found, expected);
        QCOMPARE(QFile::exists(in), kind == 1);
        QVERIFY(d.step == Downloader::stepIdle && !d.processFFmpeg); // the finished ffmpeg let go
        QCOMPARE(d.options->steps, QList<Downloader::steps>{Downloader::stepConverting});
    }

    void failures_data()
    {
        // ffmpeg reads "file:X" as X, the engine literally: such an output is never found, such an input never removed.
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("to");
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("expected");
        auto row = [](const char *name, const char *from, const char *to, int kind, const char *expected) {
            QTest::newRow(name) << from << to << kind << expected;
        };
        row("not media", "text", "out.mp3", 0, "error 5");
        row("audio file not found", "clip", "file:out.mp3", 0, "error 6");
        row("video cannot be removed", "file:clip", "out.mp3", 0, "error 7");
    }
    void failures()
    {
        QFETCH(QString, from);
        QFETCH(QString, to);
        QFETCH(int, kind);
        QFETCH(QString, expected);
        const QString video = input("input.mp4");
        if (from == "text") {
            QFile file(video);
            QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write("plain text") > 0);
        }
        const QString audio = work.filePath(to.section(':', -1));
        QFile::remove(audio);
        Downloader d;
        QCOMPARE(convert(d, from.startsWith("file:") ? "file:" + video : video,
                         to.startsWith("file:") ? "file:" + audio : audio, kind),
                 QStringList{expected});
        QVERIFY2(QFile::exists(video), "a failed conversion keeps the downloaded video");
        QVERIFY(d.options->steps.isEmpty());
        QVERIFY(d.step == Downloader::stepIdle && !d.processFFmpeg); // the finished ffmpeg let go
        // Errors 6 and 7 come after ffmpeg wrote the audio file.
        if (expected != "error 5")
            QCOMPARE(streams(audio), QString("mp3=audio"));
    }

    void stopRemovesInputAndOutputOnly()
    {
        // ffmpeg waits for a writer on a named pipe until stopped; a file named "-i" in the working folder stays.
        const QString pipe = work.filePath("live.nut"), output = work.filePath("live.mkv");
        QFile::remove(pipe);
        QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
        QFile(output).open(QIODevice::WriteOnly);
        const QString previousFolder = QDir::currentPath();
        QDir::setCurrent(work.path());
        QFile("-i").open(QIODevice::WriteOnly);

        Downloader d;
        start(d, pipe, output, Downloader::fromAudioExtraction);
        QVERIFY(waitFor([&] { return d.processFFmpeg->state() == QProcess::Running; }, 10000));
        QTest::qWait(300);
        const qint64 pid = d.processFFmpeg->processId();
        d.stop();
        const bool dashKept = QFile::exists("-i");
        QDir::setCurrent(previousFolder);
        QVERIFY2(!alive(pid), "ffmpeg still runs");
        QVERIFY(!QFile::exists(pipe) && !QFile::exists(output) && dashKept);
        d.stop();
        QTest::qWait(200);
        QCOMPARE(events, QStringList());
        QCOMPARE(d.step, Downloader::stepConverting);
    }
};

VIDORRA_TEST_MAIN(TestConversion)
#include "tst_conversion.moc"
