// The engine's jobs against the scripted stand-in for the launcher (the
// "run" beside this test): what each child prints, how it ends, and what
// the engine signals and stores in return.
#include "Fiofostis/Downloader.h"
#include "TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>

#include <algorithm>

#include <signal.h>

namespace {

const QString pageUrl = QStringLiteral("https://www.example.com/watch?v=BaW_jenozKc");

// One scenario for the stand-in, in a folder of its own; every child
// started while it lives follows it.
class Scenario
{
public:
    explicit Scenario(const QString &text)
    {
        QFile file(path());
        file.open(QIODevice::WriteOnly);
        file.write(text.toUtf8());
        qputenv("VIDORRA_FAKE_SCRIPT", path().toLocal8Bit());
    }
    ~Scenario()
    {
        qunsetenv("VIDORRA_FAKE_SCRIPT");
    }
    QString path() const
    {
        return dir.filePath(QStringLiteral("scenario"));
    }
    QString file(const QString &name) const
    {
        return dir.filePath(name);
    }

    // The argument lists the stand-in was called with, by kind.
    QList<QStringList> calls(const QString &kind) const
    {
        QList<QStringList> found;
        QFile log(path() + QStringLiteral(".log"));
        log.open(QIODevice::ReadOnly);
        for (const QByteArray &line : log.readAll().split('\n')) {
            const QList<QByteArray> parts = line.split('\t');
            if (parts.size() != 2 || parts.at(0) != kind.toUtf8())
                continue;
            QStringList args;
            for (const auto &arg : QJsonDocument::fromJson(parts.at(1)).array())
                args << arg.toString();
            found << args;
        }
        return found;
    }

private:
    QTemporaryDir dir;
};

// Everything a Downloader tells, in the order it tells it.
class Events : public QObject
{
public:
    explicit Events(Downloader *d)
    {
        connect(d, &Downloader::hasError, this,
                [this](Downloader::errors e) { add(QStringLiteral("error %1").arg(e)); });
        connect(d, &Downloader::haveOptions, this, [this] { add(QStringLiteral("options")); });
        connect(d, &Downloader::haveTitle, this, [this] { add(QStringLiteral("title")); });
        connect(d, &Downloader::haveFormats, this, [this] { add(QStringLiteral("formats")); });
        connect(d, &Downloader::haveFile, this, [this] { add(QStringLiteral("file")); });
        connect(d, &Downloader::testOK, this, [this] { add(QStringLiteral("testOK")); });
        connect(d, &Downloader::doneExtractAudio, this, [this] { add(QStringLiteral("converted")); });
        connect(d, &Downloader::percent, this, [this](float p) { add(QStringLiteral("percent %1").arg(p)); });
        connect(d, &Downloader::snifferUpdated, this, [this] { add(QStringLiteral("updated")); });
    }
    QStringList list;
    bool waitCount(int n, int timeoutMs = 10000)
    {
        return waitFor([&] { return list.size() >= n; }, timeoutMs);
    }

private:
    void add(const QString &event)
    {
        list << event;
    }
};

// Waits until `child` has ended and the engine has handled its end.
bool settle(QProcess *const &child)
{
    const bool ended = waitFor([&] { return child && child->state() == QProcess::NotRunning; }, 10000);
    QTest::qWait(150);
    return ended;
}

bool processGone(qint64 pid)
{
    return waitFor([pid] { return ::kill(static_cast<pid_t>(pid), 0) != 0; }, 5000);
}

} // namespace

class TestDownloaderProcess : public QObject
{
    Q_OBJECT

private slots:
    void setUrl();
    void titleOutputs_data();
    void titleOutputs();
    void titleFailuresKeepEarlierTitle_data();
    void titleFailuresKeepEarlierTitle();
    void optionsRunTogether();
    void secondQueryWhileFirstRuns();
    void formatTable();
    void formatFailuresAreSilent_data();
    void formatFailuresAreSilent();
    void download();
    void downloadFailures_data();
    void downloadFailures();
    void downloadStopped();
    void stopLeavesQueriesAlone();
    void update_data();
    void update();
    void selfTest_data();
    void selfTest();
};

void TestDownloaderProcess::setUrl()
{
    Downloader d;
    QUrl good(pageUrl);
    QVERIFY(d.setURL(&good));
    QCOMPARE(d.url, pageUrl);
    QUrl empty;
    QVERIFY(!d.setURL(&empty));
    QUrl invalid(QStringLiteral("http://exa mple.com:99999/"), QUrl::StrictMode);
    QVERIFY(!invalid.isValid());
    QVERIFY(!d.setURL(&invalid));
    QCOMPARE(d.url, pageUrl);
    // The full text form goes to the tool, query and fragment included.
    QUrl other(QStringLiteral("http://127.0.0.1:8080/watch.html?x=1#t=3"));
    QVERIFY(d.setURL(&other));
    QCOMPARE(d.url, QStringLiteral("http://127.0.0.1:8080/watch.html?x=1#t=3"));
}

void TestDownloaderProcess::titleOutputs_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("duration");
    QTest::newRow("recorded") << "out-file: recorded/title-my-video.txt"
                              << "My Video Part 1"
                              << "3:45";
    // Each read stands alone: the duration's chunk replaces the title's.
    QTest::newRow("two chunks") << "out: My-Video: Part 1\nout: 1:02:03"
                                << "1 02 03"
                                << "0:00";
    QTest::newRow("one line") << "out: Just a title\\n"
                              << "Just a title"
                              << "0:00";
    QTest::newRow("nothing printed") << "exit: 0"
                                     << "default"
                                     << "0:00";
    QTest::newRow("Cyrillic only") << "out: Привет мир\\n2:00"
                                   << ""
                                   << "2:00";
    QTest::newRow("zero byte ends the text") << "out: Abc\\x00def\\n1:00"
                                             << "Abc"
                                             << "0:00";
}

void TestDownloaderProcess::titleOutputs()
{
    QFETCH(QString, script);
    Scenario scenario(QStringLiteral("[title]\ndelay: 0.15\n") + script + QLatin1Char('\n'));
    Downloader d;
    Events events(&d);
    QUrl address(pageUrl);
    d.setURL(&address);
    d.requestTitle();
    QVERIFY(events.waitCount(1));
    QTest::qWait(50);
    QCOMPARE(events.list, QStringList{"title"});
    QTEST(d.options->title, "title");
    QTEST(d.options->duration, "duration");
    QCOMPARE(d.options->steps, QList<Downloader::steps>{Downloader::stepTitle});
    QCOMPARE(scenario.calls(QStringLiteral("title")), (QList<QStringList>{{"--get-title", "--get-duration", pageUrl}}));
}

void TestDownloaderProcess::titleFailuresKeepEarlierTitle_data()
{
    QTest::addColumn<QString>("second");
    QTest::addColumn<bool>("launcherMissing");
    QTest::newRow("exit code 1") << "out: Other title\\n9:99\nexit: 1" << false;
    QTest::newRow("crash") << "out: Other title\\n9:99\ncrash" << false;
    QTest::newRow("killed") << "crash: KILL" << false;
    QTest::newRow("launcher missing") << "" << true;
}

void TestDownloaderProcess::titleFailuresKeepEarlierTitle()
{
    QFETCH(QString, second);
    QFETCH(bool, launcherMissing);
    Scenario scenario(QStringLiteral("[title 1]\nout: Kept-Title\\n1:23\n[title 2]\ndelay: 0.05\n") + second +
                      QLatin1Char('\n'));
    Downloader d;
    Events events(&d);
    d.requestTitle();
    QVERIFY(events.waitCount(1));
    if (launcherMissing)
        d.binDL = scenario.file(QStringLiteral("no-such-folder/run"));
    d.requestTitle();
    QVERIFY(events.waitCount(2));
    QVERIFY(settle(d.processTitle));
    QCOMPARE(events.list, (QStringList{"title", "error 3"}));
    QCOMPARE(d.options->title, QStringLiteral("Kept Title"));
    QCOMPARE(d.options->duration, QStringLiteral("1:23"));
    QCOMPARE(d.options->steps, QList<Downloader::steps>{Downloader::stepTitle});
    // A failed child is kept (not released) until the next query replaces it.
    QVERIFY(d.processTitle);
}

void TestDownloaderProcess::optionsRunTogether()
{
    Scenario scenario(QStringLiteral("[title]\npause: 1.0\nout-file: recorded/title-my-video.txt\n"
                                     "[formats]\npause: 1.0\nout-file: recorded/formats-classic.txt\n"));
    Downloader d;
    Events events(&d);
    QUrl address(pageUrl);
    d.setURL(&address);
    QElapsedTimer clock;
    clock.start();
    d.getOptions();
    QVERIFY(events.waitCount(2));
    // Each child takes over 1.2 s; one after the other would take twice that.
    QVERIFY2(clock.elapsed() < 2000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(events.list.contains("title") && events.list.contains("formats"));
    QCOMPARE(d.options->steps.size(), 2);
    QVERIFY(d.options->steps.contains(Downloader::stepTitle) && d.options->steps.contains(Downloader::stepFormats));
    QCOMPARE(d.options->title, QStringLiteral("My Video Part 1"));
    QCOMPARE(d.options->formats.size(), 8);
}

void TestDownloaderProcess::secondQueryWhileFirstRuns()
{
    // The first child outlives the second; both still deliver, and the end
    // of the first must not take the second child with it.
    Scenario scenario(QStringLiteral("[title 1]\npause: 0.8\nout: First\\n1:00\n"
                                     "[title 2]\nout: Second\\n2:00\npause: 0.6\n"));
    Downloader d;
    Events events(&d);
    d.requestTitle();
    QTest::qWait(100);
    d.requestTitle();
    QVERIFY(events.waitCount(2));
    QCOMPARE(events.list, (QStringList{"title", "title"}));
    QCOMPARE(d.options->title, QStringLiteral("First"));
    QCOMPARE(d.options->steps.size(), 2);
}

void TestDownloaderProcess::formatTable()
{
    Scenario scenario(QStringLiteral("[formats 1]\nout-file: recorded/formats-classic.txt\n"
                                     "[formats 2]\nout: [youtube] x: Downloading webpage\\n"
                                     "160 mp4 256x144 DASH video 108k , avc1.4d400b\n"));
    Downloader d;
    Events events(&d);
    QUrl address(pageUrl);
    d.setURL(&address);
    Downloader::videoFormat stale;
    stale.code = 999;
    d.options->formats.insert(999, stale);
    d.requestFormats();
    QVERIFY(events.waitCount(1));
    QCOMPARE(scenario.calls(QStringLiteral("formats")), (QList<QStringList>{{"--list-formats", pageUrl}}));
    QCOMPARE(events.list, QStringList{"formats"});
    QCOMPARE(d.audioFormats.size(), 32);
    const auto &formats = d.options->formats;
    QList<int> codes = formats.keys();
    std::sort(codes.begin(), codes.end());
    QCOMPARE(codes, (QList<int>{5, 17, 18, 22, 36, 43, 91, 133}));
    const Downloader::videoFormat best = formats.value(22);
    QCOMPARE(best.extension, QStringLiteral("mp4"));
    QCOMPARE(best.resolution, QStringLiteral("1280x720"));
    QCOMPARE(best.description, QStringLiteral("AAC 192 KBps"));
    QVERIFY(best.best);
    QCOMPARE(formats.value(18).description, QStringLiteral("AAC 96 KBps\t\t[1.21MiB]"));
    QCOMPARE(formats.value(91).description, QStringLiteral("N/A\t\t[mp4]"));
    QCOMPARE(d.options->steps, QList<Downloader::steps>{Downloader::stepFormats});

    // A listing with nothing to offer still ends the step.
    d.requestFormats();
    QVERIFY(events.waitCount(2));
    QVERIFY(d.options->formats.isEmpty());
    QCOMPARE(d.options->steps, (QList<Downloader::steps>{Downloader::stepFormats, Downloader::stepFormats}));
}

void TestDownloaderProcess::formatFailuresAreSilent_data()
{
    QTest::addColumn<QString>("script");
    QTest::newRow("exit code 1") << "out-file: recorded/formats-classic.txt\nexit: 1";
    QTest::newRow("crash") << "out-file: recorded/formats-classic.txt\ncrash";
    QTest::newRow("launcher missing") << "";
}

void TestDownloaderProcess::formatFailuresAreSilent()
{
    QFETCH(QString, script);
    Scenario scenario(QStringLiteral("[formats]\ndelay: 0.05\n") + script + QLatin1Char('\n'));
    Downloader d;
    if (script.isEmpty())
        d.binDL = scenario.file(QStringLiteral("run"));
    Events events(&d);
    d.requestFormats();
    QVERIFY(settle(d.processFormats));
    QTest::qWait(200);
    QCOMPARE(events.list, QStringList());
    QVERIFY(d.options->formats.isEmpty());
    QVERIFY(d.options->steps.isEmpty());
    // The title query of the same missing launcher is the one that speaks.
    if (script.isEmpty()) {
        d.getOptions();
        QVERIFY(events.waitCount(1));
        QVERIFY(settle(d.processFormats));
        QCOMPARE(events.list, QStringList{"error 3"});
    }
}

void TestDownloaderProcess::download()
{
    Scenario scenario(QStringLiteral("[download]\ndelay: 0.15\npart: 2048\n"
                                     "out-file: recorded/progress-start.txt\n"
                                     "out-file: recorded/progress-middle.txt\n"
                                     "out-file: recorded/progress-two-lines.txt\n"
                                     "out-file: recorded/progress-end.txt\n"));
    Downloader d;
    Events events(&d);
    QUrl address(pageUrl);
    d.setURL(&address);
    d.options->steps << Downloader::stepTitle << Downloader::stepFormats;
    const QString output = scenario.file(QStringLiteral("My Video.mp4"));
    d.requestFile(18, output);
    QCOMPARE(d.step, Downloader::stepFile);
    QCOMPARE(d.partFile, output + QStringLiteral(".part"));
    QVERIFY(waitFor([&] { return QFile::exists(d.partFile); }));
    QVERIFY(events.waitCount(5));
    QCOMPARE(events.list, (QStringList{"percent 0", "percent 45.3", "percent 12.5", "percent 100", "file"}));
    QCOMPARE(scenario.calls(QStringLiteral("download")),
             (QList<QStringList>{{pageUrl, "-o", output, "--format", "18"}}));
    QCOMPARE(d.options->steps,
             (QList<Downloader::steps>{Downloader::stepTitle, Downloader::stepFormats, Downloader::stepFile}));
    QCOMPARE(d.step, Downloader::stepIdle);
    QCOMPARE(QFileInfo(output).size(), 2048);
    QVERIFY(!QFile::exists(d.partFile));
}

void TestDownloaderProcess::downloadFailures_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("exit code 1") << "out-file: recorded/progress-middle.txt\nexit: 1" << QStringList{"percent 45.3"};
    QTest::newRow("crash") << "out-file: recorded/progress-middle.txt\ncrash" << QStringList{"percent 45.3"};
    QTest::newRow("launcher missing") << "" << QStringList();
}

void TestDownloaderProcess::downloadFailures()
{
    QFETCH(QString, script);
    QFETCH(QStringList, expected);
    Scenario scenario(QStringLiteral("[download]\ndelay: 0.05\npart: 100\n") + script + QLatin1Char('\n'));
    Downloader d;
    if (script.isEmpty())
        d.binDL = scenario.file(QStringLiteral("run"));
    Events events(&d);
    const QString output = scenario.file(QStringLiteral("clip.mp4"));
    d.requestFile(22, output);
    QVERIFY(settle(d.processFile));
    QTest::qWait(200);
    QCOMPARE(events.list, expected);
    QVERIFY(d.options->steps.isEmpty());
    QVERIFY(!QFile::exists(output));
    // Still "downloading", so stopping now clears what the tool left behind.
    QCOMPARE(d.step, Downloader::stepFile);
    QCOMPARE(QFile::exists(d.partFile), !script.isEmpty());
    d.stop();
    QVERIFY(!QFile::exists(d.partFile));
}

void TestDownloaderProcess::downloadStopped()
{
    Scenario scenario(QStringLiteral("[download]\ndelay: 0.05\npart: 4096\n"
                                     "out-file: recorded/progress-middle.txt\nhang\n"));
    Downloader d;
    Events events(&d);
    const QString output = scenario.file(QStringLiteral("clip.mp4"));
    d.requestFile(22, output);
    QVERIFY(events.waitCount(1));
    QVERIFY(QFile::exists(d.partFile));
    const qint64 pid = d.processFile->processId();
    QVERIFY(pid > 0);
    d.stop();
    QVERIFY(!QFile::exists(d.partFile));
    QVERIFY2(processGone(pid), "the download child still runs");
    QTest::qWait(200);
    QCOMPARE(events.list, QStringList{"percent 45.3"});
    QVERIFY(!QFile::exists(output));
    QVERIFY(d.options->steps.isEmpty());
    // stop() leaves the step alone.
    QCOMPARE(d.step, Downloader::stepFile);
}

void TestDownloaderProcess::stopLeavesQueriesAlone()
{
    Scenario scenario(QStringLiteral("[title]\npause: 0.4\nout: Slow\\n0:01\n"
                                     "[formats]\npause: 0.4\nout-file: recorded/formats-classic.txt\n"));
    Downloader d;
    Events events(&d);
    const QString bystander = scenario.file(QStringLiteral("keep.part"));
    QFile(bystander).open(QIODevice::WriteOnly);
    d.partFile = bystander;
    d.getOptions();
    for (Downloader::steps s : {Downloader::stepIdle, Downloader::stepTitle, Downloader::stepFormats}) {
        d.step = s;
        d.stop();
    }
    QVERIFY(events.waitCount(2));
    QCOMPARE(events.list.size(), 2);
    QCOMPARE(d.options->title, QStringLiteral("Slow"));
    QVERIFY(QFile::exists(bystander));
}

void TestDownloaderProcess::update_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QStringList>("expected");
    QTest::addColumn<QString>("output");
    QTest::newRow("updated") << "out: Updating to version 2023.03.04 ...\\n\nout: Updated yt-dlp"
                             << QStringList{"updated"} << "Updating to version 2023.03.04 ...Updated yt-dlp";
    QTest::newRow("failed") << "out: ERROR: unable to write\nexit: 1" << QStringList{"error 4"}
                            << "ERROR: unable to write";
    QTest::newRow("crashed") << "crash" << QStringList{"error 4"} << "";
    QTest::newRow("launcher missing") << "" << QStringList{"error 4"} << "";
}

void TestDownloaderProcess::update()
{
    QFETCH(QString, script);
    Scenario scenario(QStringLiteral("[update]\ndelay: 0.1\n") + script + QLatin1Char('\n'));
    Downloader d;
    if (script.isEmpty())
        d.binDL = scenario.file(QStringLiteral("run"));
    Events events(&d);
    d.updateOutput = QStringLiteral("left over");
    d.checkUpdates();
    QVERIFY(events.waitCount(1));
    QVERIFY(settle(d.processUpdate));
    QTEST(events.list, "expected");
    QTEST(d.updateOutput, "output");
    if (!script.isEmpty())
        QCOMPARE(scenario.calls(QStringLiteral("update")), (QList<QStringList>{{"--update"}}));
}

void TestDownloaderProcess::selfTest_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("expectedTitle");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("match") << "out: \\n  Test Video - 1  \\n"
                           << "Test Video - 1" << QStringList{"testOK"};
    QTest::newRow("mismatch") << "out: Test Video - 2"
                              << "Test Video - 1" << QStringList{"error 2"};
    // The raw title is compared, not the cleaned one.
    QTest::newRow("no clean-up") << "out: Test-Video"
                                 << "Test Video" << QStringList{"error 2"};
    QTest::newRow("case matters") << "out: test video"
                                  << "Test Video" << QStringList{"error 2"};
    QTest::newRow("first chunk only") << "out: Test\nout: Video"
                                      << "Test" << QStringList{"testOK"};
    QTest::newRow("first chunk of two") << "out: Test\nout: Video"
                                        << "Test\nVideo" << QStringList{"error 2"};
    QTest::newRow("silent, empty expected") << "exit: 0"
                                            << "" << QStringList{"testOK"};
    QTest::newRow("silent") << "exit: 0"
                            << "Test Video" << QStringList{"error 2"};
    QTest::newRow("exit code 1, title right") << "out: Test Video\nexit: 1"
                                              << "Test Video" << QStringList{"error 1"};
    QTest::newRow("crash") << "crash"
                           << "Test Video" << QStringList{"error 1"};
    QTest::newRow("launcher missing") << ""
                                      << "Test Video" << QStringList{"error 1"};
}

void TestDownloaderProcess::selfTest()
{
    QFETCH(QString, script);
    QFETCH(QString, expectedTitle);
    Scenario scenario(QStringLiteral("[test]\ndelay: 0.15\n") + script + QLatin1Char('\n'));
    Downloader d;
    if (script.isEmpty())
        d.binDL = scenario.file(QStringLiteral("run"));
    Events events(&d);
    d.titleLines = QStringList{QStringLiteral("old")};
    const QString testUrl = QStringLiteral("https://www.example.com/watch?v=test");
    d.testIt(testUrl, expectedTitle);
    QVERIFY(d.titleLines.isEmpty());
    QVERIFY(events.waitCount(1));
    QVERIFY(settle(d.processTest));
    QTEST(events.list, "expected");
    QCOMPARE(d.testData.mid(0, 2), (QStringList{testUrl, expectedTitle}));
    if (!script.isEmpty())
        QCOMPARE(scenario.calls(QStringLiteral("test")), (QList<QStringList>{{"--get-title", testUrl}}));
}

VIDORRA_TEST_MAIN(TestDownloaderProcess)
#include "tst_downloader_process.moc"
