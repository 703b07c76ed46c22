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
    void durations();
    void formatLine_data();
    void formatLine();
    void formatListing();
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
    QCOMPARE(chunkText(QByteArray()), QString());
    // Non-ASCII bytes survive as single characters, for the title clean-up
    // to remove.
    QCOMPARE(chunkText(QByteArray("\xd0\x9f")).size(), 2);
    QCOMPARE(chunkLines(QStringLiteral("a\n\nb")), (QStringList{"a", "", "b"}));
    QCOMPARE(chunkLines(QString()), QStringList{QString()});
}

void TestDownloaderRules::titles_data()
{
    QTest::addColumn<QByteArray>("raw");
    QTest::addColumn<QString>("title");
    QTest::newRow("punctuation and hyphens") << QByteArray("My-Video: Part 1") << "My Video Part 1";
    QTest::newRow("parentheses kept") << QByteArray("Live (2019) [HD] - Dave's cut!") << "Live (2019) HD Dave s cut";
    QTest::newRow("underscores and dots") << QByteArray("a_b.c") << "a b c";
    QTest::newRow("Cyrillic only") << QByteArray("Привет мир") << "";
    QTest::newRow("CJK only") << QByteArray("日本語のタイトル") << "";
    QTest::newRow("mixed scripts") << QByteArray("Тест Test 2") << "Test 2";
    QTest::newRow("50 characters") << QByteArray("abcdefghij abcdefghij abcdefghij abcdefghij abcdef")
                                   << "abcdefghij abcdefghij abcdefgh";
    QTest::newRow("cut leaves a trailing blank")
        << QByteArray("123456789 123456789 123456789 123456789") << "123456789 123456789 123456789 ";
    QTest::newRow("cut after folding") << QByteArray("a -- b -- c -- d -- e -- f -- g -- h -- i -- j -- k")
                                       << "a b c d e f g h i j k";
    QTest::newRow("tabs folded") << QByteArray("one\t\ttwo") << "one two";
}

void TestDownloaderRules::titles()
{
    QFETCH(QByteArray, raw);
    QFETCH(QString, title);
    // The tool's bytes go through the chunk reader first, as in the engine.
    QCOMPARE(cleanTitle(chunkText(raw)), title);
    QVERIFY(cleanTitle(chunkText(raw)).size() <= 30);
}

void TestDownloaderRules::durations()
{
    const QStringList two = chunkLines(chunkText("My-Video: Part 1\n3:45\n"));
    QCOMPARE(titleFromLines(two), QStringLiteral("My Video Part 1"));
    QCOMPARE(durationFromLines(two), QStringLiteral("3:45"));
    QCOMPARE(durationFromLines({QStringLiteral("1:02:03"), QStringLiteral("x")}), QStringLiteral("x"));
    const QStringList one{QStringLiteral("Only a title")};
    QCOMPARE(durationFromLines(one), QStringLiteral("0:00"));
    QCOMPARE(titleFromLines({}), QStringLiteral("default"));
    QCOMPARE(durationFromLines({}), QStringLiteral("0:00"));
    QCOMPARE(durationFromLines({QStringLiteral("t"), QStringLiteral("1:02:03")}), QStringLiteral("1:02:03"));
}

void TestDownloaderRules::formatLine_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("offered");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("extension");
    QTest::addColumn<QString>("resolution");
    QTest::addColumn<QString>("description");
    QTest::addColumn<bool>("best");

    QTest::newRow("22: 12-character label, no tab")
        << "22           mp4        1280x720   hd720 , avc1.64001F, mp4a.40.2@192k, 4.20MiB" << true << 22 << "mp4"
        << "1280x720"
        << "AAC 192 KBps\t[4.20MiB]" << false;
    QTest::newRow("18: 11-character label, one tab")
        << "18           mp4        640x360    medium , avc1.42001E, mp4a.40.2@ 96k" << true << 18 << "mp4"
        << "640x360"
        << "AAC 96 KBps\t\t[96k]" << false;
    QTest::newRow("best label") << "22 mp4 1280x720 hd720 , avc1.64001F, mp4a.40.2@192k (best)" << true << 22 << "mp4"
                                << "1280x720"
                                << "AAC 192 KBps" << true;
    QTest::newRow("unknown code, mp4a codec, best")
        << "299 mp4 1920x1080 1080p , avc1.64002a, mp4a.40.2@192k (best)" << true << 299 << "mp4"
        << "1920x1080"
        << "MP4A\t" << true;
    QTest::newRow("unknown code, vorbis") << "171 webm 640x360 medium , vp8.0, vorbis@128k" << true << 171 << "webm"
                                          << "640x360"
                                          << "VORBIS@128K\t\t[vorbis@128k]" << false;
    QTest::newRow("rightmost keyword column wins")
        << "301 webm 1280x720 720p , vp9, avc1.4d401f, 30fps" << true << 301 << "webm"
        << "1280x720"
        << "AVC1\t\t[30fps]" << false;
    QTest::newRow("commas become blanks") << "302 webm 854x480 480p vp9,vp8" << true << 302 << "webm"
                                          << "854x480"
                                          << "VP9 VP8\t\t[vp9,vp8]" << false;
    QTest::newRow("keyword in resolution column") << "303 mp4 avc1.x small" << true << 303 << "mp4"
                                                  << "avc1.x"
                                                  << "AVC1\t\t[small]" << false;
    QTest::newRow("no keyword: N/A") << "304 flv 400x240 small , h263" << true << 304 << "flv"
                                     << "400x240"
                                     << "N/A\t\t[h263]" << false;
    QTest::newRow("short line") << "91 mp4" << true << 91 << "mp4"
                                << ""
                                << "N/A\t\t[mp4]" << false;
    QTest::newRow("code only") << "305" << true << 305 << ""
                               << ""
                               << "N/A\t\t[305]" << false;
    QTest::newRow("not a number: code 0") << "abc mp4 1x1 x" << true << 0 << "mp4"
                                          << "1x1"
                                          << "N/A\t\t[x]" << false;
    QTest::newRow("header") << "format code  extension  resolution note" << false << 0 << ""
                            << ""
                            << "" << false;
    QTest::newRow("bracketed info") << "[info] Available formats for BaW_jenozKc:" << false << 0 << ""
                                    << ""
                                    << "" << false;
    QTest::newRow("bracket anywhere") << "18 mp4 640x360 [note]" << false << 0 << ""
                                      << ""
                                      << "" << false;
    QTest::newRow("DASH audio") << "140 m4a audio only DASH audio 128k , m4a_dash container, mp4a.40.2@128k" << false
                                << 0 << ""
                                << ""
                                << "" << false;
    QTest::newRow("DASH video") << "160 mp4 256x144 DASH video 108k , avc1.4d400b, 30fps" << false << 0 << ""
                                << ""
                                << "" << false;
}

void TestDownloaderRules::formatLine()
{
    QFETCH(QString, line);
    QFETCH(bool, offered);
    Downloader::videoFormat row;
    QCOMPARE(parseFormatLine(line, audioFormatLabels(), &row), offered);
    if (!offered)
        return;
    QTEST(row.code, "code");
    QTEST(row.extension, "extension");
    QTEST(row.resolution, "resolution");
    QTEST(row.description, "description");
    QTEST(row.best, "best");
}

void TestDownloaderRules::formatListing()
{
    QFile recorded(QStringLiteral(VIDORRA_FIXTURES_DIR "/recorded/formats-classic.txt"));
    QVERIFY(recorded.open(QIODevice::ReadOnly));
    const auto formats = parseFormats(chunkLines(chunkText(recorded.readAll())), audioFormatLabels());
    QCOMPARE(formats.keys().size(), 8);
    for (int code : {17, 36, 5, 43, 133, 18, 91, 22})
        QVERIFY2(formats.contains(code), qPrintable(QString::number(code)));
    // The second line of code 18 replaces the first.
    QCOMPARE(formats.value(18).description, QStringLiteral("AAC 96 KBps\t\t[1.21MiB]"));
    QCOMPARE(formats.value(36).description, QStringLiteral("AAC 36 KBps\t\t[mp4a.40.2]"));
    QCOMPARE(formats.value(43).description, QStringLiteral("Vorbis 128 KBps\t[vorbis@128k]"));
    QCOMPARE(formats.value(133).description, QStringLiteral("AVC1\t\t[30fps]"));
    QVERIFY(formats.value(22).best);
    int best = 0;
    for (const auto &row : formats)
        best += row.best ? 1 : 0;
    QCOMPARE(best, 1);

    // Nothing but information and DASH lines: an empty table.
    QVERIFY(parseFormats(
                {QStringLiteral("[youtube] x: Downloading webpage"), QStringLiteral("160 mp4 256x144 DASH video 108k")},
                audioFormatLabels())
                .isEmpty());
}

void TestDownloaderRules::audioLabels()
{
    const auto labels = audioFormatLabels();
    QCOMPARE(labels.size(), 32);
    QCOMPARE(labels.value(36), QStringLiteral("AAC 36 KBps"));
    QCOMPARE(labels.value(13), QStringLiteral("AAC N/A"));
    QCOMPARE(labels.value(102), QStringLiteral("Vorbis 192 KBps"));
    QCOMPARE(labels.value(151), QStringLiteral("AAC 24 KBps"));

    Downloader downloader;
    downloader.fillFormatAudio();
    downloader.fillFormatAudio();
    QCOMPARE(downloader.audioFormats.size(), 32);
    // Filled once: a changed table is left alone.
    downloader.audioFormats.insert(7, QStringLiteral("x"));
    downloader.fillFormatAudio();
    QCOMPARE(downloader.audioFormats.size(), 33);
}

void TestDownloaderRules::percent_data()
{
    QTest::addColumn<QString>("chunk");
    QTest::addColumn<float>("figure");
    QTest::newRow("progress line") << "[download]  45.3% of 10.00MiB at  1.21MiB/s ETA 00:04" << 45.3f;
    QTest::newRow("whole") << "[download] 100% of 10.00MiB in 00:08" << 100.0f;
    QTest::newRow("first line counts") << "[download]  12.5% of 10MiB\n[download]  25.0% of 10MiB" << 12.5f;
    QTest::newRow("destination first") << "[download] Destination: a.mp4\n[download]   0.0% of 10.00MiB at 97.53KiB/s"
                                       << 0.0f;
    QTest::newRow("no ] and no %") << "Deleting original file" << 0.0f;
    QTest::newRow("] without %") << "[download] Destination: a.mp4" << 0.0f;
    QTest::newRow("] without %, a number after it") << "[download] 12.5" << 12.5f;
    QTest::newRow("% without ]") << "45.3% done" << 45.3f;
    QTest::newRow("% before ]") << "5% [x] 7" << 7.0f;
    QTest::newRow("empty") << "" << 0.0f;
}

void TestDownloaderRules::percent()
{
    QFETCH(QString, chunk);
    QFETCH(float, figure);
    QCOMPARE(percentFromChunk(chunk), figure);
}

void TestDownloaderRules::ffmpegArgs_data()
{
    QTest::addColumn<QString>("output");
    QTest::addColumn<QStringList>("tail");
    const QStringList mpeg4{"-level", "3.1", "-vcodec", "mpeg4", "-qscale", "1", "-y"};
    const QStringList plain{"-level", "3.1", "-qscale", "1", "-y"};
    QTest::newRow("mp4") << "/o/a.mp4" << mpeg4;
    QTest::newRow("m4v") << "/o/a.m4v" << mpeg4;
    QTest::newRow("mkv") << "/o/a.b.mkv" << mpeg4;
    QTest::newRow("flv") << "/o/a.flv" << QStringList{"-level", "3.1", "-vcodec", "flv", "-qscale", "1", "-y"};
    QTest::newRow("mov") << "/o/a.mov"
                         << QStringList{"-level", "3.1", "-vcodec", "mpeg4", "-f", "mov", "-qscale", "1", "-y"};
    QTest::newRow("mp3") << "/o/a.mp3" << plain;
    QTest::newRow("m4a") << "/o/a.m4a" << plain;
    QTest::newRow("webm") << "/o/a.webm" << plain;
    QTest::newRow("3gp") << "/o/a.3gp" << plain;
    QTest::newRow("MP4 in capitals") << "/o/a.MP4" << plain;
    QTest::newRow("MOV in capitals") << "/o/a.MOV" << plain;
    QTest::newRow("no extension") << "/o/a" << plain;
    QTest::newRow("dot in folder only") << "/o.mp4/a" << plain;
}

void TestDownloaderRules::ffmpegArgs()
{
    QFETCH(QString, output);
    QFETCH(QStringList, tail);
    const QString input = QStringLiteral("/in/My Video.mp4");
    QCOMPARE(ffmpegArguments(input, output), QStringList({"-i", input}) + tail + QStringList{output});
}

void TestDownloaderRules::toolPaths()
{
    QCOMPARE(launcherPath(QStringLiteral("/Applications/Vidorra 2.app/Contents/MacOS")),
             QDir::toNativeSeparators(QStringLiteral("/Applications/Vidorra 2.app/Contents/MacOS/run")));
    QCOMPARE(ffmpegPath(QStringLiteral("/app"), 9), QDir::toNativeSeparators(QStringLiteral("/app/ffmpeg9_311")));
    QCOMPARE(ffmpegPath(QStringLiteral("/app"), 7), QDir::toNativeSeparators(QStringLiteral("/app/ffmpeg7_311")));

    // The engine finds the launcher beside the executable.
    Downloader downloader;
    QCOMPARE(downloader.binDL, launcherPath(QCoreApplication::applicationDirPath()));
    QCOMPARE(downloader.scriptSuffix, QStringLiteral(".sh"));
    QCOMPARE(downloader.step, Downloader::stepIdle);
    QVERIFY(downloader.options && downloader.options->steps.isEmpty() && downloader.options->title.isEmpty());
}

VIDORRA_TEST_MAIN(TestDownloaderRules)
#include "tst_downloader_rules.moc"
