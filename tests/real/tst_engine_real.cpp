// The engine end to end with the real launcher over the real downloader
// tool, on media generated here and served on 127.0.0.1 only.
#include "Fiofostis/Downloader.h"
#include "TestSupport.h"

#include <QSignalSpy>

#include <algorithm>

namespace {

// The engine needs no screen: without a display the window system of the
// test's application object is the offscreen one.
const bool noScreenNeeded = [] {
    if (qEnvironmentVariableIsEmpty("DISPLAY") && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    return true;
}();

} // namespace

class TestEngineReal : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void titleAndFormats();
    void downloadThenExtractAudio();

private:
    QString address(const QString &file) const
    {
        return base + QLatin1Char('/') + file;
    }
    QTemporaryDir media;
    QTemporaryDir saved;
    QProcess server;
    QString base;
};

void TestEngineReal::initTestCase()
{
    qRegisterMetaType<Downloader::errors>("Downloader::errors");
    QVERIFY(QFileInfo(QCoreApplication::applicationDirPath() + QStringLiteral("/run")).isExecutable());
    QProcess make;
    make.start(QStringLiteral("sh"), {QStringLiteral(VIDORRA_FIXTURES_DIR "/make_media.sh"), media.path()});
    QVERIFY(make.waitForFinished(120000));
    QCOMPARE(make.exitCode(), 0);
    QVERIFY(QFile::exists(media.filePath(QStringLiteral("watch.html"))));

    // Slowed down so that the download reports its progress in several reads.
    base = startMediaServer(server, media.path(), {QStringLiteral("--rate"), QStringLiteral("200000")});
    QVERIFY(!base.isEmpty());
}

void TestEngineReal::cleanupTestCase()
{
    server.closeWriteChannel();
    if (!server.waitForFinished(5000)) {
        server.kill();
        server.waitForFinished();
    }
}

void TestEngineReal::titleAndFormats()
{
    Downloader d;
    QSignalSpy title(&d, &Downloader::haveTitle);
    QSignalSpy formats(&d, &Downloader::haveFormats);
    QUrl page(address(QStringLiteral("watch.html")));
    QVERIFY(d.setURL(&page));
    d.getOptions();
    QVERIFY(waitFor([&] { return title.count() == 1 && formats.count() == 1; }, 60000));
    QCOMPARE(d.options->title, QStringLiteral("Local Test Clip Sunrise"));
    QCOMPARE(d.options->duration, QStringLiteral("0:05"));
    // A direct media file has one format without a numeric code: code 0.
    QCOMPARE(d.options->formats.size(), 1);
    const Downloader::videoFormat only = d.options->formats.value(0);
    QCOMPARE(only.extension, QStringLiteral("mp4"));
    QVERIFY(only.best);
}

void TestEngineReal::downloadThenExtractAudio()
{
    Downloader d;
    QList<float> figures;
    connect(&d, &Downloader::percent, this, [&](float p) { figures << p; });
    QSignalSpy file(&d, &Downloader::haveFile);
    QSignalSpy extracted(&d, &Downloader::doneExtractAudio);
    QSignalSpy errors(&d, &Downloader::hasError);
    QUrl page(address(QStringLiteral("watch.html")));
    QVERIFY(d.setURL(&page));
    const QString video = saved.filePath(QStringLiteral("Local Test Clip Sunrise.mp4"));
    d.requestFile(0, video);
    QVERIFY(file.wait(60000));
    // Figures that only climb; how many reads there are, and whether the
    // last one holds the final line, is the machine's business.
    QVERIFY(!figures.isEmpty());
    QVERIFY(std::is_sorted(figures.begin(), figures.end()));
    QVERIFY(figures.last() > 0.0f && figures.last() <= 100.0f);
    QCOMPARE(QFileInfo(video).size(), QFileInfo(media.filePath(QStringLiteral("clip.mp4"))).size());

    const QString audio = saved.filePath(QStringLiteral("Local Test Clip Sunrise.mp3"));
    d.formatConverting(video, audio, Downloader::fromAudioExtraction);
    QVERIFY(extracted.wait(60000));
    QCOMPARE(errors.count(), 0);
    QCOMPARE(streams(audio), QString("mp3=audio"));
    QVERIFY(!QFile::exists(video));
}

VIDORRA_TEST_MAIN(TestEngineReal)
#include "tst_engine_real.moc"
