// The engine's jobs against the scripted stand-in for the launcher (the
// "run" beside this test): what each child prints, how it ends, and what
// the engine signals and stores in return.
#include "Fiofostis/Downloader.h"
#include "TestSupport.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QPointer>

#include <algorithm>

#include <signal.h>

namespace {

const QString pageUrl = QStringLiteral("https://www.example.com/watch?v=BaW_jenozKc");

// One Downloader on the current address, with one scenario for the stand-in
// in a folder of its own, and everything the Downloader tells, in order.
class Job : public QObject
{
public:
    explicit Job(const QString &scenario, bool launcherMissing = false)
    {
        QFile file(path());
        file.open(QIODevice::WriteOnly);
        file.write(scenario.toUtf8());
        qputenv("VIDORRA_FAKE_SCRIPT", path().toLocal8Bit());
        QUrl address(pageUrl);
        d.setURL(&address);
        if (launcherMissing)
            d.binDL = dir.filePath(QStringLiteral("run"));
        auto tell = [this](const char *event) { return [this, event] { events << QLatin1String(event); }; };
        connect(&d, &Downloader::hasError, this,
                [this](Downloader::errors e) { events << QStringLiteral("error %1").arg(e); });
        connect(&d, &Downloader::percent, this, [this](float p) { events << QStringLiteral("percent %1").arg(p); });
        connect(&d, &Downloader::haveTitle, this, tell("title"));
        connect(&d, &Downloader::haveFormats, this, tell("formats"));
        connect(&d, &Downloader::haveFile, this, tell("file"));
        connect(&d, &Downloader::testOK, this, tell("testOK"));
        connect(&d, &Downloader::snifferUpdated, this, tell("updated"));
    }
    ~Job() override
    {
        qunsetenv("VIDORRA_FAKE_SCRIPT");
    }
    QString path() const
    {
        return dir.filePath(QStringLiteral("scenario"));
    }
    bool wait(int count)
    {
        return waitFor([&] { return events.size() >= count; }, 10000);
    }
    // Waits until the children the engine holds now have ended (or were
    // released after their end) and the engine has had time to answer. Call
    // it right after a request, while no field can hold a released child.
    bool settle()
    {
        const QList<QPointer<QProcess>> children{d.processTitle, d.processFormats, d.processFile, d.processUpdate,
                                                 d.processTest};
        const bool ended = waitFor(
            [&] {
                return std::all_of(children.begin(), children.end(), [](const QPointer<QProcess> &c) {
                    return !c || c->state() == QProcess::NotRunning;
                });
            },
            10000);
        QTest::qWait(300);
        return ended;
    }
    // The argument lists the stand-in was called with for `kind`.
    QList<QStringList> calls(const QString &kind) const
    {
        QList<QStringList> found;
        QFile log(path() + QStringLiteral(".log"));
        log.open(QIODevice::ReadOnly);
        for (const QByteArray &line : log.readAll().split('\n')) {
            const QList<QByteArray> parts = line.split('\t');
            if (parts.size() == 2 && parts.at(0) == kind.toUtf8())
                found << QJsonDocument::fromJson(parts.at(1)).toVariant().toStringList();
        }
        return found;
    }

    QTemporaryDir dir;
    Downloader d;
    QStringList events;
};

using Steps = QList<Downloader::steps>;
const QString testUrl = QStringLiteral("https://www.example.com/watch?v=test");

// Starts the job of `kind` (the stand-in's name for it); `text` is the
// self-test's expected title.
void start(Downloader &d, const QString &kind, const QString &text, const QString &output)
{
    if (kind == QLatin1String("title"))
        d.requestTitle();
    else if (kind == QLatin1String("formats"))
        d.requestFormats();
    else if (kind == QLatin1String("download"))
        d.requestFile(22, output);
    else if (kind == QLatin1String("update"))
        d.checkUpdates();
    else
        d.testIt(testUrl, text);
}

// The arguments the tool must get for each kind of job.
const QHash<QString, QString> argumentsOf{{"title", "--get-title --get-duration URL"},
                                          {"formats", "--list-formats URL"},
                                          {"download", "URL -o OUTPUT --format 22"},
                                          {"update", "--update"},
                                          {"test", "--get-title TEST"}};

} // namespace

class TestDownloaderProcess : public QObject
{
    Q_OBJECT

private slots:
    void setUrl();
    void titles_data();
    void titles();
    void outcomes_data();
    void outcomes();
    void optionsRunTogetherUntilStopped();
    void secondQueryWhileFirstRuns();
    void formatTable();
    void download();
    void downloadStopped();
};

void TestDownloaderProcess::setUrl()
{
    Downloader d;
    QUrl good(QStringLiteral("http://127.0.0.1:8080/watch.html?x=1#t=3"));
    QVERIFY(d.setURL(&good));
    QUrl empty;
    QUrl invalid(QStringLiteral("http://exa mple.com:99999/"), QUrl::StrictMode);
    QVERIFY(!d.setURL(&empty));
    QVERIFY(!d.setURL(&invalid));
    QCOMPARE(d.url, QStringLiteral("http://127.0.0.1:8080/watch.html?x=1#t=3"));
}

void TestDownloaderProcess::titles_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("duration");
    auto row = [](const char *name, const char *script, const char *title, const char *duration) {
        QTest::newRow(name) << script << title << duration;
    };
    row("punctuation, hyphens", "out-file: recorded/title-my-video.txt", "My Video Part 1", "3:45");
    // Each read stands alone: the duration's chunk replaces the title's.
    row("two chunks", "out: My-Video: Part 1\nout: 1:02:03", "1 02 03", "0:00");
    row("one line", "out: Just a title\\n", "Just a title", "0:00");
    row("nothing printed", "exit: 0", "default", "0:00");
    row("Cyrillic only", "out: Привет мир\\n2:00", "", "2:00");
    row("50 characters", "out: The_Quick.Brown-Fox, jumps: over the lazy dog!! 50\\n10:00",
        "The Quick Brown Fox jumps over", "10:00");
    row("zero byte ends the text", "out: Abc\\x00def\\n1:00", "Abc", "0:00");
}

void TestDownloaderProcess::titles()
{
    QFETCH(QString, script);
    Job job(QStringLiteral("[title]\ndelay: 0.15\n") + script + QLatin1Char('\n'));
    job.d.requestTitle();
    QVERIFY(job.settle());
    QCOMPARE(job.events, QStringList{"title"});
    QTEST(job.d.options->title, "title");
    QTEST(job.d.options->duration, "duration");
    QCOMPARE(job.d.options->steps, Steps{Downloader::stepTitle});
}

void TestDownloaderProcess::outcomes_data()
{
    // How each job ends: the stand-in's section, what it does (empty: the
    // launcher is missing), the expected title of a self-test or the
    // collected output of an update, and what the engine signals.
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("script");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("expected");
    auto row = [](const char *kind, const char *how, const char *script, const char *text, QStringList expected) {
        QTest::addRow("%s, %s", kind, how) << kind << script << text << expected;
    };
    row("title", "exit code 1", "out: Other\\n9:99\nexit: 1", "", {"error 3"});
    row("title", "crash", "out: Other\\n9:99\ncrash", "", {"error 3"});
    row("title", "launcher missing", "", "", {"error 3"});
    // Failed listings and downloads are silent on purpose.
    row("formats", "exit code 1", "out-file: recorded/formats-classic.txt\nexit: 1", "", {});
    row("formats", "crash", "out-file: recorded/formats-classic.txt\ncrash", "", {});
    row("formats", "launcher missing", "", "", {});
    row("download", "exit code 1", "out-file: recorded/progress-middle.txt\nexit: 1", "", {"percent 45.3"});
    row("download", "crash", "out-file: recorded/progress-middle.txt\ncrash", "", {"percent 45.3"});
    row("download", "launcher missing", "", "", {});
    row("update", "done", "out: Updating ...\\n\nout: Updated", "Updating ...Updated", {"updated"});
    row("update", "exit code 1", "out: ERROR\nexit: 1", "ERROR", {"error 4"});
    row("update", "launcher missing", "", "", {"error 4"});
    row("test", "match", "out: \\n  Test - 1  \\n", "Test - 1", {"testOK"});
    row("test", "mismatch", "out: Test - 2", "Test - 1", {"error 2"});
    // The raw title is compared, not the cleaned one.
    row("test", "no clean-up", "out: Test-1", "Test 1", {"error 2"});
    row("test", "first chunk counts", "out: Test\nout: Video", "Test", {"testOK"});
    row("test", "silent", "exit: 0", "Test", {"error 2"});
    row("test", "silent, nothing expected", "exit: 0", "", {"testOK"});
    row("test", "exit code 1", "out: Test\nexit: 1", "Test", {"error 1"});
    row("test", "launcher missing", "", "Test", {"error 1"});
}

void TestDownloaderProcess::outcomes()
{
    QFETCH(QString, kind);
    QFETCH(QString, script);
    QFETCH(QString, text);
    const bool launcherMissing = script.isEmpty();
    const QString part = kind == QLatin1String("download") ? QStringLiteral("part: 100\n") : QString();
    Job job(QStringLiteral("[%1]\ndelay: 0.1\n%2%3\n").arg(kind, part, script), launcherMissing);
    // What earlier jobs stored stays when a job fails.
    job.d.options->title = QStringLiteral("Kept");
    job.d.options->formats.insert(999, Downloader::videoFormat());
    job.d.titleLines = QStringList{QStringLiteral("old")};
    job.d.updateOutput = QStringLiteral("left over");
    const QString output = job.dir.filePath(QStringLiteral("clip.mp4"));
    start(job.d, kind, text, output);
    QVERIFY(job.settle());
    QTEST(job.events, "expected");
    const QStringList args = argumentsOf.value(kind)
                                 .split(' ')
                                 .replaceInStrings("OUTPUT", output)
                                 .replaceInStrings("URL", pageUrl)
                                 .replaceInStrings("TEST", testUrl);
    QCOMPARE(job.calls(kind), launcherMissing ? QList<QStringList>() : QList<QStringList>{args});
    QVERIFY(job.d.options->steps.isEmpty());
    QCOMPARE(job.d.options->title, QStringLiteral("Kept"));
    QVERIFY(job.d.options->formats.contains(999));
    if (kind == QLatin1String("update"))
        QCOMPARE(job.d.updateOutput, text);
    if (kind == QLatin1String("test"))
        QVERIFY(job.d.titleLines.isEmpty());
    if (kind == QLatin1String("download")) {
        // Still "downloading", so stopping now clears what the tool left.
        QCOMPARE(job.d.step, Downloader::stepFile);
        QCOMPARE(QFile::exists(job.d.partFile), !launcherMissing);
        job.d.stop();
        QVERIFY(!QFile::exists(job.d.partFile) && !QFile::exists(output));
    }
}

void TestDownloaderProcess::optionsRunTogetherUntilStopped()
{
    Job job(QStringLiteral("[title]\nhang\n[formats]\nhang\n"));
    const QString bystander = job.dir.filePath(QStringLiteral("keep.part"));
    QFile(bystander).open(QIODevice::WriteOnly);
    job.d.partFile = bystander;
    job.d.getOptions();
    QVERIFY(waitFor([&] { return job.calls("title").size() == 1 && job.calls("formats").size() == 1; }));
    // Both queries run at the same time, and stop() ends both, as often as it is called.
    const QList<qint64> pids{job.d.processTitle->processId(), job.d.processFormats->processId()};
    job.d.stop();
    job.d.stop();
    for (qint64 pid : pids)
        QVERIFY2(::kill(pid_t(pid), 0) != 0, "a query still runs");
    QVERIFY(!job.d.processTitle && !job.d.processFormats);
    QCoreApplication::processEvents();
    QCOMPARE(job.events, QStringList());
    QVERIFY2(QFile::exists(bystander), "stopping while idle removes no file");
}
void TestDownloaderProcess::secondQueryWhileFirstRuns()
{
    // The first child outlives the second; both still deliver, and the end
    // of the first must not take the second child with it.
    Job job(QStringLiteral("[title 1]\npause: 0.8\nout: First\\n1:00\n"
                           "[title 2]\nout: Second\\n2:00\npause: 0.6\n"));
    job.d.requestTitle();
    QTest::qWait(100);
    job.d.requestTitle();
    QVERIFY(job.wait(2));
    QCOMPARE(job.events, (QStringList{"title", "title"}));
    QCOMPARE(job.d.options->title, QStringLiteral("First"));
}

void TestDownloaderProcess::formatTable()
{
    // The recorded listing has a header, bracketed and DASH lines, a short
    // line (91), a repeated code (18) and a "(best)" line.
    Job job(QStringLiteral("[formats 1]\nout-file: recorded/formats-classic.txt\n"
                           "[formats 2]\nout: [youtube] x: Downloading webpage\\n160 mp4 256x144 DASH video 108k\n"));
    job.d.options->formats.insert(999, Downloader::videoFormat());
    job.d.requestFormats();
    QVERIFY(job.wait(1));
    QList<int> codes = job.d.options->formats.keys();
    std::sort(codes.begin(), codes.end());
    QCOMPARE(codes, (QList<int>{5, 17, 18, 22, 36, 43, 91, 133}));
    QCOMPARE(job.d.options->formats.value(18).description, QStringLiteral("AAC 96 KBps\t\t[1.21MiB]"));
    QVERIFY(job.d.options->formats.value(22).best);
    // A listing with nothing to offer still ends the step.
    job.d.requestFormats();
    QVERIFY(job.wait(2));
    QVERIFY(job.d.options->formats.isEmpty());
    QCOMPARE(job.d.options->steps, (Steps{Downloader::stepFormats, Downloader::stepFormats}));
}

void TestDownloaderProcess::download()
{
    // Chunks without a figure, with one, and with two lines.
    Job job(QStringLiteral("[download]\ndelay: 0.15\npart: 2048\n"
                           "out-file: recorded/progress-start.txt\n"
                           "out-file: recorded/progress-middle.txt\n"
                           "out-file: recorded/progress-two-lines.txt\n"
                           "out-file: recorded/progress-end.txt\n"));
    const QString output = job.dir.filePath(QStringLiteral("My Video.mp4"));
    job.d.requestFile(18, output);
    QCOMPARE(job.d.step, Downloader::stepFile);
    QVERIFY(job.wait(5));
    QCOMPARE(job.events, (QStringList{"percent 0", "percent 45.3", "percent 12.5", "percent 100", "file"}));
    QCOMPARE(job.d.options->steps, Steps{Downloader::stepFile});
    QCOMPARE(job.d.step, Downloader::stepIdle);
    QCOMPARE(QFileInfo(output).size(), 2048);
}

void TestDownloaderProcess::downloadStopped()
{
    Job job(QStringLiteral("[download]\ndelay: 0.05\npart: 4096\nout-file: recorded/progress-middle.txt\nhang\n"));
    job.d.requestFile(22, job.dir.filePath(QStringLiteral("clip.mp4")));
    QVERIFY(job.wait(1));
    QVERIFY(QFile::exists(job.d.partFile));
    const auto pid = static_cast<pid_t>(job.d.processFile->processId());
    job.d.stop();
    QVERIFY(!QFile::exists(job.d.partFile));
    QVERIFY2(waitFor([pid] { return ::kill(pid, 0) != 0; }, 5000), "the download child still runs");
    QTest::qWait(200);
    QCOMPARE(job.events, QStringList{"percent 45.3"});
    QCOMPARE(job.d.step, Downloader::stepFile);
}

VIDORRA_TEST_MAIN(TestDownloaderProcess)
#include "tst_downloader_process.moc"
