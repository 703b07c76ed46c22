// The engine's text rules, fed directly: what the downloader tool prints and what the engine makes of it.
#include "Fiofostis/DownloaderRules.h"
#include "TestSupport.h"

using namespace DownloaderRules;

class TestDownloaderRules : public QObject
{
    Q_OBJECT

private slots:
    void chunksAndTitles()
    {
        QCOMPARE(chunkText("  \n My title\n3:45 \r\n\t"), QString("My title\n3:45"));
        QCOMPARE(chunkLines("a\n\nb"), (QStringList{"a", "", "b"}));
        const char *titles[][2] = {
            {"Live (2019) [HD] - Dave's_cut.", "Live (2019) HD Dave s cut"},
            {"Тест Test\t\t2", "Test 2"},
            // Folded and trimmed before the cut, which may leave a trailing blank.
            {"a -- b -- c -- d -- e -- f -- g -- h -- i -- j -- k", "a b c d e f g h i j k"},
            {" 123456789 123456789 123456789 123", "123456789 123456789 123456789 "},
        };
        for (const auto &title : titles)
            QCOMPARE(cleanTitle(chunkText(title[0])), QString(title[1]));
    }

    void formatLines()
    {
        // A line as "code|extension|resolution|description|best" (lines not offered: the engine's format table).
        const char *rows[][2] = {
            {"22 mp4 1280x720 hd720 , mp4a.40.2@192k, 4.20MiB", "22|mp4|1280x720|AAC 192 KBps\t[4.20MiB]|"},
            {"18 mp4 640x360 medium , avc1.42001E, mp4a.40.2@ 96k", "18|mp4|640x360|AAC 96 KBps\t\t[96k]|"},
            {"22 mp4 1280x720 hd720 , mp4a.40.2@192k (best)", "22|mp4|1280x720|AAC 192 KBps|best"},
            {"299 mp4 1920x1080 1080p , avc1.64002a, mp4a.40.2@192k (best)", "299|mp4|1920x1080|MP4A\t|best"},
            {"171 webm 640x360 medium , vp8.0, vorbis@128k", "171|webm|640x360|VORBIS@128K\t\t[vorbis@128k]|"},
            {"301 webm 1280x720 720p , vp9, avc1.4d401f, 30fps", "301|webm|1280x720|AVC1\t\t[30fps]|"},
            {"302 webm 854x480 480p vp9,vp8", "302|webm|854x480|VP9 VP8\t\t[vp9,vp8]|"},
            // The keyword search goes down to the third column and no further.
            {"303 mp4 avc1.x small", "303|mp4|avc1.x|AVC1\t\t[small]|"},
            {"304 avc1 1x1 small", "304|avc1|1x1|N/A\t\t[small]|"},
            {"91 mp4", "91|mp4||N/A\t\t[mp4]|"},
            {"abc mp4 1x1 x", "0|mp4|1x1|N/A\t\t[x]|"},
        };
        for (const auto &row : rows) {
            Downloader::videoFormat r;
            QVERIFY(parseFormatLine(row[0], audioFormatLabels(), &r));
            QCOMPARE(
                QStringList({QString::number(r.code), r.extension, r.resolution, r.description, r.best ? "best" : ""})
                    .join('|'),
                QString(row[1]));
        }
    }

    void audioLabels()
    {
        const auto labels = audioFormatLabels();
        QCOMPARE(labels.size(), 32);
        QCOMPARE((QStringList{labels[36], labels[13], labels[151]}),
                 (QStringList{"AAC 36 KBps", "AAC N/A", "AAC 24 KBps"}));
    }

    void percent()
    {
        const QList<QPair<QString, float>> rows{
            {"[download]  45.3% of 10.00MiB at  1.21MiB/s ETA 00:04", 45.3f},
            {"[download]  12.5% of 10MiB\n[download]  25.0% of 10MiB", 12.5f}, // the first line counts
            {"Deleting original file", 0.0f},
            {"[download] Destination: a.mp4", 0.0f},
            {"[download] 12.5", 12.5f},
            {"45.3% done", 45.3f},
            {"5% [x] 7", 7.0f},
            // The bar takes whole percentages: nothing that is not a finite 0 .. 100.
            {"[download]   nan% of 1MiB", 0.0f},
            {"[download] -inf%", 0.0f},
            {"[download] 3e9%", 100.0f},
            {"[download] -5%", 0.0f},
        };
        for (const auto &row : rows)
            QCOMPARE(percentFromChunk(row.first), row.second);
    }

    void ffmpegArgs()
    {
        const QList<std::tuple<QString, int, QString>> rows{
            {"/o/a.mp4", 2, "-level 3.1 -vcodec mpeg4"},
            {"/o/a.m4v", 1, "-level 3.1 -vcodec mpeg4"},
            {"/o/a.b.mkv", 2, "-level 3.1 -vcodec mpeg4"},
            {"/o/a.flv", 1, "-level 3.1 -vcodec flv"},
            {"/o/a.mov", 1, "-level 3.1 -vcodec mpeg4 -f mov"},
            {"/o/a.mp3", 0, "-level 3.1 -vn"}, // sound alone, from a download or a recording
            {"/o/a.m4a", 1, "-level 3.1 -vn"},
            {"/o/a.mpg", 1, "-level 3.1"},
            {"/o/a.MP4", 1, "-level 3.1"},
            {"/o.mp4/a", 2, "-level 3.1"},
        };
        const QString input = "/in/My Video.mp4";
        for (const auto &[output, kind, tail] : rows)
            QCOMPARE(ffmpegArguments(input, output, Downloader::FormatConvertingFrom(kind)),
                     (QStringList{"-i", input} + tail.split(' ') + QStringList{"-qscale", "1", "-y", output}));
    }

    void toolPaths()
    {
        QCOMPARE(ffmpegPath("/app", 7), QString("/app/ffmpeg7_311"));
        QCOMPARE(Downloader().scriptSuffix, QString(".sh")); // the launcher is found beside the executable
    }
};

VIDORRA_TEST_MAIN(TestDownloaderRules)
#include "tst_downloader_rules.moc"
