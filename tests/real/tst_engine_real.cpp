// The engine end to end with the real launcher and downloader tool, on media made here and served on 127.0.0.1.
#include "Fiofostis/Downloader.h"
#include "TestSupport.h"

#include <QSignalSpy>

class TestEngineReal : public QObject
{
    Q_OBJECT

    QTemporaryDir media, saved;
    QProcess server;
    QUrl page;

private slots:
    void initTestCase()
    {
        qRegisterMetaType<Downloader::errors>("Downloader::errors");
        QVERIFY(QFileInfo(toolFolder() + "/run").isExecutable());
        QProcess make;
        make.start("sh", {VIDORRA_FIXTURES_DIR "/make_media.sh", media.path()});
        QVERIFY(make.waitForFinished(120000) && make.exitCode() == 0);
        // Slowed down so that the download reports its progress in several reads.
        const QString base = startMediaServer(server, media.path(), {"--rate", "200000"});
        QVERIFY(!base.isEmpty());
        page = QUrl(base + "/watch.html");
    }

    void cleanupTestCase()
    {
        server.closeWriteChannel(); // the server leaves when its input closes
        if (!server.waitForFinished(5000))
            server.kill();
    }

    void optionsThenDownloadThenAudio()
    {
        Downloader d;
        QList<float> figures;
        connect(&d, &Downloader::percent, this, [&](float p) { figures << p; });
        QSignalSpy title(&d, &Downloader::haveTitle), formats(&d, &Downloader::haveFormats),
            file(&d, &Downloader::haveFile), extracted(&d, &Downloader::doneExtractAudio),
            errors(&d, &Downloader::hasError);
        QVERIFY(d.setURL(&page));
        d.getOptions();
        QVERIFY(waitFor([&] { return title.count() == 1 && formats.count() == 1; }, 60000));
        QCOMPARE(d.options->title, QString("Local Test Clip Sunrise"));
        QCOMPARE(d.options->duration, QString("0:05"));
        // A direct media file has one format without a numeric code: code 0.
        QCOMPARE(d.options->formats.keys(), QList<int>{0});
        QVERIFY(d.options->formats.value(0).extension == "mp4" && d.options->formats.value(0).best);

        const QString video = saved.filePath("Local Test Clip Sunrise.mp4");
        d.requestFile(0, video);
        QVERIFY(file.wait(60000));
        // Figures that only climb; how many reads there are is the machine's business.
        QVERIFY(!figures.isEmpty() && std::is_sorted(figures.begin(), figures.end()));
        QVERIFY(figures.last() > 0.0f && figures.last() <= 100.0f);
        QCOMPARE(QFileInfo(video).size(), QFileInfo(media.filePath("clip.mp4")).size());
        const QString audio = saved.filePath("Local Test Clip Sunrise.mp3");
        d.formatConverting(video, audio, Downloader::fromAudioExtraction);
        QVERIFY(extracted.wait(60000));
        QCOMPARE(errors.count(), 0);
        QCOMPARE(streams(audio), QString("mp3=audio"));
        QVERIFY(!QFile::exists(video));
    }
};

VIDORRA_TEST_MAIN(TestEngineReal)
#include "tst_engine_real.moc"
