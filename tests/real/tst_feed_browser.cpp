// From a real Chromium to a saved file: a page served on 127.0.0.1 plays a
// clip, the add-on reports it through the native messaging host (connected
// by the program's own help-menu command), the row shows in the sniffed list
// of the window, Preview plays it with the real ffplay, and Download video
// saves it with the real launcher and yt-dlp.
#include "BrowserSupport.h"
#include "TestSupport.h"

#include <QtWidgets>

#include <csignal>

#include "Sniffer/Sniffer.h"
#include "ui_OldSniffer.h"
#include "ui_Settings.h"

class TestFeedBrowser : public QObject
{
    Q_OBJECT

    QTemporaryDir media, saved;
    QProcess server;
    QString base;

    // The X window whose title names `what` (ffplay's shows the address it plays).
    static bool windowNamed(const QString &what)
    {
        QProcess tree;
        tree.start("xwininfo", {"-root", "-tree"});
        return tree.waitForFinished(10000) && tree.readAllStandardOutput().contains(what.toUtf8());
    }

private slots:
    void initTestCase()
    {
        if (Browser::executable().isEmpty() || qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs Chromium and a display (xvfb-run)");
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        QVERIFY(makeWebmClip(media.filePath("clip.webm")));
        QFile page(media.filePath("page.html"));
        QVERIFY(page.open(QIODevice::WriteOnly));
        page.write("<!doctype html><title>clip</title><video autoplay muted src=\"clip.webm\"></video>\n");
        page.close();
        base = startMediaServer(server, media.path());
        QVERIFY(!base.isEmpty());
        QVERIFY(writeSettings(qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2", {}));
    }

    void cleanupTestCase()
    {
        server.closeWriteChannel();
        server.waitForFinished(5000);
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

        // Chromium's own profile folder in the test's home, where the
        // program wrote the host manifest.
        Browser browser;
        QVERIFY2(browser.start(QDir::homePath() + "/.config/chromium", "about:blank"), qPrintable(browser.log()));
        // A busy machine may let the page come before the add-on listens:
        // then it opens again in a new tab.
        for (int attempt = 0; attempt < 6 && list->count() == 0; ++attempt) {
            QVERIFY2(browser.open(base + "/page.html"), qPrintable(browser.log()));
            waitFor([&] { return list->count() > 0; }, 10000);
        }
        QVERIFY2(list->count() == 1, qPrintable(browser.log()));
        const QString url = "http://" + QUrl(base).authority() + "/clip.webm";
        QCOMPARE(sniffer.sniffedEntries[0].url, url);
        QCOMPARE(sniffer.sniffedEntries[0].type, QString("video/webm"));
        browser.stop();

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
        const QString file = saved.filePath("Sniffed clip.webm");
        QCOMPARE(finished.first().first().toString(), file);
        QFile got(file), served(media.filePath("clip.webm"));
        QVERIFY(got.open(QIODevice::ReadOnly) && served.open(QIODevice::ReadOnly));
        QVERIFY2(got.readAll() == served.readAll(), "the saved file differs from the served one");
        QCOMPARE(streams(file), QString("vp8=video vorbis=audio"));
    }
};

VIDORRA_TEST_MAIN(TestFeedBrowser)
#include "tst_feed_browser.moc"
