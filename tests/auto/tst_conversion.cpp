// Conversions through the real ffmpeg (the "ffmpeg9_311" beside this test),
// checked with ffprobe, and the clean-up rules around them.
#include "Fiofostis/Downloader.h"
#include "TestSupport.h"

#include <QSignalSpy>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// "video=mpeg4", "audio=aac", ... for every stream of `path`.
QStringList probe(const QString &path)
{
    QProcess ffprobe;
    ffprobe.start(QStringLiteral("ffprobe"),
                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
                   QStringLiteral("stream=codec_type,codec_name"), QStringLiteral("-of"), QStringLiteral("csv=p=0"),
                   path});
    if (!ffprobe.waitForFinished(30000) || ffprobe.exitCode() != 0)
        return {};
    QStringList streams;
    for (const QString &line : QString::fromUtf8(ffprobe.readAllStandardOutput()).split(QLatin1Char('\n'))) {
        const QStringList parts = line.trimmed().split(QLatin1Char(','));
        if (parts.size() == 2)
            streams << parts.at(1) + QLatin1Char('=') + parts.at(0);
    }
    return streams;
}

bool hasStream(const QStringList &streams, const QString &wanted)
{
    for (const QString &s : streams)
        if (s == wanted || s.startsWith(wanted + QLatin1Char('=')))
            return true;
    return false;
}

// Runs one conversion to its end and returns what the engine said.
QStringList convert(Downloader &d, const QString &input, const QString &output, Downloader::FormatConvertingFrom from)
{
    QStringList events;
    QObject context;
    QObject::connect(&d, &Downloader::doneExtractAudio, &context, [&] { events << QStringLiteral("done"); });
    QObject::connect(&d, &Downloader::hasError, &context,
                     [&](Downloader::errors e) { events << QStringLiteral("error %1").arg(e); });
    d.formatConverting(input, output, from);
    waitFor([&] { return !events.isEmpty(); }, 60000);
    QTest::qWait(100);
    return events;
}

bool processGone(qint64 pid)
{
    return waitFor([pid] { return ::kill(static_cast<pid_t>(pid), 0) != 0; }, 5000);
}

} // namespace

class TestConversion : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void targets_data();
    void targets();
    void ffmpegFails_data();
    void ffmpegFails();
    void audioFileMissing();
    void downloadCannotBeRemoved_data();
    void downloadCannotBeRemoved();
    void stopCancelsLongJobs();

private:
    QString freshInput(const QString &name);
    QTemporaryDir work;
    QString clip;
};

void TestConversion::initTestCase()
{
    QVERIFY(work.isValid());
    qRegisterMetaType<Downloader::errors>("Downloader::errors");
    clip = work.filePath(QStringLiteral("source.mp4"));
    QVERIFY(makeClip(clip, 1.0, true));
    QVERIFY(hasStream(probe(clip), QStringLiteral("video=h264")));
    QVERIFY(QFileInfo(QCoreApplication::applicationDirPath() + QStringLiteral("/ffmpeg9_311")).isExecutable());
}

QString TestConversion::freshInput(const QString &name)
{
    const QString path = work.filePath(name);
    QFile::remove(path);
    QFile::copy(clip, path);
    return path;
}

void TestConversion::targets_data()
{
    QTest::addColumn<QString>("output");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<QStringList>("absent");
    const QStringList none;
    // Video targets as a recording's conversion, which keeps its input.
    QTest::newRow("mp4") << "out.mp4" << 1 << QStringList{"video=mpeg4", "audio"} << none;
    QTest::newRow("m4v") << "out.m4v" << 1 << QStringList{"video=mpeg4", "audio"} << none;
    QTest::newRow("mkv") << "out.mkv" << 1 << QStringList{"video=mpeg4", "audio"} << none;
    QTest::newRow("flv") << "out.flv" << 1 << QStringList{"video=flv1", "audio"} << none;
    QTest::newRow("mov") << "out.mov" << 1 << QStringList{"video=mpeg4", "audio"} << none;
    // Capitals miss every row of the table: ffmpeg's own choice of codec.
    QTest::newRow("MP4 in capitals") << "out.MP4" << 1 << QStringList{"video=h264", "audio"} << none;
    // Audio targets as the audio download's extraction, which removes the
    // downloaded video.
    QTest::newRow("mp3") << "out.mp3" << 0 << QStringList{"audio=mp3"} << QStringList{"video"};
    QTest::newRow("m4a") << "out.m4a" << 0 << QStringList{"audio=aac"} << none;
    QTest::newRow("flac") << "out.flac" << 0 << QStringList{"audio=flac"} << QStringList{"video"};
    QTest::newRow("wav") << "out.wav" << 0 << QStringList{"audio=pcm_s16le"} << QStringList{"video"};
}

void TestConversion::targets()
{
    QFETCH(QString, output);
    QFETCH(int, kind);
    QFETCH(QStringList, present);
    QFETCH(QStringList, absent);
    const QString input = freshInput(QStringLiteral("My Video.mp4"));
    const QString target = work.filePath(output);
    QFile::remove(target);
    Downloader d;
    d.options->steps << Downloader::stepTitle << Downloader::stepFormats << Downloader::stepFile;
    d.step = Downloader::stepFile;
    const auto from = static_cast<Downloader::FormatConvertingFrom>(kind);
    QCOMPARE(convert(d, input, target, from), QStringList{"done"});

    const QStringList streams = probe(target);
    for (const QString &s : present)
        QVERIFY2(hasStream(streams, s), qPrintable(s + QStringLiteral(" in ") + streams.join(' ')));
    for (const QString &s : absent)
        QVERIFY2(!hasStream(streams, s), qPrintable(s + QStringLiteral(" in ") + streams.join(' ')));
    QCOMPARE(QFile::exists(input), kind == 1);
    QCOMPARE(d.step, Downloader::stepIdle);
    QCOMPARE(d.options->steps.last(), Downloader::stepConverting);
    QCOMPARE(d.options->steps.size(), 4);
}

void TestConversion::ffmpegFails_data()
{
    QTest::addColumn<QString>("inputText");
    QTest::addColumn<QString>("output");
    QTest::addColumn<int>("kind");
    QTest::newRow("not media") << "plain text, not a video"
                               << "out.mp3" << 0;
    QTest::newRow("not media, recording") << "plain text, not a video"
                                          << "out.mov" << 1;
    // With no extension ffmpeg cannot tell which container to write.
    QTest::newRow("output without extension") << ""
                                              << "out" << 0;
    QTest::newRow("missing input") << "-"
                                   << "out.mp3" << 0;
}

void TestConversion::ffmpegFails()
{
    QFETCH(QString, inputText);
    QFETCH(QString, output);
    QFETCH(int, kind);
    QString input = work.filePath(QStringLiteral("input.mp4"));
    QFile::remove(input);
    if (inputText.isEmpty()) {
        input = freshInput(QStringLiteral("input.mp4"));
    } else if (inputText != QLatin1String("-")) {
        QFile file(input);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(inputText.toUtf8());
    }
    Downloader d;
    QCOMPARE(convert(d, input, work.filePath(output), static_cast<Downloader::FormatConvertingFrom>(kind)),
             QStringList{"error 5"});
    QCOMPARE(d.step, Downloader::stepIdle);
    QVERIFY(d.options->steps.isEmpty());
    QCOMPARE(QFile::exists(input), inputText != QLatin1String("-"));
}

void TestConversion::audioFileMissing()
{
    // ffmpeg takes "file:" as its file protocol and writes the plain path;
    // the engine looks for a file literally named "file:...".
    const QString input = freshInput(QStringLiteral("video for protocol output.mp4"));
    const QString written = work.filePath(QStringLiteral("protocol.mp3"));
    QFile::remove(written);
    Downloader d;
    QCOMPARE(convert(d, input, QStringLiteral("file:") + written, Downloader::fromAudioExtraction),
             QStringList{"error 6"});
    QVERIFY(hasStream(probe(written), QStringLiteral("audio=mp3")));
    QVERIFY2(QFile::exists(input), "the video must stay when the audio file is not found");
    QVERIFY(d.options->steps.isEmpty());
    QCOMPARE(d.step, Downloader::stepIdle);
}

void TestConversion::downloadCannotBeRemoved_data()
{
    QTest::addColumn<bool>("lockedFolder");
    QTest::newRow("input in a locked folder") << true;
    QTest::newRow("input named by a protocol") << false;
}

void TestConversion::downloadCannotBeRemoved()
{
    QFETCH(bool, lockedFolder);
    const QString output = work.filePath(QStringLiteral("kept.mp3"));
    QFile::remove(output);
    QString input;
    QString onDisk;
    QString folder = work.filePath(QStringLiteral("locked"));
    bool immutable = false;
    if (lockedFolder) {
        QDir().mkpath(folder);
        onDisk = folder + QStringLiteral("/video.mp4");
        QFile::copy(clip, onDisk);
        input = onDisk;
        QFile(folder).setPermissions(QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        QFile probeFile(folder + QStringLiteral("/probe"));
        if (probeFile.open(QIODevice::WriteOnly)) {
            // Permissions do not stop the superuser; the immutable attribute does.
            probeFile.remove();
            immutable = QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("+i"), folder}) == 0;
            if (!immutable || QFile(folder + QStringLiteral("/probe")).open(QIODevice::WriteOnly)) {
                QFile(folder).setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
                QSKIP("running as superuser on a file system without the immutable attribute: "
                      "no folder can be made unchangeable");
            }
        }
    } else {
        onDisk = freshInput(QStringLiteral("video for protocol input.mp4"));
        input = QStringLiteral("file:") + onDisk;
    }

    Downloader d;
    const QStringList events = convert(d, input, output, Downloader::fromAudioExtraction);
    if (immutable)
        QProcess::execute(QStringLiteral("chattr"), {QStringLiteral("-i"), folder});
    if (lockedFolder)
        QFile(folder).setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);

    QCOMPARE(events, QStringList{"error 7"});
    QVERIFY(QFile::exists(onDisk));
    QVERIFY(hasStream(probe(output), QStringLiteral("audio=mp3")));
    QVERIFY(d.options->steps.isEmpty());
}

void TestConversion::stopCancelsLongJobs()
{
    // A download that hangs in the stand-in, stopped...
    QTemporaryDir scenarioDir;
    const QString scenario = scenarioDir.filePath(QStringLiteral("scenario"));
    QFile script(scenario);
    QVERIFY(script.open(QIODevice::WriteOnly));
    script.write("[download]\ndelay: 0.05\npart: 65536\nout: [download]  10.0% of 640.00KiB\nhang\n");
    script.close();
    qputenv("VIDORRA_FAKE_SCRIPT", scenario.toLocal8Bit());
    Downloader d;
    QSignalSpy percent(&d, &Downloader::percent);
    QSignalSpy file(&d, &Downloader::haveFile);
    const QString download = work.filePath(QStringLiteral("long download.mp4"));
    d.requestFile(18, download);
    QVERIFY(percent.wait(10000));
    QVERIFY(QFile::exists(download + QStringLiteral(".part")));
    const qint64 downloadPid = d.processFile->processId();
    d.stop();
    qunsetenv("VIDORRA_FAKE_SCRIPT");
    QVERIFY(!QFile::exists(download + QStringLiteral(".part")));
    QVERIFY(processGone(downloadPid));

    // ...then a conversion that reads ten minutes of uncompressed video from
    // a second ffmpeg through a named pipe, stopped while it writes.
    const QString pipe = work.filePath(QStringLiteral("live.nut"));
    QFile::remove(pipe);
    QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    QProcess feeder;
    feeder.start(QStringLiteral("ffmpeg"), {"-hide_banner",
                                            "-loglevel",
                                            "error",
                                            "-f",
                                            "lavfi",
                                            "-i",
                                            "testsrc=size=1280x720:rate=25:duration=600",
                                            "-f",
                                            "lavfi",
                                            "-i",
                                            "sine=duration=600",
                                            "-c:v",
                                            "rawvideo",
                                            "-pix_fmt",
                                            "yuv420p",
                                            "-c:a",
                                            "pcm_s16le",
                                            "-f",
                                            "nut",
                                            "-y",
                                            pipe});
    QVERIFY(feeder.waitForStarted());
    // Removing the second element of the argument list first and the first
    // one ("-i") second is how stopping works; a file of that name in the
    // working folder goes too.
    const QString previousFolder = QDir::currentPath();
    QDir::setCurrent(work.path());
    QFile dash(QStringLiteral("-i"));
    QVERIFY(dash.open(QIODevice::WriteOnly));
    dash.close();

    const QString output = work.filePath(QStringLiteral("live.mkv"));
    QSignalSpy done(&d, &Downloader::doneExtractAudio);
    QSignalSpy errors(&d, &Downloader::hasError);
    d.formatConverting(pipe, output, Downloader::fromAudioExtraction);
    QCOMPARE(d.step, Downloader::stepConverting);
    QVERIFY(waitFor([&] { return QFileInfo(output).size() > 20000; }, 20000));
    const qint64 ffmpegPid = d.processFFmpeg->processId();
    d.stop();
    QVERIFY(processGone(ffmpegPid));
    const bool dashGone = !QFile::exists(work.filePath(QStringLiteral("-i")));
    QDir::setCurrent(previousFolder);
    feeder.kill();
    feeder.waitForFinished();

    QVERIFY2(!QFile::exists(pipe), "stopping a conversion removes its input");
    QVERIFY(dashGone);
    QVERIFY2(QFileInfo(output).size() > 0, "the partly written output stays");
    QTest::qWait(200);
    QCOMPARE(done.count(), 0);
    QCOMPARE(errors.count(), 0);
    QCOMPARE(file.count(), 0);
    QCOMPARE(d.step, Downloader::stepConverting);
}

VIDORRA_TEST_MAIN(TestConversion)
#include "tst_conversion.moc"
