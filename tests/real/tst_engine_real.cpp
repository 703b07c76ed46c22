// The engine end to end with the real launcher over the real downloader
// tool, on media generated here and served on 127.0.0.1 only.
#include "Fiofostis/Downloader.h"
#include "TestSupport.h"

#include <QSignalSpy>

namespace {

QStringList probe(const QString &path)
{
    QProcess ffprobe;
    ffprobe.start(QStringLiteral("ffprobe"),
                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
                   QStringLiteral("stream=codec_type"), QStringLiteral("-of"), QStringLiteral("csv=p=0"), path});
    ffprobe.waitForFinished(30000);
    return QString::fromUtf8(ffprobe.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

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
    void selfTest();
    void missingPage();

private:
    QString address(const QString &file) const
    {
        return QStringLiteral("http://127.0.0.1:%1/%2").arg(port).arg(file);
    }
    QTemporaryDir media;
    QTemporaryDir saved;
    QProcess server;
    int port = 0;
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
    server.start(QStringLiteral("/usr/bin/python3"),
                 {QStringLiteral(VIDORRA_FIXTURES_DIR "/media_server.py"), media.path(), QStringLiteral("0"),
                  QStringLiteral("--rate"), QStringLiteral("200000")});
    QVERIFY(server.waitForStarted());
    QVERIFY(server.waitForReadyRead(15000));
    const QString first = QString::fromLatin1(server.readLine()).trimmed();
    QVERIFY2(first.startsWith(QLatin1String("PORT ")), qPrintable(first));
    port = first.mid(5).toInt();
    QVERIFY(port > 0);
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
    QSignalSpy errors(&d, &Downloader::hasError);
    QUrl page(address(QStringLiteral("watch.html")));
    QVERIFY(d.setURL(&page));
    d.getOptions();
    QVERIFY(waitFor([&] { return title.count() == 1 && formats.count() == 1; }, 60000));
    QCOMPARE(errors.count(), 0);
    QCOMPARE(d.options->title, QStringLiteral("Local Test Clip Sunrise"));
    QCOMPARE(d.options->duration, QStringLiteral("0:05"));
    // A direct media file has one format without a numeric code: code 0.
    QCOMPARE(d.options->formats.size(), 1);
    const Downloader::videoFormat only = d.options->formats.value(0);
    QCOMPARE(only.extension, QStringLiteral("mp4"));
    QVERIFY(only.best);
    QCOMPARE(d.options->steps.size(), 2);
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
    QVERIFY2(figures.size() >= 2, qPrintable(QString::number(figures.size())));
    for (int i = 1; i < figures.size(); ++i)
        QVERIFY2(figures.at(i) >= figures.at(i - 1), "progress went backwards");
    QCOMPARE(figures.last(), 100.0f);
    QCOMPARE(QFileInfo(video).size(), QFileInfo(media.filePath(QStringLiteral("clip.mp4"))).size());
    QVERIFY(!QFile::exists(video + QStringLiteral(".part")));

    const QString audio = saved.filePath(QStringLiteral("Local Test Clip Sunrise.mp3"));
    d.formatConverting(video, audio, Downloader::fromAudioExtraction);
    QVERIFY(extracted.wait(60000));
    QCOMPARE(errors.count(), 0);
    QCOMPARE(probe(audio), QStringList{"audio"});
    QVERIFY(!QFile::exists(video));
    QCOMPARE(d.options->steps, (QList<Downloader::steps>{Downloader::stepFile, Downloader::stepConverting}));
}

void TestEngineReal::selfTest()
{
    Downloader d;
    QSignalSpy ok(&d, &Downloader::testOK);
    QSignalSpy errors(&d, &Downloader::hasError);
    d.testIt(address(QStringLiteral("watch.html")), QStringLiteral("Local Test Clip - Sunrise"));
    QVERIFY(waitFor([&] { return ok.count() + errors.count() > 0; }, 60000));
    QCOMPARE(ok.count(), 1);
    QCOMPARE(errors.count(), 0);
}

void TestEngineReal::missingPage()
{
    Downloader d;
    QSignalSpy errors(&d, &Downloader::hasError);
    QSignalSpy title(&d, &Downloader::haveTitle);
    QSignalSpy formats(&d, &Downloader::haveFormats);
    QUrl page(address(QStringLiteral("no-such-page.html")));
    QVERIFY(d.setURL(&page));
    d.getOptions();
    QVERIFY(waitFor([&] { return errors.count() > 0; }, 60000));
    QVERIFY(waitFor([&] { return d.processFormats->state() == QProcess::NotRunning; }, 60000));
    QTest::qWait(200);
    QCOMPARE(errors.count(), 1);
    QCOMPARE(errors.at(0).at(0).value<Downloader::errors>(), Downloader::errorTitle);
    QCOMPARE(title.count() + formats.count(), 0);
}

VIDORRA_TEST_MAIN(TestEngineReal)
#include "tst_engine_real.moc"
