// The browser add-on in a real Chromium: a page served on 127.0.0.1 plays a
// clip, the add-on reports it through the native messaging host, set up by
// the program's own install function, and the report reaches the program's
// socket.
#include "BrowserSupport.h"
#include "Feed/HostManifests.h"
#include "Feed/SniffServer.h"
#include "TestSupport.h"

#include <QSignalSpy>

class TestFeedBrowser : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void playedClipIsReported();

private:
    QTemporaryDir media;
    QProcess server;
    QString base;
};

void TestFeedBrowser::initTestCase()
{
    if (Browser::executable().isEmpty() || qEnvironmentVariableIsEmpty("DISPLAY"))
        QSKIP("needs Chromium and a display (xvfb-run)");
    QVERIFY(makeWebmClip(media.filePath(QStringLiteral("clip.webm"))));
    QFile page(media.filePath(QStringLiteral("page.html")));
    QVERIFY(page.open(QIODevice::WriteOnly));
    page.write("<!doctype html><title>clip</title><video autoplay muted src=\"clip.webm\"></video>\n");
    page.close();
    base = startMediaServer(server, media.path());
    QVERIFY(!base.isEmpty());
}

void TestFeedBrowser::cleanupTestCase()
{
    server.closeWriteChannel();
    server.waitForFinished(5000);
}

void TestFeedBrowser::playedClipIsReported()
{
    QString error;
    const QStringList manifests =
        Feed::installHostManifests(toolFolder() + QStringLiteral("/vidorra2-sniffer-host"), &error);
    QVERIFY2(error.isEmpty() && manifests.size() == 3, qPrintable(error));
    SniffServer sniffer;
    QVERIFY2(sniffer.listen(), qPrintable(sniffer.errorString()));
    QSignalSpy reports(&sniffer, &SniffServer::reportReceived);

    // Chromium's own profile folder in the test's home: where it reads the
    // host manifest that the install function wrote.
    Browser browser;
    QVERIFY2(browser.start(QDir::homePath() + QStringLiteral("/.config/chromium"), QStringLiteral("about:blank")),
             qPrintable(browser.log()));
    // A busy machine may let the page come before the add-on listens: then
    // it opens again in a new tab.
    for (int attempt = 0; attempt < 6 && reports.isEmpty(); ++attempt) {
        QVERIFY2(browser.open(base + QStringLiteral("/page.html")), qPrintable(browser.log()));
        waitFor([&] { return !reports.isEmpty(); }, 10000);
    }
    QVERIFY2(!reports.isEmpty(), qPrintable(browser.log()));

    const QString size = QString::number(QFileInfo(media.filePath(QStringLiteral("clip.webm"))).size());
    QCOMPARE(reports.first(), QVariantList({QUrl(base).authority() + "/clip.webm", base, size, "video/webm"}));
}

int main(int argc, char **argv)
{
    TestHome home;
    QCoreApplication app(argc, argv);
    TestFeedBrowser test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_feed_browser.moc"
