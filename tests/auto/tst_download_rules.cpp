#include <QtTest>

#include "Sniffer/DownloadRules.h"
#include "TestSupport.h"

using namespace DownloadRules;

// The naming and address rules of the download workflow, without a window.
class DownloadRulesTest : public QObject
{
    Q_OBJECT

    const QHash<int, QString> otherSites{{1, QStringLiteral("vimeo.com")}, {2, QStringLiteral("127.0.0.1")}};

    Address site(const QString &typed)
    {
        return normaliseAddress(typed, "yt_urls", 2, {});
    }
    Address other(const QString &typed)
    {
        return normaliseAddress(typed, "os_urls", 1, otherSites);
    }

private slots:
    void siteAddressesBecomeCanonical_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("address");
        QTest::addColumn<bool>("rebuilt");
        QTest::newRow("words before the address") << "look at this https://www.youtube.com/watch?v=BaW_jenozKc"
                                                  << "https://www.youtube.com/watch?v=BaW_jenozKc" << false;
        QTest::newRow("playlist and start time dropped")
            << "  http://www.youtube.com/watch?list=PL0123&v=BaW_jenozKc&t=42s  "
            << "https://www.youtube.com/watch?v=BaW_jenozKc" << true;
        QTest::newRow("bare domain") << "https://youtube.com/watch?v=abc"
                                     << "https://www.youtube.com/watch?v=abc" << true;
        QTest::newRow("short link") << "Watch: https://youtu.be/BaW_jenozKc?t=3"
                                    << "https://www.youtube.com/watch?v=BaW_jenozKc" << true;
        QTest::newRow("already canonical") << "https://www.youtube.com/watch?v=xyz"
                                           << "https://www.youtube.com/watch?v=xyz" << false;
    }
    void siteAddressesBecomeCanonical()
    {
        QFETCH(QString, typed);
        QFETCH(QString, address);
        QFETCH(bool, rebuilt);
        const Address result = site(typed);
        QCOMPARE(result.error, 0);
        QCOMPARE(result.url.toString(), address);
        QCOMPARE(result.rebuilt, rebuilt);
    }

    void siteAddressesRejected_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("error");
        QTest::newRow("watch page without v") << "https://www.youtube.com/watch?list=PL0123" << 2;
        QTest::newRow("host in capitals") << "https://WWW.YOUTUBE.COM/watch?v=abc" << 2;
        QTest::newRow("other sub-domain") << "https://m.youtube.com/watch?v=abc" << 2;
        QTest::newRow("another site") << "https://vimeo.com/12345" << 2;
        QTest::newRow("short link without path") << "https://youtu.be/" << 2;
        QTest::newRow("nothing typed") << "   " << 1;
    }
    void siteAddressesRejected()
    {
        QFETCH(QString, typed);
        QFETCH(int, error);
        QCOMPARE(site(typed).error, error);
    }

    void otherSitesMatchByHostFragment()
    {
        const Address local = other("see http://127.0.0.1:8000/watch.html?x=1");
        QCOMPARE(local.error, 0);
        QCOMPARE(local.url.toString(), QString("http://127.0.0.1:8000/watch.html?x=1"));
        QVERIFY(!local.rebuilt);
        QCOMPARE(other("https://player.vimeo.com/video/1").error, 0);
        QCOMPARE(other("https://example.org/vimeo.com").error, 1); // the path does not count
        QCOMPARE(other("https://VIMEO.COM/1").error, 1);
        QCOMPARE(other("").error, 1);
    }

    void textWithoutHttpStaysAsTyped()
    {
        QCOMPARE(cutAtHttp("  www.youtube.com/watch?v=a "), QString("www.youtube.com/watch?v=a"));
        QCOMPARE(cutAtHttp("x https://a.b/c http://d"), QString("https://a.b/c http://d"));
        // No scheme is added, so the site is not recognised without one.
        QCOMPARE(site("www.youtube.com/watch?v=a").error, 2);
    }

    void saveAsNamesAreCleaned_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("extension");
        QTest::addColumn<QString>("name");
        QTest::newRow("underscore and hyphen") << "My_Clip - 2.mp3"
                                               << "mp3"
                                               << "My.Clip.2.mp3";
        QTest::newRow("foreign extension kept without dot") << "song.wav"
                                                            << "mp3"
                                                            << "songwav.mp3";
        QTest::newRow("no dot at all") << "holiday"
                                       << "mp4"
                                       << "holiday.mp4";
        QTest::newRow("two typed blanks") << "a  b.mp4"
                                          << "mp4"
                                          << "a.b.mp4";
        QTest::newRow("non-ASCII letters") << "Café (live).mp3"
                                           << "mp3"
                                           << "Caf.(live).mp3";
        QTest::newRow("extension case counts") << "Clip.MP3"
                                               << "mp3"
                                               << "ClipMP3.mp3";
    }
    void saveAsNamesAreCleaned()
    {
        QFETCH(QString, typed);
        QFETCH(QString, extension);
        QFETCH(QString, name);
        QCOMPARE(cleanSaveAsPath("/tmp/out/" + typed, extension), "/tmp/out/" + name);
    }

    void filterPatternIsAppendedOnce()
    {
        QCOMPARE(filterPattern("MP3 (*.mp3)"), QString(".mp3"));
        QCOMPARE(filterPattern("mp3"), QString());
        QCOMPARE(withFilterPattern("/a/b.mp3", "MP3 (*.mp3)"), QString("/a/b.mp3"));
        QCOMPARE(withFilterPattern("/a/b.mp4", "Audio Interchange (*.aiff)"), QString("/a/b.mp4.aiff"));
        QCOMPARE(withFilterPattern("/a/b.mp4", "mp3"), QString("/a/b.mp4"));
    }

    void filterLists()
    {
        const QStringList audio = saveFilters(KindAudio, false);
        QCOMPARE(audio.size(), 7);
        QCOMPARE(audio.first(), QString("MP3 (*.mp3)"));
        const QStringList recordedAudio = saveFilters(KindAudio, true);
        QCOMPARE(recordedAudio.size(), 8);
        QCOMPARE(recordedAudio.first(), QString("Waveform Audio (*.wav)"));
        QCOMPARE(recordedAudio.mid(1), audio);

        const QStringList video = saveFilters(KindVideo, false);
        QCOMPARE(video, (QStringList{"MPEG-4 (*.mp4)", "MPEG-4 (*.m4v)", "Audio Video Interleave (*.avi)",
                                     "QuickTime (*.mov)", "Matroska (*.mkv)", "Windows Media (*.wmv)"}));
        QCOMPARE(saveFilters(KindVideo, true), QStringList{"MPEG (*.mpg)"} + video);
        QVERIFY(saveFilters(0, true).isEmpty());
    }

    void extensionOfEveryFilter()
    {
        QCOMPARE(extensionFromFilter("Audio Interchange (*.aiff)"), QString("aiff"));
        for (const QString &filter : saveFilters(KindVideo, true) + saveFilters(KindAudio, true)) {
            const QString extension = extensionFromFilter(filter);
            QVERIFY2(filter.endsWith("(*." + extension + ")"), qPrintable(filter));
        }
    }

    void fixExtensionKeepsThreeLetters()
    {
        QCOMPARE(fixExtension("a.MP3", "mp3"), QString("a.MP3.mp3"));
        QCOMPARE(fixExtension("a.mp3", "MP3"), QString("a.mp3"));
        QCOMPARE(fixExtension("a", "aiff"), QString("a.aif"));
        QCOMPARE(fixExtension("a.aif", "aiff"), QString("a.aif"));
        QCOMPARE(fixExtension("a.flac", "flac"), QString("a.flac.fla"));
    }

    void outputNames()
    {
        QCOMPARE(outputBaseName(""), QString("default"));
        QCOMPARE(outputBaseName("My-Video: Take 1"), QString("My Video Take 1"));
        QCOMPARE(outputBaseName("x").size(), 1);
        QCOMPARE(outputBaseName(QString(50, 'a')).size(), 30);
    }

    void formatRows()
    {
        Downloader::videoFormat best;
        best.code = 22;
        best.best = true;
        best.extension = "mp4";
        best.resolution = "1280x720";
        best.description = "AAC 192 KBps";
        QCOMPARE(formatRowText(best), QString("1280x720\tAAC 192 KBps\t( BEST )"));
        best.best = false;
        QCOMPARE(formatRowText(best), QString("1280x720\tAAC 192 KBps"));

        QCOMPARE(formatIcon("mp4"), QString(":/signMP4"));
        QCOMPARE(formatIcon("3gp"), QString(":/sign3GP"));
        QCOMPARE(formatIcon("flv"), QString(":/signFLV"));
        QCOMPARE(formatIcon("webm"), QString(":/signWebM"));
        QCOMPARE(formatIcon("MP4"), QString(":/signNONE"));

        const QHash<int, QString> labels{{18, "a"}, {22, "b"}};
        QCOMPARE(formatCodeForRow(labels, "b"), 22);
        QCOMPARE(formatCodeForRow(labels, "none of them"), 0);
        QCOMPARE(formatCodeForRow(labels, QString()), 0);
    }

    void writableFolders()
    {
        QTemporaryDir dir;
        QVERIFY(folderWritable(dir.path()));
        QVERIFY(!folderWritable(dir.path() + "/missing"));
        QFile file(dir.path() + "/plain");
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(!folderWritable(file.fileName()));
    }
};

VIDORRA_TEST_MAIN(DownloadRulesTest)
#include "tst_download_rules.moc"
