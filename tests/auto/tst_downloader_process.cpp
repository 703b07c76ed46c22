// The engine's jobs against the stand-in launcher: what a child prints, how it ends, what the engine makes of it;
// its conversions through the real ffmpeg ("ffmpeg9_311" beside this test), checked with ffprobe, and their clean-up.
#include "Fiofostis/Downloader.h"
#include "TestSupport.h"

#include <sys/stat.h>

namespace {

const QString pageUrl = "https://www.example.com/watch?v=BaW_jenozKc";
const QString testUrl = "https://www.example.com/watch?v=test";
using Steps = QList<Downloader::steps>;

// One engine on pageUrl, a scenario of its own for the stand-in, and what the engine tells, in order.
struct Job : QObject
{
    QTemporaryDir dir;
    Downloader d;
    QStringList events;
    QString log;

    explicit Job(const QString &scenario = QString(), bool launcherMissing = false)
    {
        log = useScenario(dir.filePath("scenario"), scenario);
        QUrl address(pageUrl);
        d.setURL(&address);
        if (launcherMissing)
            d.binDL = dir.filePath("run");
        auto tell = [this](const char *event) { return [this, event] { events << event; }; };
        connect(&d, &Downloader::hasError, this,
                [this](Downloader::errors e) { events << QString("error %1").arg(e); });
        connect(&d, &Downloader::percent, this, [this](float p) { events << QString("percent %1").arg(p); });
        connect(&d, &Downloader::haveTitle, this, tell("title"));
        connect(&d, &Downloader::haveFormats, this, tell("formats"));
        connect(&d, &Downloader::haveFile, this, tell("file"));
        connect(&d, &Downloader::testOK, this, tell("testOK"));
        connect(&d, &Downloader::snifferUpdated, this, tell("updated"));
        connect(&d, &Downloader::updateFailed, this, tell("update failed"));
        connect(&d, &Downloader::doneExtractAudio, this, tell("done"));
    }
    bool wait(int count)
    {
        return waitFor([&] { return events.size() >= count; }, 10000);
    }
    // Waits until the engine has handled the end of every child it holds.
    bool settle()
    {
        return waitFor(
            [this] {
                return !d.processTitle && !d.processFormats && !d.processFile && !d.processUpdate && !d.processTest &&
                       !d.processFFmpeg;
            },
            60000);
    }
};

} // namespace

class TestDownloaderProcess : public QObject
{
    Q_OBJECT

    QTemporaryDir work;
    // A copy of the clip made at the start, in the job's folder.
    QString clipIn(Job &job, const QString &name)
    {
        const QString copy = job.dir.filePath(name);
        return QFile::copy(work.filePath("source.mp4"), copy) ? copy : QString();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(makeClip(work.filePath("source.mp4")));
    }

    void setUrl()
    {
        Downloader d;
        QUrl good("http://127.0.0.1:8080/watch.html?x=1#t=3"), empty,
            bad("http://exa mple.com:99999/", QUrl::StrictMode);
        QVERIFY(d.setURL(&good) && !d.setURL(&empty) && !d.setURL(&bad) && d.url == good.toString());
    }

    void titles()
    {
        const QList<std::tuple<QString, QString, QString>> rows{
            {"out-file: recorded/title-my-video.txt", "My Video Part 1", "3:45"},
            {"out: My-Video: Part 1\nout: 1:02:03", "1 02 03", "0:00"}, // each read stands alone
            {"exit: 0", "default", "0:00"},
            {"out: Привет мир\\n2:00", "", "2:00"},
            {"out: Abc\\x00def\\n1:00", "Abc", "0:00"},
        };
        for (const auto &[script, title, duration] : rows) {
            Job job("[title]\ndelay: 0.15\n" + script + "\n");
            job.d.requestTitle();
            QVERIFY(job.settle());
            QCOMPARE(job.events, QStringList{"title"});
            QCOMPARE(job.d.options->title + "|" + job.d.options->duration, title + "|" + duration);
            QCOMPARE(job.d.options->steps, Steps{Downloader::stepTitle});
        }
    }

    void outcomes_data()
    {
        // The job, the stand-in's part (empty: no launcher), the self-test's title or the update's output, the signals.
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("expected");
        auto row = [](const char *kind, const char *how, const char *script, const char *text, QStringList expected) {
            QTest::addRow("%s, %s", kind, how) << kind << script << text << expected;
        };
        row("title", "exit code 1", "out: Other\\n9:99\nexit: 1", "", {"error 3"});
        row("title", "no launcher", "", "", {"error 3"});
        row("formats", "exit code 1", "out-file: recorded/formats-classic.txt\nexit: 1", "", {"error 9"});
        row("download", "exit code 1", "out-file: recorded/progress-middle.txt\nexit: 1", "",
            {"percent 45.3", "error 8"});
        row("update", "done", "out: Updating ...\\n\nout: Updated", "Updating ...Updated", {"updated"});
        row("update", "exit code 1", "out: ERROR\nexit: 1", "ERROR", {"update failed"});
        row("test", "match", "out: \\n  Test - 1  \\n", "Test - 1", {"testOK"});
        row("test", "mismatch", "out: Test - 2", "Test - 1", {"error 2"});
        // The raw title is compared, not the cleaned one, and only the first chunk.
        row("test", "no clean-up", "out: Test-1", "Test 1", {"error 2"});
        row("test", "first chunk counts", "out: Test\nout: Video", "Test", {"testOK"});
        row("test", "exit code 1", "out: Test\nexit: 1", "Test", {"error 1"});
        row("test", "no launcher", "", "Test", {"error 1"});
    }
    void outcomes()
    {
        QFETCH(QString, kind);
        QFETCH(QString, script);
        QFETCH(QString, text);
        const bool missing = script.isEmpty();
        Job job(QString("[%1]\ndelay: 0.1\n%2%3\n").arg(kind, QString(kind == "download" ? "part: 100\n" : ""), script),
                missing);
        // What earlier jobs stored stays when a job fails.
        job.d.options->title = "Kept";
        job.d.options->formats.insert(999, {});
        job.d.titleLines = QStringList{"old"};
        job.d.updateOutput = "left over";
        const QString output = job.dir.filePath("clip.mp4");
        const QHash<QString, std::function<void()>> start{{"title", [&] { job.d.requestTitle(); }},
                                                          {"formats", [&] { job.d.requestFormats(); }},
                                                          {"download", [&] { job.d.requestFile(22, output); }},
                                                          {"update", [&] { job.d.checkUpdates(); }},
                                                          {"test", [&] { job.d.testIt(testUrl, text); }}};
        start[kind]();
        QVERIFY(job.settle());
        QTEST(job.events, "expected");
        QCOMPARE(fakeCalls(job.log, kind).size(), missing ? 0 : 1); // the stand-in knows only the right shapes
        QVERIFY(job.d.options->steps.isEmpty());
        QVERIFY(job.d.options->title == "Kept" && job.d.options->formats.contains(999));
        if (kind == "update")
            QCOMPARE(job.d.updateOutput, text);
        if (kind == "test")
            QVERIFY(job.d.titleLines.isEmpty());
        if (kind == "download") // what the tool left is gone
            QVERIFY(job.d.step == Downloader::stepIdle && !QFile::exists(job.d.partFile) && !QFile::exists(output));
    }

    void optionsRunTogetherUntilStopped()
    {
        Job job("[title]\nhang\n[formats]\nhang\n");
        const QString bystander = job.dir.filePath("keep.part");
        QFile(bystander).open(QIODevice::WriteOnly);
        job.d.partFile = bystander;
        job.d.getOptions();
        QVERIFY(waitFor(
            [&] { return fakeCalls(job.log, "title").size() == 1 && fakeCalls(job.log, "formats").size() == 1; }));
        // Both queries run at once, and stop() ends both, as often as it is called.
        job.d.stop();
        job.d.stop();
        QVERIFY(!job.d.processTitle && !job.d.processFormats);
        QCoreApplication::processEvents();
        QCOMPARE(job.events, QStringList());
        QVERIFY2(QFile::exists(bystander), "stopping while idle removes no file");
    }

    void secondQueryWhileFirstRuns()
    {
        // The first child outlives the second; both deliver, and the first one's end leaves the second child alone.
        Job job("[title 1]\npause: 0.8\nout: First\\n1:00\n[title 2]\nout: Second\\n2:00\npause: 0.6\n");
        job.d.requestTitle();
        QVERIFY(waitFor([&] { return fakeCalls(job.log, "title").size() == 1; }));
        job.d.requestTitle();
        QVERIFY(job.wait(2));
        QCOMPARE(job.events, (QStringList{"title", "title"}));
        QCOMPARE(job.d.options->title, QString("First"));
    }

    void formatTable()
    {
        // The recorded listing: a header, bracketed and DASH lines, a short line (91), code 18 twice, a "(best)" line.
        Job job("[formats 1]\nout-file: recorded/formats-classic.txt\n"
                "[formats 2]\nout: [youtube] x: Downloading webpage\\n160 mp4 256x144 DASH video 108k\n");
        job.d.options->formats.insert(999, {});
        job.d.requestFormats();
        QVERIFY(job.wait(1));
        const QList<int> codes = job.d.options->formats.keys();
        QCOMPARE(QSet<int>(codes.begin(), codes.end()), (QSet<int>{5, 17, 18, 22, 36, 43, 91, 133}));
        QCOMPARE(job.d.options->formats.value(18).description, QString("AAC 96 KBps\t\t[1.21MiB]"));
        QVERIFY(job.d.options->formats.value(22).best);
        // A listing with nothing to offer still ends the step.
        job.d.requestFormats();
        QVERIFY(job.wait(2));
        QVERIFY(job.d.options->formats.isEmpty());
        QCOMPARE(job.d.options->steps, (Steps{Downloader::stepFormats, Downloader::stepFormats}));
    }

    // A stopped download or conversion: see the termination signals' test (tst_shell).
    void downloadToTheEnd()
    {
        // Chunks without a figure, with one, and with two lines.
        Job job("[download 1]\ndelay: 0.15\npart: 2048\nout-file: recorded/progress-start.txt\n"
                "out-file: recorded/progress-middle.txt\nout-file: recorded/progress-two-lines.txt\n"
                "out-file: recorded/progress-end.txt\n");
        const QString output = job.dir.filePath("My Video.mp4");
        job.d.requestFile(18, output);
        QCOMPARE(job.d.step, Downloader::stepFile);
        QVERIFY(job.wait(5));
        QCOMPARE(job.events, (QStringList{"percent 0", "percent 45.3", "percent 12.5", "percent 100", "file"}));
        QCOMPARE(job.d.options->steps, Steps{Downloader::stepFile});
        QCOMPARE(job.d.step, Downloader::stepIdle);
        QCOMPARE(QFileInfo(output).size(), 2048);
    }
    void conversions()
    {
        // Video: a recording's conversion (1, input kept), a download in another container (2, download removed).
        // The audio of a download (0, download removed) is the sound alone; a recording's WAV too. A video keeps
        // whatever audio codec ffmpeg picks; an audio file holds exactly one stream.
        const QList<std::tuple<QString, int, QString>> rows{
            {"mp4", 1, "mpeg4=video"},    {"m4v", 1, "mpeg4=video"},      {"mov", 1, "mpeg4=video"},
            {"flv", 1, "flv1=video"},     {"mkv", 2, "mpeg4=video"},      {"mp3", 0, "mp3=audio"},
            {"m4a", 0, "aac=audio"},      {"aiff", 0, "pcm_s16be=audio"}, {"wma", 0, "wmav2=audio"},
            {"flac", 0, "flac=audio"},    {"aac", 0, "aac=audio"},        {"ogg", 0, "vorbis=audio"},
            {"wav", 1, "pcm_s16le=audio"}};
        for (const auto &[extension, kind, expected] : rows) {
            Job job;
            const QString in = clipIn(job, "My Video.mp4"), target = job.dir.filePath("out." + extension);
            job.d.formatConverting(in, target, Downloader::FormatConvertingFrom(kind));
            QVERIFY(job.settle()); // the finished ffmpeg let go
            QCOMPARE(job.events, QStringList{"done"});
            const QString found = streams(target);
            if (expected.contains("video"))
                QVERIFY2(found.contains(expected) && found.contains("=audio"), qPrintable(found));
            else
                QCOMPARE(found, expected);
            QVERIFY(QFile::exists(in) == (kind == 1) && job.d.step == Downloader::stepIdle);
            QCOMPARE(job.d.options->steps, Steps{Downloader::stepConverting});
        }
    }

    void conversionFailures()
    {
        // ffmpeg reads "file:X" as X, the engine literally: such an output is never found, such an input never removed.
        // Errors 6 and 7 come after ffmpeg wrote the audio file; a failed conversion keeps the downloaded video.
        const QList<std::tuple<QString, QString, QString>> rows{
            {"text", "out.mp3", "error 5"}, {"clip", "file:out.mp3", "error 6"}, {"file:clip", "out.mp3", "error 7"}};
        for (const auto &[from, to, expected] : rows) {
            Job job;
            const QString video = clipIn(job, "input.mp4"), audio = job.dir.filePath(to.section(':', -1));
            QVERIFY(from != "text" || writeFile(video, "plain"));
            job.d.formatConverting(from.startsWith("file:") ? "file:" + video : video,
                                   to.startsWith("file:") ? "file:" + audio : audio, Downloader::fromAudioExtraction);
            QVERIFY(job.settle()); // the finished ffmpeg let go
            QCOMPARE(job.events, QStringList{expected});
            QVERIFY(QFile::exists(video) && job.d.options->steps.isEmpty() && job.d.step == Downloader::stepIdle);
            if (expected != "error 5")
                QCOMPARE(streams(audio), QString("mp3=audio"));
        }
    }
};

VIDORRA_TEST_MAIN(TestDownloaderProcess)
#include "tst_downloader_process.moc"
