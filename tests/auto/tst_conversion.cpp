// Conversions through the real ffmpeg (the "ffmpeg9_311" beside this test),
// checked with ffprobe, and the clean-up rules around them.
#include "Fiofostis/Downloader.h"
#include "TestSupport.h"

#include <signal.h>
#include <sys/stat.h>

namespace {

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

} // namespace

class TestConversion : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void targets_data();
    void targets();
    void failures_data();
    void failures();
    void stopRemovesInput();

private:
    QString freshInput(const QString &name);
    QTemporaryDir work;
    QString clip;
};

void TestConversion::initTestCase()
{
    clip = work.filePath(QStringLiteral("source.mp4"));
    QVERIFY(makeClip(clip, 1.0, true));
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
    QTest::addColumn<QString>("expected");
    // Video targets as a recording's conversion, which keeps its input.
    QTest::newRow("mp4") << "out.mp4" << 1 << "mpeg4=video";
    QTest::newRow("m4v") << "out.m4v" << 1 << "mpeg4=video";
    QTest::newRow("flv") << "out.flv" << 1 << "flv1=video";
    QTest::newRow("mov") << "out.mov" << 1 << "mpeg4=video";
    // A downloaded video in another container, which removes the download.
    QTest::newRow("mkv of a download") << "out.mkv" << 2 << "mpeg4=video";
    // Audio targets as the audio download's extraction, which removes the
    // downloaded video and keeps the sound alone; a recording's WAV as well.
    QTest::newRow("mp3") << "out.mp3" << 0 << "mp3=audio";
    QTest::newRow("m4a") << "out.m4a" << 0 << "aac=audio";
    QTest::newRow("aiff") << "out.aiff" << 0 << "pcm_s16be=audio";
    QTest::newRow("wma") << "out.wma" << 0 << "wmav2=audio";
    QTest::newRow("flac") << "out.flac" << 0 << "flac=audio";
    QTest::newRow("aac") << "out.aac" << 0 << "aac=audio";
    QTest::newRow("ogg") << "out.ogg" << 0 << "vorbis=audio";
    QTest::newRow("wav") << "out.wav" << 1 << "pcm_s16le=audio";
}

void TestConversion::targets()
{
    QFETCH(QString, output);
    QFETCH(int, kind);
    QFETCH(QString, expected);
    const QString input = freshInput(QStringLiteral("My Video.mp4"));
    const QString target = work.filePath(output);
    QFile::remove(target);
    Downloader d;
    QCOMPARE(convert(d, input, target, static_cast<Downloader::FormatConvertingFrom>(kind)), QStringList{"done"});
    const QString found = streams(target);
    // A video keeps whatever audio codec ffmpeg picks; an audio file holds
    // exactly one stream, its sound.
    if (expected.contains(QLatin1String("video")))
        QVERIFY2(found.contains(expected) && found.contains(QLatin1String("=audio")), qPrintable(found));
    else
        QCOMPARE(found, expected);
    QCOMPARE(QFile::exists(input), kind == 1);
    QCOMPARE(d.step, Downloader::stepIdle);
    QCOMPARE(d.options->steps, QList<Downloader::steps>{Downloader::stepConverting});
}

void TestConversion::failures_data()
{
    // ffmpeg takes "file:PATH" as PATH, the engine takes it literally: an
    // output so named is not found, an input so named cannot be removed.
    QTest::addColumn<QString>("input");
    QTest::addColumn<QString>("output");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("expected");
    QTest::newRow("not media") << "text"
                               << "out.mp3" << 0 << "error 5";
    // With no extension ffmpeg cannot tell which container to write.
    QTest::newRow("output without extension") << "clip"
                                              << "out" << 1 << "error 5";
    QTest::newRow("audio file not found") << "clip"
                                          << "file:out.mp3" << 0 << "error 6";
    QTest::newRow("video cannot be removed") << "file:clip"
                                             << "out.mp3" << 0 << "error 7";
}

void TestConversion::failures()
{
    QFETCH(QString, input);
    QFETCH(QString, output);
    QFETCH(int, kind);
    QFETCH(QString, expected);
    const QString video = freshInput(QStringLiteral("input.mp4"));
    if (input == QLatin1String("text")) {
        QFile file(video);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write("plain text, not a video");
    }
    const QString audio = work.filePath(output.section(QLatin1Char(':'), -1));
    QFile::remove(audio);
    const QString from = input.startsWith(QLatin1String("file:")) ? QStringLiteral("file:") + video : video;
    const QString to = output.startsWith(QLatin1String("file:")) ? QStringLiteral("file:") + audio : audio;
    Downloader d;
    QCOMPARE(convert(d, from, to, static_cast<Downloader::FormatConvertingFrom>(kind)), QStringList{expected});
    QVERIFY2(QFile::exists(video), "a failed conversion keeps the downloaded video");
    QVERIFY(d.options->steps.isEmpty());
    QCOMPARE(d.step, Downloader::stepIdle);
    // Errors 6 and 7 come after ffmpeg wrote the audio file.
    if (expected != QLatin1String("error 5"))
        QCOMPARE(streams(audio), QStringLiteral("mp3=audio"));
}

void TestConversion::stopRemovesInput()
{
    // ffmpeg waits for a writer on a named pipe: a conversion that runs until
    // stopped. Stopping removes the input and the partial output, nothing
    // else (not a file named "-i" in the working folder).
    const QString pipe = work.filePath(QStringLiteral("live.nut"));
    const QString output = work.filePath(QStringLiteral("live.mkv"));
    QFile::remove(pipe);
    QCOMPARE(::mkfifo(QFile::encodeName(pipe).constData(), 0600), 0);
    QFile(output).open(QIODevice::WriteOnly);
    const QString previousFolder = QDir::currentPath();
    QDir::setCurrent(work.path());
    QFile(QStringLiteral("-i")).open(QIODevice::WriteOnly);

    Downloader d;
    QStringList events;
    connect(&d, &Downloader::doneExtractAudio, this, [&] { events << QStringLiteral("done"); });
    connect(&d, &Downloader::hasError, this,
            [&](Downloader::errors e) { events << QStringLiteral("error %1").arg(e); });
    d.formatConverting(pipe, output, Downloader::fromAudioExtraction);
    QVERIFY(waitFor([&] { return d.processFFmpeg->state() == QProcess::Running; }, 10000));
    QTest::qWait(300);
    const auto pid = static_cast<pid_t>(d.processFFmpeg->processId());
    d.stop();
    const bool dashKept = QFile::exists(QStringLiteral("-i"));
    QDir::setCurrent(previousFolder);

    QVERIFY2(::kill(pid, 0) != 0, "ffmpeg still runs");
    QVERIFY2(!QFile::exists(pipe), "stopping a conversion removes its input");
    QVERIFY(dashKept);
    QVERIFY(!QFile::exists(output));
    d.stop();
    QTest::qWait(200);
    QCOMPARE(events, QStringList());
    QCOMPARE(d.step, Downloader::stepConverting);
}

VIDORRA_TEST_MAIN(TestConversion)
#include "tst_conversion.moc"
