#include <QtTest>

#include "Sniffer/DownloadRules.h"
#include "TestSupport.h"

using namespace DownloadRules;

// The naming and address rules of the download workflow, without a window.
class DownloadRulesTest : public QObject
{
    Q_OBJECT

private slots:
    void addresses()
    {
        // "rebuilt": the canonical address made anew; empty: no address.
        const char *canonical = "https://www.youtube.com/watch?v=abc", *rebuilt = "rebuilt";
        const QList<std::tuple<QString, QString, int, QString>> rows{
            {"yt", "look at https://www.youtube.com/watch?v=abc", 0, canonical},
            {"yt", " http://www.youtube.com/watch?list=PL0&v=abc&t=42s ", 0, rebuilt},
            {"yt", "https://youtube.com/watch?v=abc", 0, rebuilt},
            {"yt", "https://youtu.be/abc?t=3", 0, rebuilt},
            {"yt", "https://www.youtube.com/watch?list=PL0", 2, ""},
            {"yt", "https://WWW.YOUTUBE.COM/watch?v=abc", 2, ""}, // hosts match as written
            {"yt", "https://m.youtube.com/watch?v=abc", 2, ""},
            {"yt", "www.youtube.com/watch?v=abc", 2, ""}, // no scheme added
            {"yt", "   ", 1, ""},
            {"os", "see http://127.0.0.1:8/w?x=1", 0, "http://127.0.0.1:8/w?x=1"},
            {"os", "https://player.vimeo.com/1", 0, "https://player.vimeo.com/1"},
            {"os", "https://example.org/vimeo.com", 1, ""}, // the host must hold the fragment
            {"os", "https://VIMEO.COM/1", 1, ""},
        };
        for (const auto &[table, typed, error, address] : rows) {
            const Address result =
                normaliseAddress(typed, table + "_urls", table == "yt" ? 2 : 1, {{1, "vimeo.com"}, {2, "127.0.0.1"}});
            QCOMPARE(result.error, error);
            QCOMPARE(result.rebuilt, address == rebuilt);
            if (error == 0)
                QCOMPARE(result.url.toString(), address == rebuilt ? canonical : address);
        }
    }

    void saveAsNames()
    {
        const char *rows[][3] = {
            {"My_Clip - 2.mp3", "mp3", "My.Clip.2.mp3"},
            {"song.wav", "mp3", "songwav.mp3"},
            {"holiday", "mp4", "holiday.mp4"},
            {"a  b.mp4", "mp4", "a.b.mp4"},
            {"Café (live).mp3", "mp3", "Caf.(live).mp3"},
            {"Clip.MP3", "mp3", "ClipMP3.mp3"},
        };
        for (const auto &row : rows)
            QCOMPARE(cleanSaveAsPath(QString("/tmp/out/") + row[0], row[1]), QString("/tmp/out/") + row[2]);
    }

    void filtersNamesAndRows()
    {
        const QStringList audio = saveFilters(KindAudio, false);
        QCOMPARE(audio.size(), 7);
        QCOMPARE(saveFilters(KindAudio, true), QStringList{"Waveform Audio (*.wav)"} + audio);
        QCOMPARE(saveFilters(KindVideo, false).size(), 6);
        QCOMPARE(saveFilters(KindVideo, true), QStringList{"MPEG (*.mpg)"} + saveFilters(KindVideo, false));
        QCOMPARE(extensionFromFilter("Audio Interchange (*.aiff)"), QString("aiff"));
        for (const QString &filter : saveFilters(KindVideo, true) + saveFilters(KindAudio, true))
            QVERIFY2(filter.endsWith("(*." + extensionFromFilter(filter) + ")"), qPrintable(filter));
        QCOMPARE(withFilterPattern("/a/b.mp3", "MP3 (*.mp3)"), QString("/a/b.mp3"));
        QCOMPARE(withFilterPattern("/a/b.mp4", "Audio Interchange (*.aiff)"), QString("/a/b.mp4.aiff"));
        QCOMPARE(withFilterPattern("/a/b.mp4", "mp3"), QString("/a/b.mp4"));
        QCOMPARE(fixExtension("a.MP3", "mp3"), QString("a.MP3.mp3"));
        QCOMPARE(fixExtension("a", "aiff"), QString("a.aif"));
        QCOMPARE(fixExtension("a.aif", "AIFF"), QString("a.aif"));
        QCOMPARE(outputBaseName(""), QString("default"));
        QCOMPARE(outputBaseName("My-Video: Take 1 " + QString(40, 'a')), QString("My Video Take 1 aaaaaaaaaaaaaa"));
        Downloader::videoFormat row{22, true, "mp4", "1280x720", "AAC 192 KBps"};
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
