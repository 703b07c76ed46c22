#include <QtTest>

#include <QtWidgets>

#include <memory>

#include "Sniffer/Sniffer.h"
#include "TestSupport.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_Options.h"
#include "ui_Sniffer.h"

// Nothing stood in: launcher and yt-dlp fetch a page from 127.0.0.1, ffmpeg converts, the window gets real X keys.
class DownloadRealTest : public QObject
{
    Q_OBJECT

    QTemporaryDir media, out;
    QProcess server;
    QString base;
    std::unique_ptr<Sniffer> sniffer;

    // The address typed and Return pressed in the focused field: the progress page stays until the Options page.
    bool enterAddress()
    {
        QTest::mouseClick(sniffer->uiNavigation->btnDownloaderOS, Qt::LeftButton);
        sniffer->activateWindow();
        if (!QTest::qWaitForWindowActive(sniffer.get()))
            return false;
        sniffer->uiInsertURL->inputURL->setFocus();
        QTest::keyClicks(QApplication::focusWidget(), "the clip: " + base + "/two.html");
        sniffer->layerHistory.clear();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
        return waitFor([&] { return sniffer->ui->widgetOptions->isVisible(); }, 120000) &&
               sniffer->layerHistory.first() == Sniffer::LayerProgress &&
               !sniffer->layerHistory.contains(Sniffer::LayerMain); // the start page did not come back in between
    }
    bool save(QPushButton *button, const QString &name, const QString &filter)
    {
        answerSaveDialog(out.filePath(name), filter);
        QTest::mouseClick(button, Qt::LeftButton);
        QString title, text;
        closeNextMessage(&title, &text, 120000);
        return waitFor([&] { return !text.isEmpty(); }, 120000) && text == "Processing is completed" &&
               waitFor([&] { return sniffer->ui->widgetInsertURL->isVisible(); });
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        QProcess make;
        make.start("/bin/sh", {VIDORRA_FIXTURES_DIR "/make_media.sh", media.path()});
        QVERIFY(make.waitForFinished(120000) && make.exitCode() == 0);
        QVERIFY(makeClip(media.filePath("small.mp4"), 2.0)); // a second source, so the Options page shows a list
        QFile page(media.filePath("two.html"));
        QVERIFY(page.open(QIODevice::WriteOnly));
        page.write("<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Local Test Clip - Two Sizes</title>"
                   "</head>\n<body><video controls>\n<source src=\"clip.mp4\" type=\"video/mp4\">\n"
                   "<source src=\"small.mp4\" type=\"video/mp4\">\n</video></body></html>\n");
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

    void pageToMkvAndM4aThroughTheWindow()
    {
        sniffer = std::make_unique<Sniffer>(nullptr);
        sniffer->start();
        QVERIFY(QTest::qWaitForWindowExposed(sniffer.get()));
        QVERIFY(enterAddress());
        QListWidget *list = sniffer->uiOptions->listFormats;
        QVERIFY(list->isVisible() && list->count() >= 2);
        const QList<QListWidgetItem *> best = list->findItems("( BEST )", Qt::MatchContains);
        QCOMPARE(best.size(), 1);
        QVERIFY(sniffer->uiOptions->lblTitle->text().startsWith("Local Test Clip Two Sizes"));

        // The MP4 format saved as Matroska: converted, the download removed.
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(best.first()).center());
        QVERIFY(save(sniffer->uiOptions->btnDownloadVideo, "Sunrise", "Matroska (*.mkv)"));
        QCOMPARE(QDir(out.path()).entryList(QDir::Files), QStringList{"Sunrise.mkv"});
        QCOMPARE(streams(out.filePath("Sunrise.mkv")), QString("mpeg4=video vorbis=audio"));
        QProcess play;
        play.start("ffmpeg", {"-v", "error", "-i", out.filePath("Sunrise.mkv"), "-f", "null", "-"});
        QVERIFY(play.waitForFinished(60000) && play.exitCode() == 0 && play.readAllStandardError().isEmpty());

        // The same page saved as M4A: the sound alone.
        QVERIFY(enterAddress());
        QVERIFY(save(sniffer->uiOptions->btnDownloadAudio, "Sunrise Tone", "MP4 Audio (*.m4a)"));
        QCOMPARE(QDir(out.path()).entryList(QDir::Files), (QStringList{"Sunrise Tone.m4a", "Sunrise.mkv"}));
        QCOMPARE(streams(out.filePath("Sunrise Tone.m4a")), QString("aac=audio"));
    }
};

VIDORRA_TEST_MAIN(DownloadRealTest)
#include "tst_download_real.moc"
