#include <QtTest>

#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QProcess>
#include <QPushButton>

#include <memory>

#include "Sniffer/Sniffer.h"
#include "TestSupport.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_Options.h"
#include "ui_Sniffer.h"

// One download with nothing stood in: the real launcher over yt-dlp fetches
// a page served on 127.0.0.1, the real ffmpeg extracts the audio, the window
// runs on a real X server.
class DownloadRealTest : public QObject
{
    Q_OBJECT

    QTemporaryDir media;
    QTemporaryDir out;
    QProcess server;
    QString base;

private slots:
    void initTestCase()
    {
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        QVERIFY(media.isValid() && out.isValid());
        QProcess make;
        make.start("/bin/sh", {VIDORRA_FIXTURES_DIR "/make_media.sh", media.path()});
        QVERIFY(make.waitForFinished(120000) && make.exitCode() == 0);
        // A second source, so the Options page has a list to show.
        make.start("ffmpeg",
                   {"-nostdin", "-loglevel", "error", "-y", "-i", media.filePath("clip.mp4"), "-t", "2", "-vf",
                    "scale=160:120", "-c:v", "libvpx", "-c:a", "libvorbis", media.filePath("small.webm")});
        QVERIFY(make.waitForFinished(60000) && make.exitCode() == 0);
        QFile page(media.filePath("two.html"));
        QVERIFY(page.open(QIODevice::WriteOnly));
        page.write("<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Local Test Clip - Two Sizes</title>"
                   "</head>\n<body><video controls>\n<source src=\"clip.mp4\" type=\"video/mp4\">\n"
                   "<source src=\"small.webm\" type=\"video/webm\">\n</video></body></html>\n");
        page.close();

        base = startMediaServer(server, media.path());
        QVERIFY(!base.isEmpty());
        QVERIFY(writeSettings(qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2", "[os_urls]\n1=127.0.0.1\n"));
    }

    void cleanupTestCase()
    {
        server.terminate();
        server.waitForFinished(5000);
    }

    void pageToMp3ThroughTheWindow()
    {
        auto sniffer = std::make_unique<Sniffer>(nullptr);
        sniffer->start();
        QVERIFY(QTest::qWaitForWindowExposed(sniffer.get()));

        QTest::mouseClick(sniffer->uiNavigation->btnDownloaderOS, Qt::LeftButton);
        QApplication::clipboard()->setText("the clip: " + base + "/two.html");
        QTest::keyClick(sniffer->uiInsertURL->inputURL, Qt::Key_V, Qt::ControlModifier);
        QTest::keyClick(sniffer->uiInsertURL->inputURL, Qt::Key_Return);
        QVERIFY(waitFor([&] { return sniffer->ui->widgetOptions->isVisible(); }, 60000));
        QListWidget *list = sniffer->uiOptions->listFormats;
        QVERIFY(list->isVisible() && list->count() >= 2);
        const QList<QListWidgetItem *> best = list->findItems("( BEST )", Qt::MatchContains);
        QCOMPARE(best.size(), 1);
        QVERIFY(sniffer->uiOptions->lblTitle->text().startsWith("Local Test Clip Two Sizes"));

        QString shots = qEnvironmentVariable("VIDORRA_SHOTS_DIR", QCoreApplication::applicationDirPath());
        QDir().mkpath(shots);
        QTest::qWait(200); // let the window settle at its new height
        QVERIFY(sniffer->grab().save(shots + "/download-options.png"));
        qInfo() << "Options page:" << shots + "/download-options.png";

        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(best.first()).center());
        const QString target = out.filePath("Sunrise Tone");
        answerSaveDialog(target);
        QTest::mouseClick(sniffer->uiOptions->btnDownloadAudio, Qt::LeftButton);
        QString title, text;
        closeNextMessage(&title, &text, 120000);
        QVERIFY(waitFor([&] { return !text.isEmpty(); }, 120000));
        QCOMPARE(text, QString("Processing is completed"));
        QVERIFY(waitFor([&] { return sniffer->ui->widgetInsertURL->isVisible(); }));
        QCOMPARE(QDir(out.path()).entryList(QDir::Files), QStringList{"Sunrise Tone.mp3"});
        QCOMPARE(streamKinds(target + ".mp3"), QString("audio"));
    }
};

VIDORRA_TEST_MAIN(DownloadRealTest)
#include "tst_download_real.moc"
