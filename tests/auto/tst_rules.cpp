// The program's rules, fed directly: the window's texts and figures, the download workflow's names and
// addresses, the sniffed list's rows, what the downloader tool prints and what the engine makes of it, the recorder's
// places and commands, the frameless window's edges.
#include "AVRecorder/AVRecorder.h"
#include "AVRecorder/NcFramelessHelper.h"
#include "AVRecorder/RecorderRules.h"
#include "AVRecorder/StopDialog.h"
#include "Fiofostis/DownloaderRules.h"
#include "Fiofostis/JobFiles.h"
#include "Platform/Platform.h"
#include "Platform/ScreenCast.h"
#include "Sniffer/DownloadRules.h"
#include "Platform/Log.h"
#include "Sniffer/SniffedRules.h"
#include "Sniffer/WindowRules.h"
#include "TestSupport.h"

using namespace DownloadRules;
using namespace DownloaderRules;
using namespace RecorderRules;
using namespace WindowRules;

// A frameless window with the recorder's minimum size, at 100,100 (600 x 300 unless told), with its own helper.
struct Window
{
    explicit Window(const QRect &geometry = QRect(100, 100, 600, 300))
    {
        widget.setWindowFlags(Qt::FramelessWindowHint);
        widget.setMinimumSize(481, 179);
        widget.setGeometry(geometry);
        helper.activateOn(&widget);
        widget.show();
    }
    void mouse(QEvent::Type type, const QPoint &global, Qt::MouseButtons buttons)
    {
        const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent event(type, widget.mapFromGlobal(global), global, button, buttons, Qt::NoModifier);
        QApplication::sendEvent(&widget, &event);
    }
    void hover(const QPoint &global)
    {
        QHoverEvent event(QEvent::HoverMove, widget.mapFromGlobal(global), {});
        QApplication::sendEvent(&widget, &event);
    }
    QWidget widget;
    NcFramelessHelper helper;
};

class RulesTest : public QObject
{
    Q_OBJECT

private slots:
    void logAndMessages()
    {
        // One log file per day of the year; information lines are not logged.
        QCOMPARE(Log::fileName({2026, 1, 1}) + Log::fileName({2024, 12, 31}), QString("/log_1.txt/log_366.txt"));
        QCOMPARE(Log::line(QtDebugMsg, "a b") + Log::line(QtWarningMsg, "x") +
                     Log::line(QtCriticalMsg, "!!! ERROR:  y") + Log::line(QtFatalMsg, "%1 z") +
                     Log::line(QtInfoMsg, "info"),
                 QString("D: a bW: xC: !!! ERROR:  yF: %1 z"));
        auto split = [](const char *row) {
            const MessageRow parts = splitMessageRow(row);
            return QString::number(parts.titleNumber) + "|" + parts.text;
        };
        QCOMPARE(split("3~Text with ~ more"), QString("3|Text with "));
        QCOMPARE(split("no separator at all"), QString("0|Indefinite Error"));
        QCOMPARE(split("12"), QString("12|Indefinite Error"));
        QCOMPARE(split("~"), QString("0|"));
        QCOMPARE(errorDetailsBlock(9, 1, {}), QString("<b>error #9:?</b><br>in '?' : ?<br>comment: ---"));
        QCOMPARE(errorDetailsBlock(1, 1, {"f", "7", "g"}), QString("<b>error #1:7</b><br>in 'g' : f<br>comment: ---"));
        QCOMPARE(errorDetailsBlock(4, 1, {"src/Sniffer/Locker", "31", "checkLocker", "<a>"}), // text, not markup
                 QString("<b>error #4:31</b><br>in 'checkLocker' : src/Sniffer/Locker<br>comment: &lt;a&gt;"));
        QCOMPARE(errorDetailsBlock(3, 2, {"f", "7", "g", "a", "b", "c"}),
                 QString("<b>error #3:7</b><br>[DL] in 'g' : f<br>comment: <ul><li>a</li><li>b</li><li>c</li></ul>"));
        QCOMPARE(messageBody("Text", "B"), QString("Text<br><br><hr><div style=\"font-size:10px\"><i>B</i></div>"));
    }

    void progressAndDots()
    {
        QCOMPARE(progressNext(50, 0, 100, 12345), 51);
        // 97 would show 98: thrown back into 20 .. 98, whatever the draw.
        QSet<int> seen;
        for (quint32 r = 0; r < 200; ++r)
            seen.insert(progressNext(97, 0, 100, r * 7919u));
        QCOMPARE(*std::min_element(seen.begin(), seen.end()), 20);
        QCOMPARE(*std::max_element(seen.begin(), seen.end()), 98);
        QVERIFY(progressNext(98, 0, 100, 5) <= 98 && progressNext(99, 0, 100, 5) <= 98);
        // The dots swing between eleven and one.
        int count = 3;
        bool growing = true;
        QList<int> shown;
        for (int i = 0; i < 22; ++i, shown << count)
            dotsNext(count, growing);
        QCOMPARE(shown, (QList<int>{4, 5, 6, 7, 8, 9, 10, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 2, 3, 4, 5}));
    }

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

    void saveAsNamesAndWorkFiles()
    {
        const char *rows[][3] = {
            {"My_Clip - 2.mp3", "mp3", "My.Clip.2.mp3"},
            {"song.wav", "mp3", "songwav.mp3"},
            {"holiday", "mp4", "holiday.mp4"},
            {"a  b.mp4", "mp4", "a.b.mp4"},
            {"Café (live).mp3", "mp3", "Caf.(live).mp3"},
            {"Clip.MP3", "mp3", "ClipMP3.mp3"},
            {"holiday.mp4", "", "holiday.mp4"}, // no extension wanted: the typed one if it is a media one
            {"holiday.desktop", "", "holidaydesktop.media"},
        };
        for (const auto &row : rows)
            QCOMPARE(cleanSaveAsPath(QString("/tmp/out/") + row[0], row[1]), QString("/tmp/out/") + row[2]);
        // Beside the target, hidden, new (never the same-named video); only the job's files and their companions go.
        QTemporaryDir dir;
        const QString video = dir.filePath("Song.mp4"), target = dir.filePath("Song.mp3");
        QVERIFY(writeFile(video, "kept") && writeFile(video + ".part", "kept") && writeFile(video + ".ytdl", "kept"));
        JobFiles files;
        const QString download = files.create(target, "mp4"), audio = files.create(target, "mp3");
        QVERIFY(download.startsWith(dir.filePath(".Song.")) && download.endsWith(".mp4") && QFile::exists(audio));
        QVERIFY(writeFile(download + ".part", "tool") && writeFile(audio, "sound") && files.commit(audio, target));
        files.removeCreated();
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::Hidden),
                 (QStringList{"Song.mp3", "Song.mp4", "Song.mp4.part", "Song.mp4.ytdl"}));
    }

    void filtersNamesAndRows()
    {
        const QStringList audio = saveFilters(KindAudio, false);
        QCOMPARE(audio.size(), 7);
        QCOMPARE(saveFilters(KindAudio, true), QStringList{"Waveform Audio (*.wav)"} + audio);
        QCOMPARE(saveFilters(KindVideo, false).size(), 6);
        QCOMPARE(saveFilters(KindVideo, true), QStringList{"MPEG (*.mpg)"} + saveFilters(KindVideo, false));
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
        const auto labels = audioFormatLabels(); // 32 codes, each once, shown as written
        QCOMPARE(labels.size(), 32);
        QCOMPARE((QStringList{labels[36], labels[13], labels[151]}),
                 (QStringList{"AAC 36 KBps", "AAC N/A", "AAC 24 KBps"}));
        for (const auto &row : rows) {
            Downloader::videoFormat r;
            QVERIFY(parseFormatLine(row[0], labels, &r));
            QCOMPARE(
                QStringList({QString::number(r.code), r.extension, r.resolution, r.description, r.best ? "best" : ""})
                    .join('|'),
                QString(row[1]));
        }
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

    void placesAndRegions()
    {
        // Close button, Start button (100 x 28) and hint (300 x 72) of the region window.
        QCOMPARE(closeButtonPos({481, 179}), QPoint(457, 0));
        QCOMPARE(startButtonPos({481, 179}, {100, 28}), QPoint(190, 140));
        QCOMPARE(hintPos({481, 179}, {300, 72}), QPoint(90, 54));
        QCOMPARE(startButtonPos({640, 361}, {101, 28}), QPoint(270, 231));
        QCOMPARE(stopDialogPos(1440, 321), QPoint(1099, 10));

        const QSize screen(1440, 900);
        const QList<QPair<QRect, QString>> regions{
            {{100, 50, 640, 480}, "scale=1440:900,crop=640:480:100:50:keep_aspect=1"},
            {{-30, 40, 600, 300}, "scale=1440:900,crop=570:300:0:40:keep_aspect=1"},       // over the left edge
            {{1000, 700, 600, 300}, "scale=1440:900,crop=440:200:1000:700:keep_aspect=1"}, // over right and bottom
            {{0, 0, 1440, 900}, "scale=1440:900,crop=1440:900:0:0:keep_aspect=1"},
        };
        for (const auto &[window, filter] : regions)
            QCOMPARE(grabFilter(screen, clippedRegion(window, screen)), filter);
    }

    void deviceListAndWorkFiles()
    {
        QCOMPARE(inputScreen("[AVFoundation input device @ 0x7f8] [2] Capture screen 0\n", "0"), QString("2"));
        QCOMPARE(inputScreen("[AVFoundation input device @ 0x7f8] [10] Capture screen 0", "0"), QString("1"));
        QCOMPARE(inputScreen("[0] FaceTime HD Camera\n[1] Capture camera 0", "0"), QString("0"));
        QCOMPARE(inputScreen("Capture screen 0", "0"), QString()); // not after "] ": nothing before it to read
        // No X display to grab: the recorder says so instead of recording black. A Wayland
        // session records through the desktop's portal; without one on the bus it names what to install.
        const QByteArray wayland = qgetenv("WAYLAND_DISPLAY"), bus = qgetenv("DBUS_SESSION_BUS_ADDRESS");
        qunsetenv("WAYLAND_DISPLAY");
        QVERIFY(Platform::screenCaptureProblem("wayland").contains("no X display"));
        QVERIFY(Platform::screenGrabFormat() == "x11grab" && !Platform::regionIsLayer());
        qputenv("WAYLAND_DISPLAY", "wayland-9");
        qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
        QVERIFY(Platform::screenGrabFormat() == "pipewire" && Platform::regionIsLayer());
        QVERIFY(Platform::screenCaptureProblem("wayland").contains("xdg-desktop-portal"));
        Platform::ScreenCast cast; // asked all the same, it fails with a message
        QSignalSpy failed(&cast, &Platform::ScreenCast::failed);
        cast.open(QString());
        QVERIFY(failed.size() == 1 && failed.first().first().toString().contains("no ScreenCast portal"));
        qputenv("WAYLAND_DISPLAY", wayland);
        qputenv("DBUS_SESSION_BUS_ADDRESS", bus);
        const QDateTime when({2026, 11, 23}, {3, 0});
        QCOMPARE(workFileName("/tmp/a", when), workFileName("/tmp/a", when));
        QVERIFY(workFileName("/tmp/a", when) != workFileName("/tmp/b", when));
        QVERIFY(QRegularExpression("^[0-9a-f]{32}$").match(workFileName("/tmp/a", when)).hasMatch());
    }

    void mergeLinesSoundUpWithPicture()
    {
        const QString picture = "Input #0, x11grab, from ':99':\n  Duration: N/A, start: 1795401922.529454, bitrate:";
        QCOMPARE(videoStartMs(picture), Q_INT64_C(1795401922529));
        QCOMPARE(videoStartMs("Input #0, x11grab, from ':99':\n"), Q_INT64_C(0));
        // The earliest arrival less the length recorded; a line cut short is ignored.
        const QString sound = "\rIn:0.00% 00:00:01.37 [00:00:00.00] Out:8.19k\rIn:0.00% 00:00:01.50 [0";
        QCOMPARE(audioStartMs(sound, 10000, 0), Q_INT64_C(8500));
        QCOMPARE(audioStartMs(sound, 10000, 8000), Q_INT64_C(8000));
        QCOMPARE(audioStartMs("Clip:0 \nAborted.\n", 10000, 0), Q_INT64_C(0));
        // Recorded on a fresh sound server: sox opened the device with the picture, and its first 90 ms
        // of sound came 1.4 s later; the sound is delayed to match.
        const QString opened =
            "Sample Encoding: 16-bit Signed Integer PCM\n\n\rIn:0.00% 00:00:00.00 [00:00:00.00] Out:0  ";
        const qint64 fresh =
            audioStartMs("\rIn:0.00% 00:00:00.09 [00:00:00.00] Out:0 ", 11490, audioStartMs(opened, 10010, 0));
        QCOMPARE(mergeArguments("v.mpg", "a.wav", "r.mpg", audioShift(videoStartMs("Input #0,\n start: 10.0,"), fresh))
                     .mid(2, 2),
                 QStringList({"-itsoffset", "1.400"}));

        QCOMPARE(audioShift(1000, 1030), Q_INT64_C(0)); // within 40 ms
        QCOMPARE(audioShift(1000, 1120), Q_INT64_C(120));
        QCOMPARE(audioShift(1000, 900), Q_INT64_C(-100));
        QCOMPARE(audioShift(0, 900), Q_INT64_C(0));
        QCOMPARE(audioShift(1795401922529, 12000), Q_INT64_C(0)); // not one clock
        const QList<QPair<int, QString>> shifts{{120, "-itsoffset 0.120 "}, {-80, "-ss 0.080 "}, {0, ""}};
        for (const auto &[shift, option] : shifts)
            QCOMPARE(mergeArguments("v.mpg", "a.wav", "r.mpg", shift).join(' '),
                     "-i v.mpg " + option + "-i a.wav -vcodec copy -y r.mpg");
        QCOMPARE(mergeArguments("v.mpg", QString(), "r.mpg", 300).join(' '), QString("-i v.mpg -vcodec copy -y r.mpg"));
        QCOMPARE(grabVideoArguments("x11grab", ":99", "F", "v.mpg").join(' '),
                 QString("-rtbufsize 2000M -f x11grab -i :99 -r 30 -vf F -b:v 20M v.mpg"));
        // Under Wayland: the stream scaled to the screen, cut to the region (clipped to the screen),
        // raw frames at 30 a second for ffmpeg, which writes the same video file.
        QCOMPARE(screenCastArguments(7, 42, {1440, 900}, {-30, 50, 640, 480}).mid(2).join(' '),
                 QString("pipewiresrc fd=7 path=42 do-timestamp=true keepalive-time=100 ! videoconvert ! videoscale "
                         "! video/x-raw,width=1440,height=900 ! videocrop left=0 top=50 right=830 bottom=370 ! "
                         "videorate ! video/x-raw,format=BGRx,framerate=30/1 ! fdsink fd=1"));
        QCOMPARE(screenCastEncodeArguments({610, 480}, "v.mpg").join(' '),
                 QString("-f rawvideo -pix_fmt bgr0 -s 610x480 -r 30 -i - -r 30 -b:v 20M v.mpg"));
        QVERIFY(screenCastStarted("Input #0, rawvideo, from 'pipe:':") && !screenCastStarted("ffmpeg version"));
    }

    void windowsWithoutARecording()
    {
        QTemporaryDir temp;
        AVRecorder recorder(nullptr, QCoreApplication::applicationDirPath(), temp.path());
        QCOMPARE(recorder.minimumSize(), QSize(481, 179));
        QVERIFY(qAbs(recorder.windowOpacity() - 0.53) < 0.01);
        QSignalSpy closed(&recorder, &AVRecorder::close);
        QSignalSpy done(&recorder, QOverload<AVRecorder::ResultingData>::of(&AVRecorder::done));
        recorder.stop(); // nothing to stop
        QVERIFY(done.isEmpty() && closed.isEmpty());
        recorder.stopWindow()->close(); // the stop dialog's own close button cancels
        QCOMPARE(closed.size(), 1);
        QVERIFY(QFileInfo(recorder.resultWorkFile()).fileName().endsWith("_res.mpg"));

        // A display ffmpeg cannot open ends the recording with a message, nothing left behind.
        QSignalSpy failed(&recorder, &AVRecorder::error);
        const QByteArray display = qgetenv("DISPLAY");
        qputenv("DISPLAY", ":999");
        recorder.startRecorder();
        recorder.clickButtonStart();
        qputenv("DISPLAY", display);
        QVERIFY(waitFor([&] { return !failed.isEmpty(); }, 60000));
        QVERIFY2(failed.first().at(1).toString().contains(":999"), qPrintable(failed.first().at(1).toString()));
        QVERIFY(!recorder.isRecording() && !recorder.stopWindow()->isVisible());
        QVERIFY(!QFile::exists(recorder.videoWorkFile()) && !QFile::exists(recorder.audioWorkFile()));

        // The light runs along the five spheres, one step at a time.
        StopDialog dialog;
        QCOMPARE(dialog.size(), QSize(321, 115));
        QList<int> lit;
        for (int i = 0; i < 6; ++i, dialog.update())
            lit << dialog.litSphere();
        QCOMPARE(lit, (QList<int>{0, 1, 2, 3, 4, 0}));
        QSignalSpy stop(&dialog, &StopDialog::stop);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        QTest::keyClick(&dialog, Qt::Key_E, Qt::ControlModifier);
        QTest::keyClick(&dialog, Qt::Key_Escape); // neither stops nor hides
        QVERIFY(stop.size() == 1 && dialog.isVisible());
    }

    void sniffedRules()
    {
        using namespace SniffedRules;
        QCOMPARE(cleanType("video/x-flv\r\nmore") + "|" + cleanType("\r\nvideo/mp4"),
                 QString("video/flv|\r\nvideo/mp4"));
        QCOMPARE(rowText("7. 12:00:01", "video/mp4", sizeText(2621440)),
                 QString("7. 12:00:01           video/mp4     2.50 MB"));
        QCOMPARE(sizeText(1048576), QString("1.00 MB"));
        QStringList versions; // a final dot dropped, dots only, a plus kept
        for (const char *output :
             {"Updated yt-dlp to 2015.11.13.", "done... v1.2.3", "is up to date (2023.03.04+dfsg)"})
            versions << versionFromUpdateOutput(output);
        QCOMPARE(versions, (QStringList{"2015.11.1", "last", "2023.03.04+"}));
        QCOMPARE(upToDateText("last"), QString("Vidorra 2 is up-to-date"));
        QStringList extensions;
        for (const char *type : {"video/mp4", "video/flv", "audio/mpeg", "Video/X-Matroska; codecs=x", "video/webm",
                                 "application/octet-stream", "video/mp4.desktop", "audio/"})
            extensions << extensionForType(type);
        QCOMPARE(extensions, (QStringList{"mp4", "flv", "mp3", "mkv", "webm", "", "", ""}));
        QCOMPARE(toolComplaint("warning\nERROR: HTTP 403\nlast", 1) + "|" + toolComplaint("one\ntwo\n", 1),
                 QString("ERROR: HTTP 403|two"));
        // The scheme the browser used is kept: http only where none was reported; ffplay's TLS options for https.
        QCOMPARE(QStringList({listedAddress("a"), listedAddress("HTTPS://a"), transferAddress(" http://a?b=http://c "),
                              transferAddress("https://a")}),
                 QStringList({"http://a", "HTTPS://a", "a?b=http://c", "https://a"}));
        QCOMPARE(previewArguments("https://a ", "/c") + previewArguments("http://a", "/c"),
                 QStringList({"-tls_verify", "1", "-ca_file", "/c", "https://a", "http://a"}));
    }

    void hitTest()
    {
        // A frame from x 100 to 580, border width 5: each zone is 6 pixels wide, the right one
        // reaching one pixel past the frame.
        const QList<QPair<int, QString>> rows{{99, ""},  {100, "L"}, {105, "L"}, {106, ""},
                                              {575, ""}, {576, "R"}, {581, "R"}, {582, ""}};
        for (const auto &[x, edges] : rows) {
            NcCursorPosCalculator at;
            const bool onEdges = at.recalculate({x, 250}, QRect(QPoint(100, 100), QPoint(580, 400)));
            QCOMPARE(QString(at.onLeftEdge ? "L" : "") + (at.onRightEdge ? "R" : ""), edges);
            QCOMPARE(onEdges, !edges.isEmpty());
        }
    }

    void dragsMoveAndResize()
    {
        // The 600 x 300 window's last pixels are x 699 and y 399.
        const QRect start(100, 100, 600, 300), smallest(100, 100, 481, 179);
        const QList<std::tuple<QRect, QPoint, QPoint, QRect>> rows{
            {start, {400, 250}, {430, 270}, {130, 120, 600, 300}}, // the body moves the window
            {start, {100, 250}, {80, 240}, {80, 100, 620, 300}},   // left
            {start, {699, 250}, {679, 240}, {100, 100, 580, 300}}, // right
            {start, {400, 100}, {380, 90}, {100, 90, 600, 310}},   // top
            {start, {400, 399}, {380, 389}, {100, 100, 600, 290}}, // bottom
            {start, {100, 100}, {80, 90}, {80, 90, 620, 310}},     // top-left
            {start, {699, 100}, {679, 90}, {100, 90, 580, 310}},   // top-right
            {start, {100, 399}, {80, 389}, {80, 100, 620, 290}},   // bottom-left
            {start, {699, 399}, {679, 389}, {100, 100, 580, 290}}, // bottom-right
            {smallest, {100, 190}, {110, 190}, smallest},          // the narrowest, left edge inwards
            {smallest, {300, 100}, {300, 110}, smallest},          // the lowest, top edge inwards
            {start, {699, 399}, {400, 420}, {100, 100, 600, 321}}, // a corner too narrow, tall enough
        };
        for (const auto &[from, press, release, expected] : rows) {
            Window w(from);
            w.mouse(QEvent::MouseButtonPress, press, Qt::LeftButton);
            w.helper.activateOn(&w.widget); // taken on already: the drag goes on, and is followed once
            w.mouse(QEvent::MouseMove, release, Qt::LeftButton);
            w.mouse(QEvent::MouseButtonRelease, release, Qt::NoButton);
            QCOMPARE(w.widget.geometry(), expected);
        }
    }

    void hoverSetsTheCursor()
    {
        // Off the edges the window's own cursor is taken back: a window then shows the arrow. Maximized or full
        // screen (the whole offscreen screen), the cursor stays as it was.
        const Qt::WindowState normal = Qt::WindowNoState;
        const QList<std::tuple<QPoint, Qt::WindowState, Qt::CursorShape>> rows{
            {{101, 250}, normal, Qt::SizeHorCursor},
            {{698, 250}, normal, Qt::SizeHorCursor},
            {{400, 102}, normal, Qt::SizeVerCursor},
            {{400, 398}, normal, Qt::SizeVerCursor},
            {{101, 101}, normal, Qt::SizeFDiagCursor},
            {{698, 398}, normal, Qt::SizeFDiagCursor},
            {{698, 101}, normal, Qt::SizeBDiagCursor},
            {{101, 398}, normal, Qt::SizeBDiagCursor},
            {{400, 250}, normal, Qt::ArrowCursor},
            {{1, 250}, Qt::WindowMaximized, Qt::SizeVerCursor},
            {{1, 250}, Qt::WindowFullScreen, Qt::SizeVerCursor}};
        for (const auto &[point, state, cursor] : rows) {
            Window w;
            // A plain move onto the top edge first, so leaving the edges has a shape to take back.
            w.mouse(QEvent::MouseMove, {400, 100}, Qt::NoButton);
            QCOMPARE(w.widget.cursor().shape(), Qt::SizeVerCursor);
            w.widget.setWindowState(state);
            QCoreApplication::processEvents(); // the new geometry comes back from the platform
            QVERIFY(state == normal || w.widget.frameGeometry().topLeft() == QPoint(0, 0));
            w.hover(point);
            QCOMPARE(w.widget.cursor().shape(), cursor);
        }
    }
};

VIDORRA_TEST_MAIN(RulesTest)
#include "tst_rules.moc"
