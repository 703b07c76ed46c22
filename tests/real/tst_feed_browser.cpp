// From a real Chromium to a saved file: an https page on 127.0.0.1 plays a clip,
// the add-on reports it through the host (connected by the program's own command),
// the row shows in the window's list, Preview plays it with the real ffplay, and
// Download video saves it with the real launcher and yt-dlp, over https all.
#include "TestSupport.h"

#include <csignal>

#include "Sniffer/Sniffer.h"
#include "ui_OldSniffer.h"
#include "ui_Settings.h"

// Debian's Chromium (without its wrapper's flags) with the add-on, in a session
// of its own so that all it starts ends with it; a second start opens a tab.
class Chromium
{
public:
    static constexpr const char *program = "/usr/lib/chromium/chromium";
    QString profile = QDir::homePath() + "/.config/chromium"; // where the program wrote the host manifest
    QProcess first;
    pid_t session = 0; // the first one's process id, and that of its session

    QStringList arguments(const QString &url) const
    {
        return QString("--no-sandbox --no-first-run --no-default-browser-check --disable-gpu "
                       "--disable-background-networking --disable-component-update --disable-sync --disable-quic "
                       "--disable-dev-shm-usage --password-store=basic --ignore-certificate-errors "
                       "--disable-features=DisableLoadExtensionCommandLineSwitch "
                       "--load-extension=" VIDORRA_SOURCE_DIR "/extension")
                   .split(' ')
               << "--user-data-dir=" + profile << url;
    }
    bool open(const QString &url)
    {
        if (first.state() == QProcess::NotRunning) {
            first.setStandardOutputFile(QProcess::nullDevice());
            first.setStandardErrorFile(QProcess::nullDevice());
            first.start("setsid", QStringList(program) + arguments("about:blank"));
            session = first.waitForStarted() ? pid_t(first.processId()) : 0;
            if (session <= 0 || !waitFor([&] { return QFile::exists(profile + "/SingletonSocket"); }))
                return false;
        }
        QProcess tab;
        tab.start(program, arguments(url));
        return tab.waitForFinished(30000) && tab.exitCode() == 0;
    }
    ~Chromium()
    {
        if (session <= 0)
            return;
        ::kill(-session, SIGTERM);
        first.waitForFinished(10000);
        ::kill(-session, SIGKILL); // renderers, the host
    }
};

class TestFeedBrowser : public QObject
{
    Q_OBJECT

    QTemporaryDir media, saved, tls;
    MediaServer server;

    // The X window whose title names `what` (ffplay's shows the address it plays).
    static bool windowNamed(const QString &what)
    {
        return runTool("xwininfo", {"-root", "-tree"}).contains(what);
    }

private slots:
    void initTestCase()
    {
        if (!QFileInfo(Chromium::program).isExecutable() || qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs Chromium and a display (xvfb-run)");
        QVERIFY(makeClip(media.filePath("clip.mp4"), 10.0));
        QVERIFY(writeFile(media.filePath("page.html"),
                          "<!doctype html><title>clip</title><video autoplay muted src=\"clip.mp4\"></video>\n"));
        const QString cert = tls.filePath("cert.pem"), key = tls.filePath("key.pem");
        runTool("openssl", {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=127.0.0.1", "-addext",
                            "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", cert});
        qputenv("SSL_CERT_FILE", cert.toLocal8Bit()); // trusted by ffplay and yt-dlp; Chromium takes any
        QVERIFY(server.start(media.path(), {"--tls", cert, key}));
        QVERIFY(writeSettings(qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2", {}));
    }

    void playedClipIsListedPreviewedAndSaved()
    {
        Sniffer sniffer;
        sniffer.start();
        QString title, text;
        closeNextMessage(&title, &text);
        sniffer.connectBrowserAddOn();
        QVERIFY2(text.contains("chrome://extensions"), qPrintable(text));
        sniffer.runOldSniffer();
        QListWidget *list = sniffer.uiOldSniffer->mediaList;

        // A busy machine may let the page come before the add-on listens:
        // then it opens again in a new tab.
        Chromium browser;
        for (int attempt = 0; attempt < 6 && list->count() == 0; ++attempt) {
            QVERIFY(browser.open(server.url + "/page.html"));
            waitFor([&] { return list->count() > 0; }, 10000);
        }
        QCOMPARE(list->count(), 1);
        const QString url = server.url + "/clip.mp4"; // https
        QCOMPARE(sniffer.sniffedEntries[0].url, url);
        QCOMPARE(sniffer.sniffedEntries[0].type, QString("video/mp4"));
        QCOMPARE(sniffer.sniffedEntries[0].sizeBytes, QFileInfo(media.filePath("clip.mp4")).size());

        qputenv("SDL_AUDIODRIVER", "dummy");
        QTest::mouseClick(sniffer.uiOldSniffer->pbPreview, Qt::LeftButton);
        const qint64 player = sniffer.lastPreviewPid;
        QVERIFY(player > 0);
        const bool shown = waitFor([&] { return windowNamed(url); }, 30000);
        ::kill(pid_t(player), SIGTERM);
        QVERIFY2(shown, "no ffplay window for the entry");

        sniffer.uiSettings->pathVideo->setText(saved.path());
        QSignalSpy finished(&sniffer, &Sniffer::downloadFinished);
        answerSaveDialog("Sniffed clip");
        QTest::mouseClick(sniffer.uiOldSniffer->pbDownloadVideo, Qt::LeftButton);
        QVERIFY(waitFor([&] { return finished.size() == 1; }, 120000));
        const QString file = saved.filePath("Sniffed clip.mp4");
        QCOMPARE(finished.first().first().toString(), file);
        QVERIFY2(readFile(file) == readFile(media.filePath("clip.mp4")), "the saved file differs from the served one");
        QCOMPARE(streams(file), QString("h264=video aac=audio"));
    }
};

VIDORRA_TEST_MAIN(TestFeedBrowser)
#include "tst_feed_browser.moc"
