// From a real Chromium to a saved file: an https page on 127.0.0.1 plays a clip,
// the add-on reports it through the host (connected by the program's own command),
// the row shows in the window's list, Preview plays it with the real ffplay, and
// Download video saves it with the real launcher and yt-dlp, over https all.
// In a real Firefox ESR the XPI installed for good shows the program's own
// self-test page after a restart, and says so when its site permission is taken.
#include "TestSupport.h"

#include <csignal>

#include "Platform/Log.h"
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

// Debian's Firefox ESR with a profile of its own, the XPI installed there for
// good as a user installs it (unsigned add-ons allowed), nothing fetched from
// outside; in a session of its own, as Chromium.
class Firefox
{
public:
    static constexpr const char *program = "/usr/bin/firefox-esr";
    static constexpr const char *id = "sniffer@vidorra2.example";
    QTemporaryDir profile;
    QProcess process;

    Firefox()
    {
        QDir().mkpath(profile.filePath("extensions"));
        QFile::copy(VIDORRA_APP_DIR "/vidorra2-sniffer.xpi", profile.filePath("extensions/%1.xpi").arg(id));
        QByteArray prefs;
        for (const char *pref :
             {"xpinstall.signatures.required\", false", "extensions.autoDisableScopes\", 0",
              "datareporting.policy.dataSubmissionEnabled\", false", "browser.aboutwelcome.enabled\", false",
              "browser.startup.homepage_override.mstone\", \"ignore\"", "extensions.update.enabled\", false",
              "app.normandy.enabled\", false", "browser.region.network.url\", \"\"",
              "services.settings.server\", \"http://127.0.0.1:9/\"", "network.connectivity-service.enabled\", false",
              "media.autoplay.default\", 0"})
            prefs += QByteArray("user_pref(\"") + pref + ");\n";
        writeFile(profile.filePath("user.js"), prefs);
    }
    bool start(const QString &url)
    {
        process.setStandardOutputFile(QProcess::nullDevice());
        process.setStandardErrorFile(QProcess::nullDevice());
        process.start("setsid", {program, "--no-remote", "--profile", profile.path(), url});
        return process.waitForStarted();
    }
    bool stop() // as the desktop ends it; then the host (false when it was not running)
    {
        const pid_t session = pid_t(process.processId());
        const bool ended = session > 0 && ::kill(-session, SIGTERM) == 0 && process.waitForFinished(60000);
        if (session > 0)
            ::kill(-session, SIGKILL);
        return ended;
    }
    ~Firefox()
    {
        stop();
    }
    QJsonObject json(const QString &file) const
    {
        return QJsonDocument::fromJson(readFile(profile.filePath(file))).object();
    }
    // Installed and allowed on all sites (as Firefox 140 grants at install), in the file Firefox keeps that in.
    bool addOnReady() const
    {
        return json("extension-preferences.json")[id].toObject()["origins"].toArray().contains("<all_urls>");
    }
};

class TestFeedBrowser : public QObject
{
    Q_OBJECT

    QStringList opened; // addresses the program gave the desktop

    QTemporaryDir media, saved, tls;
    MediaServer server;

    // The X window whose title names `what` (ffplay's shows the address it plays).
    static bool windowNamed(const QString &what)
    {
        return runTool("xwininfo", {"-root", "-tree"}).contains(what);
    }

public slots:
    void openUrl(const QUrl &url)
    {
        opened << url.toString();
    }

private slots:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs a display (xvfb-run)");
        QDesktopServices::setUrlHandler("http", this, "openUrl");
        QVERIFY(makeClip(media.filePath("clip.mp4"), 10.0));
        QVERIFY(writeFile(media.filePath("page.html"),
                          "<!doctype html><title>clip</title><video autoplay muted src=\"clip.mp4\"></video>\n"));
        const QString cert = tls.filePath("cert.pem"), key = tls.filePath("key.pem");
        runTool("openssl", {"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=127.0.0.1", "-addext",
                            "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", cert});
        qputenv("SSL_CERT_FILE", cert.toLocal8Bit()); // trusted by ffplay and yt-dlp; Chromium takes any
        QVERIFY(server.start(media.path(), {"--tls", cert, key}));
        QVERIFY(writeSettings(qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2",
                              "[test_sniffer]\n0=testpage/index.html\n"));
    }

    void firefoxKeepsTheAddOnAndShowsWhatIsMissing()
    {
        if (!QFileInfo(Firefox::program).isExecutable())
            QSKIP("needs Firefox ESR");
        Sniffer sniffer;
        sniffer.start();
        QString title, text;
        closeNextMessage(&title, &text);
        sniffer.connectBrowserAddOn();
        Firefox browser;
        QVERIFY(browser.start("about:blank"));
        QVERIFY2(waitFor([&] { return browser.addOnReady(); }, 60000), "the XPI was not installed");
        QVERIFY(browser.stop());

        // Started again, it plays the self-test's page, which the program serves.
        sniffer.testSniffer();
        QCOMPARE(opened.size(), 1);
        QVERIFY2(opened[0].startsWith("http://127.0.0.1:"), qPrintable(opened[0]));
        QVERIFY(browser.start(opened[0]));
        QListWidget *list = sniffer.uiOldSniffer->mediaList;
        // Firefox may show its first page before the add-on listens: then the page is reloaded, as a user would.
        for (int attempt = 0; attempt < 6 && !waitFor([&] { return list->count() > 0; }, 10000); ++attempt)
            runTool("xdotool",
                    {"search", "--sync", "--onlyvisible", "--class", "firefox", "windowfocus", "--sync", "key", "F5"});
        QVERIFY2(list->count() == 1, "no row from Firefox, or more than one");
        QCOMPARE(sniffer.sniffedEntries[0].url, QUrl(opened[0]).resolved(QUrl("clip.webm")).toString());
        QCOMPARE(sniffer.sniffedEntries[0].sizeBytes, QFileInfo(VIDORRA_APP_DIR "/testpage/clip.webm").size());
        QVERIFY(browser.stop());
        QTcpSocket probe; // the page's folder and nothing else
        probe.connectToHost("127.0.0.1", QUrl(opened[0]).port());
        probe.write("GET /..%2Frun HTTP/1.1\r\n\r\n");
        QVERIFY(waitFor([&] { return probe.state() == QAbstractSocket::UnconnectedState; }) &&
                probe.readAll().startsWith("HTTP/1.1 404"));
        sniffer.runOldSniffer(); // back from the test: the page is no longer served
        QTcpSocket page;
        page.connectToHost("127.0.0.1", QUrl(opened[0]).port());
        QVERIFY(!page.waitForConnected(5000));

        // The user takes the add-on's site permission: it says so (the host notes it in the program's log).
        QJsonObject granted = browser.json("extension-preferences.json"), mine = granted[Firefox::id].toObject();
        mine["origins"] = mine["permissions"] = QJsonArray();
        granted[Firefox::id] = mine;
        QVERIFY(writeFile(browser.profile.filePath("extension-preferences.json"), QJsonDocument(granted).toJson()));
        QFile::remove(browser.profile.filePath("startupCache/webext.sc.lz4")); // Firefox's copy of the permissions
        QVERIFY(browser.start("about:blank"));
        const QString log = qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2" + Log::fileName(QDate::currentDate());
        QVERIFY2(waitFor([&] { return readFile(log).contains("the browser add-on may not read the sites you visit"); },
                         90000),
                 "nothing said about the site permission");
    }

    void playedClipIsListedPreviewedAndSaved()
    {
        if (!QFileInfo(Chromium::program).isExecutable())
            QSKIP("needs Chromium");
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
