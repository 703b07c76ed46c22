#include <QtTest>

#include "Sniffer/DownloadRules.h"
#include "TestSupport.h"

using namespace DownloadRules;

// The naming and address rules of the download workflow, without a window.
class DownloadRulesTest : public QObject
{
    Q_OBJECT

private slots:
    void addresses_data()
    {
        QTest::addColumn<QString>("table");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<int>("error");
        QTest::addColumn<QString>("address");
        QTest::addColumn<bool>("rebuilt");
        const struct
        {
            const char *name, *table, *typed;
            int error;
            const char *address; // none: the canonical one
            bool rebuilt;
        } rows[] = {
            {"words before the address", "yt", "look at https://www.youtube.com/watch?v=abc", 0, nullptr, false},
            {"playlist and start time", "yt", " http://www.youtube.com/watch?list=PL0&v=abc&t=42s ", 0, nullptr, true},
            {"bare domain", "yt", "https://youtube.com/watch?v=abc", 0, nullptr, true},
            {"short link", "yt", "https://youtu.be/abc?t=3", 0, nullptr, true},
            {"already canonical", "yt", "https://www.youtube.com/watch?v=abc", 0, nullptr, false},
            {"watch page without v", "yt", "https://www.youtube.com/watch?list=PL0", 2, nullptr, false},
            {"host in capitals", "yt", "https://WWW.YOUTUBE.COM/watch?v=abc", 2, nullptr, false},
            {"other sub-domain", "yt", "https://m.youtube.com/watch?v=abc", 2, nullptr, false},
            {"no scheme added", "yt", "www.youtube.com/watch?v=abc", 2, nullptr, false},
            {"nothing typed", "yt", "   ", 1, nullptr, false},
            {"other site as typed", "os", "see http://127.0.0.1:8/w?x=1", 0, "http://127.0.0.1:8/w?x=1", false},
            {"fragment inside the host", "os", "https://player.vimeo.com/1", 0, "https://player.vimeo.com/1", false},
            {"fragment only in the path", "os", "https://example.org/vimeo.com", 1, nullptr, false},
            {"other site in capitals", "os", "https://VIMEO.COM/1", 1, nullptr, false},
        };
        for (const auto &row : rows)
            QTest::newRow(row.name) << QString(row.table) + "_urls" << row.typed << row.error
                                    << (row.address ? row.address : "https://www.youtube.com/watch?v=abc")
                                    << row.rebuilt;
    }
    void addresses()
    {
        QFETCH(QString, table);
        QFETCH(QString, typed);
        QFETCH(int, error);
        QFETCH(QString, address);
        QFETCH(bool, rebuilt);
        const int mode = table == "yt_urls" ? 2 : 1;
        const Address result = normaliseAddress(typed, table, mode, {{1, "vimeo.com"}, {2, "127.0.0.1"}});
        QCOMPARE(result.error, error);
        if (error == 0) {
            QCOMPARE(result.url.toString(), address);
            QCOMPARE(result.rebuilt, rebuilt);
        }
    }

    void saveAsNames_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("extension");
        QTest::addColumn<QString>("name");
        const char *rows[][4] = {
            {"underscore and hyphen", "My_Clip - 2.mp3", "mp3", "My.Clip.2.mp3"},
            {"foreign extension, no dot", "song.wav", "mp3", "songwav.mp3"},
            {"no dot at all", "holiday", "mp4", "holiday.mp4"},
            {"two typed blanks", "a  b.mp4", "mp4", "a.b.mp4"},
            {"non-ASCII letter", "Café (live).mp3", "mp3", "Caf.(live).mp3"},
            {"extension case counts", "Clip.MP3", "mp3", "ClipMP3.mp3"},
        };
        for (const auto &row : rows)
            QTest::newRow(row[0]) << QString(row[1]) << QString(row[2]) << QString(row[3]);
    }
    void saveAsNames()
    {
        QFETCH(QString, typed);
        QFETCH(QString, extension);
        QFETCH(QString, name);
        QCOMPARE(cleanSaveAsPath("/tmp/out/" + typed, extension), "/tmp/out/" + name);
    }

    void filters()
    {
        const QStringList audio = saveFilters(KindAudio, false);
        QCOMPARE(audio.size(), 7);
        QCOMPARE(audio.first(), QString("MP3 (*.mp3)"));
        QCOMPARE(saveFilters(KindAudio, true), QStringList{"Waveform Audio (*.wav)"} + audio);
        const QStringList video{"MPEG-4 (*.mp4)",    "MPEG-4 (*.m4v)",   "Audio Video Interleave (*.avi)",
                                "QuickTime (*.mov)", "Matroska (*.mkv)", "Windows Media (*.wmv)"};
        QCOMPARE(saveFilters(KindVideo, false), video);
        QCOMPARE(saveFilters(KindVideo, true), QStringList{"MPEG (*.mpg)"} + video);

        QCOMPARE(extensionFromFilter("Audio Interchange (*.aiff)"), QString("aiff"));
        for (const QString &filter : saveFilters(KindVideo, true) + saveFilters(KindAudio, true))
            QVERIFY2(filter.endsWith("(*." + extensionFromFilter(filter) + ")"), qPrintable(filter));
        QCOMPARE(withFilterPattern("/a/b.mp3", "MP3 (*.mp3)"), QString("/a/b.mp3"));
        QCOMPARE(withFilterPattern("/a/b.mp4", "Audio Interchange (*.aiff)"), QString("/a/b.mp4.aiff"));
        QCOMPARE(withFilterPattern("/a/b.mp4", "mp3"), QString("/a/b.mp4"));
    }

    void namesAndRows()
    {
        QCOMPARE(fixExtension("a.MP3", "mp3"), QString("a.MP3.mp3"));
        QCOMPARE(fixExtension("a", "aiff"), QString("a.aif"));
        QCOMPARE(fixExtension("a.aif", "AIFF"), QString("a.aif"));
        QCOMPARE(outputBaseName(""), QString("default"));
        QCOMPARE(outputBaseName("My-Video: Take 1 " + QString(40, 'a')), QString("My Video Take 1 aaaaaaaaaaaaaa"));

        Downloader::videoFormat row;
        row.best = true;
        row.resolution = "1280x720";
        row.description = "AAC 192 KBps";
        QCOMPARE(formatRowText(row), QString("1280x720\tAAC 192 KBps\t( BEST )"));
        QStringList icons;
        for (const char *extension : {"mp4", "3gp", "flv", "webm", "MP4"})
            icons << formatIcon(extension);
        QCOMPARE(icons, (QStringList{":/signMP4", ":/sign3GP", ":/signFLV", ":/signWebM", ":/signNONE"}));
        QCOMPARE(formatCodeForRow({{18, "a"}, {22, "b"}}, "b"), 22);
        QCOMPARE(formatCodeForRow({{18, "a"}}, "none of them"), 0);
    }
};

VIDORRA_TEST_MAIN(DownloadRulesTest)
#include "tst_download_rules.moc"
