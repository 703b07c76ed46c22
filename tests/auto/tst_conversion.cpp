// Conversions through the real ffmpeg (the "ffmpeg9_311" beside this test),
// checked with ffprobe, and the clean-up rules around them.
#include "Fiofostis/Downloader.h"
#include "TestSupport.h"

#include <signal.h>
#include <sys/stat.h>

namespace {

// "mpeg4=video aac=audio ..." for the streams of `path`.
QString probe(const QString &path)
{
    QProcess ffprobe;
    ffprobe.start(QStringLiteral("ffprobe"),
                  {"-v", "error", "-show_entries", "stream=codec_name,codec_type", "-of", "csv=p=0", path});
    ffprobe.waitForFinished(30000);
    QStringList streams;
    for (const QString &line : QString::fromUtf8(ffprobe.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts))
        streams << line.trimmed().split(',').join('=');
    return streams.join(' ');
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
    QTest::addColumn<QString>("streams");
    // Video targets as a recording's conversion, which keeps its input.
    QTest::newRow("mp4") << "out.mp4" << 1 << "mpeg4=video =audio";
    QTest::newRow("m4v") << "out.m4v" << 1 << "mpeg4=video =audio";
    QTest::newRow("mkv") << "out.mkv" << 1 << "mpeg4=video =audio";
    QTest::newRow("flv") << "out.flv" << 1 << "flv1=video =audio";
    QTest::newRow("mov") << "out.mov" << 1 << "mpeg4=video =audio";
    // Audio targets as the audio download's extraction, which removes the
    // downloaded video.
    QTest::newRow("mp3") << "out.mp3" << 0 << "mp3=audio";
    QTest::newRow("m4a") << "out.m4a" << 0 << "aac=audio";
    QTest::newRow("flac") << "out.flac" << 0 << "flac=audio";
    QTest::newRow("wav") << "out.wav" << 0 << "pcm_s16le=audio";
}

void TestConversion::targets()
{
    QFETCH(QString, output);
    QFETCH(int, kind);
    QFETCH(QString, streams);
    const QString input = freshInput(QStringLiteral("My Video.mp4"));
    const QString target = work.filePath(output);
    QFile::remove(target);
    Downloader d;
    QCOMPARE(convert(d, input, target, static_cast<Downloader::FormatConvertingFrom>(kind)), QStringList{"done"});
    const QString found = probe(target);
    for (const QString &stream : streams.split(' '))
        QVERIFY2(found.contains(stream), qPrintable(stream + QStringLiteral(" not in ") + found));
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
        QCOMPARE(probe(audio), QStringLiteral("mp3=audio"));
}

void TestConversion::stopRemovesInput()
{
    // ffmpeg waits for a writer on a named pipe: a conversion that runs until
    // stopped. Stopping removes the second argument (the input) and the first
    // ("-i", a file of that name in the working folder), not the output.
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
    const bool dashGone = !QFile::exists(QStringLiteral("-i"));
    QDir::setCurrent(previousFolder);

    QVERIFY2(waitFor([pid] { return ::kill(pid, 0) != 0; }, 5000), "ffmpeg still runs");
    QVERIFY2(!QFile::exists(pipe), "stopping a conversion removes its input");
    QVERIFY(dashGone);
    QVERIFY(QFile::exists(output));
    QTest::qWait(200);
    QCOMPARE(events, QStringList());
    QCOMPARE(d.step, Downloader::stepConverting);
}

VIDORRA_TEST_MAIN(TestConversion)
#include "tst_conversion.moc"
