// The engine's text rules, fed directly: what the downloader tool prints
// and what the engine makes of it.
#include "Fiofostis/DownloaderRules.h"
#include "TestSupport.h"

using namespace DownloaderRules;

class TestDownloaderRules : public QObject
{
    Q_OBJECT

private slots:
    void chunks();
    void titles_data();
    void titles();
    void formatLine_data();
    void formatLine();
    void audioLabels();
    void percent_data();
    void percent();
    void ffmpegArgs_data();
    void ffmpegArgs();
    void toolPaths();
};

void TestDownloaderRules::chunks()
{
    QCOMPARE(chunkText("  \n My title\n3:45 \r\n\t"), QStringLiteral("My title\n3:45"));
    // A zero byte ends the text, as for a C string.
    QCOMPARE(chunkText(QByteArray("abc\0def", 7)), QStringLiteral("abc"));
    QCOMPARE(chunkLines(QStringLiteral("a\n\nb")), (QStringList{"a", "", "b"}));
}

void TestDownloaderRules::titles_data()
{
    // Hyphens, Cyrillic and long titles are replayed through the stand-in.
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<QString>("title");
    QTest::newRow("parentheses kept") << QByteArray("Live (2019) [HD] - Dave's_cut.") << "Live (2019) HD Dave s cut";
    QTest::newRow("mixed scripts") << QByteArray("Тест Test\t\t2") << "Test 2";
    // Folded and trimmed before the cut, which may leave a trailing blank.
    QTest::newRow("cut after folding") << QByteArray("a -- b -- c -- d -- e -- f -- g -- h -- i -- j -- k")
                                       << "a b c d e f g h i j k";
    QTest::newRow("cut leaves a blank") << QByteArray(" 123456789 123456789 123456789 123")
                                        << "123456789 123456789 123456789 ";
}

void TestDownloaderRules::titles()
{
    QFETCH(QByteArray, raw);
    // The tool's bytes go through the chunk reader first, as in the engine.
    QTEST(cleanTitle(chunkText(raw)), "title");
}

void TestDownloaderRules::formatLine_data()
{
    // The row as "code|extension|resolution|description|best"; empty when
    // the line is not offered.
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("row");
    auto row = [](const char *name, const char *line, const char *row) { QTest::newRow(name) << line << row; };
    row("22: 12-character label", "22 mp4 1280x720 hd720 , mp4a.40.2@192k, 4.20MiB",
        "22|mp4|1280x720|AAC 192 KBps\t[4.20MiB]|");
    row("18: 11-character label", "18 mp4 640x360 medium , avc1.42001E, mp4a.40.2@ 96k",
        "18|mp4|640x360|AAC 96 KBps\t\t[96k]|");
    row("known code, best", "22 mp4 1280x720 hd720 , mp4a.40.2@192k (best)", "22|mp4|1280x720|AAC 192 KBps|best");
    row("unknown code, mp4a, best", "299 mp4 1920x1080 1080p , avc1.64002a, mp4a.40.2@192k (best)",
        "299|mp4|1920x1080|MP4A\t|best");
    row("unknown code, vorbis", "171 webm 640x360 medium , vp8.0, vorbis@128k",
        "171|webm|640x360|VORBIS@128K\t\t[vorbis@128k]|");
    row("rightmost keyword column", "301 webm 1280x720 720p , vp9, avc1.4d401f, 30fps",
        "301|webm|1280x720|AVC1\t\t[30fps]|");
    row("commas become blanks", "302 webm 854x480 480p vp9,vp8", "302|webm|854x480|VP9 VP8\t\t[vp9,vp8]|");
    // The search goes down to the third column and no further.
    row("keyword in third column", "303 mp4 avc1.x small", "303|mp4|avc1.x|AVC1\t\t[small]|");
    row("keyword in second column", "304 avc1 1x1 small", "304|avc1|1x1|N/A\t\t[small]|");
    row("short line", "91 mp4", "91|mp4||N/A\t\t[mp4]|");
    row("not a number: code 0", "abc mp4 1x1 x", "0|mp4|1x1|N/A\t\t[x]|");
    row("header", "format code  extension  resolution note", "");
    row("bracket anywhere", "18 mp4 640x360 [note]", "");
    row("DASH", "160 mp4 256x144 DASH video 108k , avc1.4d400b, 30fps", "");
}

void TestDownloaderRules::formatLine()
{
    QFETCH(QString, line);
    Downloader::videoFormat r;
    QString row;
    if (parseFormatLine(line, audioFormatLabels(), &r))
        row = QStringList{QString::number(r.code), r.extension, r.resolution, r.description, r.best ? "best" : ""}.join(
            '|');
    QTEST(row, "row");
}

void TestDownloaderRules::audioLabels()
{
    const auto labels = audioFormatLabels();
    QCOMPARE(labels.size(), 32);
    QCOMPARE(labels.value(36), QStringLiteral("AAC 36 KBps"));
    QCOMPARE(labels.value(13), QStringLiteral("AAC N/A"));
    QCOMPARE(labels.value(151), QStringLiteral("AAC 24 KBps"));

    Downloader downloader;
    downloader.fillFormatAudio();
    downloader.fillFormatAudio();
    QCOMPARE(downloader.audioFormats.size(), 32);
}

void TestDownloaderRules::percent_data()
{
    QTest::addColumn<QString>("chunk");
    QTest::addColumn<float>("figure");
    QTest::newRow("progress line") << "[download]  45.3% of 10.00MiB at  1.21MiB/s ETA 00:04" << 45.3f;
    QTest::newRow("first line counts") << "[download]  12.5% of 10MiB\n[download]  25.0% of 10MiB" << 12.5f;
    QTest::newRow("no ] and no %") << "Deleting original file" << 0.0f;
    QTest::newRow("] without %") << "[download] Destination: a.mp4" << 0.0f;
    QTest::newRow("] without %, a number after it") << "[download] 12.5" << 12.5f;
    QTest::newRow("% without ]") << "45.3% done" << 45.3f;
    QTest::newRow("% before ]") << "5% [x] 7" << 7.0f;
    // The bar takes whole percentages: nothing that is not a finite 0 .. 100.
    QTest::newRow("nan") << "[download]   nan% of 1MiB" << 0.0f;
    QTest::newRow("inf") << "[download] -inf%" << 0.0f;
    QTest::newRow("too big") << "[download] 3e9%" << 100.0f;
    QTest::newRow("negative") << "[download] -5%" << 0.0f;
}

void TestDownloaderRules::percent()
{
    QFETCH(QString, chunk);
    QTEST(percentFromChunk(chunk), "figure");
}

void TestDownloaderRules::ffmpegArgs_data()
{
    QTest::addColumn<QString>("output");
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("tail");
    auto row = [](const char *name, const char *output, int kind, const char *tail) {
        QTest::newRow(name) << output << kind << tail;
    };
    row("mp4", "/o/a.mp4", 2, "-level 3.1 -vcodec mpeg4");
    row("m4v", "/o/a.m4v", 1, "-level 3.1 -vcodec mpeg4");
    row("mkv", "/o/a.b.mkv", 2, "-level 3.1 -vcodec mpeg4");
    row("flv", "/o/a.flv", 1, "-level 3.1 -vcodec flv");
    row("mov", "/o/a.mov", 1, "-level 3.1 -vcodec mpeg4 -f mov");
    // Only the audio of a download drops the picture.
    row("mp3 from a download", "/o/a.mp3", 0, "-level 3.1 -vn");
    row("wav from a recording", "/o/a.wav", 1, "-level 3.1");
    row("MP4 in capitals", "/o/a.MP4", 1, "-level 3.1");
    row("dot in folder only", "/o.mp4/a", 2, "-level 3.1");
}

void TestDownloaderRules::ffmpegArgs()
{
    QFETCH(QString, output);
    QFETCH(int, kind);
    QFETCH(QString, tail);
    const QString input = QStringLiteral("/in/My Video.mp4");
    const QStringList expected = QStringList{"-i", input} + tail.split(' ') + QStringList{"-qscale", "1", "-y", output};
    QCOMPARE(ffmpegArguments(input, output, Downloader::FormatConvertingFrom(kind)), expected);
}

void TestDownloaderRules::toolPaths()
{
    QCOMPARE(ffmpegPath(QStringLiteral("/app"), 7), QDir::toNativeSeparators(QStringLiteral("/app/ffmpeg7_311")));
    // The engine finds the launcher beside the executable.
    Downloader downloader;
    QCOMPARE(downloader.binDL, QDir::toNativeSeparators(QCoreApplication::applicationDirPath() + "/run"));
    QCOMPARE(downloader.scriptSuffix, QStringLiteral(".sh"));
}

VIDORRA_TEST_MAIN(TestDownloaderRules)
#include "tst_downloader_rules.moc"
