// Nothing stood in: the launcher and yt-dlp fetch media made here from 127.0.0.1 and ffmpeg converts, for the
// engine alone and for the window, which gets real X keys; a server's refusal shows in the error box as text.
#include "Sniffer/Sniffer.h"
#include "TestSupport.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_Options.h"
#include "ui_Sniffer.h"

class DownloadRealTest : public QObject
{
    Q_OBJECT

    QTemporaryDir media, saved, out;
    MediaServer server;
    std::unique_ptr<Sniffer> sniffer;

    // The address typed and Return pressed in the window's focused field: the progress page stays until the
    // Options page. (Without a window manager, the X server may keep the input focus from the window after a
    // dialog has closed, so the keys go to the window's own focus widget.)
    bool enterAddress()
    {
        QTest::mouseClick(sniffer->uiNavigation->btnDownloaderOS, Qt::LeftButton);
        sniffer->activateWindow();
        sniffer->uiInsertURL->inputURL->setFocus();
        QWidget *field = sniffer->focusWidget();
        if (field != sniffer->uiInsertURL->inputURL)
            return false;
        QTest::keyClicks(field, "the clip: " + server.url + "/two.html");
        sniffer->layerHistory.clear();
        QTest::keyClick(field, Qt::Key_Return);
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
        qRegisterMetaType<Downloader::errors>("Downloader::errors");
        QVERIFY(QFileInfo(QCoreApplication::applicationDirPath() + "/run").isExecutable());
        bool made = false;
        runTool("sh", {VIDORRA_FIXTURES_DIR "/make_media.sh", media.path()}, &made);
        QVERIFY(made && makeClip(media.filePath("small.mp4"), 2.0)); // a second source, so the Options page lists two
        QVERIFY(
            writeFile(media.filePath("two.html"),
                      "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>Local Test Clip - Two Sizes</title>"
                      "</head>\n<body><video controls>\n<source src=\"clip.mp4\" type=\"video/mp4\">\n"
                      "<source src=\"small.mp4\" type=\"video/mp4\">\n</video></body></html>\n"));
        // Slowed down so that a download reports its progress in several reads.
        QVERIFY(server.start(media.path(), {"--rate", "200000"}));
        QVERIFY(writeSettings(qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2", "[os_urls]\n1=127.0.0.1\n"));
    }

    void engineOptionsThenDownloadThenAudio()
    {
        Downloader d;
        QList<float> figures;
        connect(&d, &Downloader::percent, this, [&](float p) { figures << p; });
        QSignalSpy title(&d, &Downloader::haveTitle), formats(&d, &Downloader::haveFormats),
            file(&d, &Downloader::haveFile), extracted(&d, &Downloader::doneExtractAudio),
            errors(&d, &Downloader::hasError);
        QUrl page(server.url + "/watch.html");
        QVERIFY(d.setURL(&page));
        d.getOptions();
        QVERIFY(waitFor([&] { return title.count() == 1 && formats.count() == 1; }, 60000));
        QCOMPARE(d.options->title, QString("Local Test Clip Sunrise"));
        QCOMPARE(d.options->duration, QString("0:05"));
        // A direct media file has one format without a numeric code: code 0.
        QCOMPARE(d.options->formats.keys(), QList<int>{0});
        QVERIFY(d.options->formats.value(0).extension == "mp4" && d.options->formats.value(0).best);

        const QString video = saved.filePath("Local Test Clip Sunrise.mp4");
        d.requestFile(0, video);
        QVERIFY(file.wait(60000));
        // Figures that only climb; how many reads there are is the machine's business.
        QVERIFY(!figures.isEmpty() && std::is_sorted(figures.begin(), figures.end()));
        QVERIFY(figures.last() > 0.0f && figures.last() <= 100.0f);
        QCOMPARE(QFileInfo(video).size(), QFileInfo(media.filePath("clip.mp4")).size());
        const QString audio = saved.filePath("Local Test Clip Sunrise.mp3");
        d.formatConverting(video, audio, Downloader::fromAudioExtraction);
        QVERIFY(extracted.wait(60000));
        QCOMPARE(errors.count(), 0);
        QCOMPARE(streams(audio), QString("mp3=audio"));
        QVERIFY(!QFile::exists(video));
    }

    void pageToMkvAndM4aThroughTheWindowAndARefusalAsText()
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
        bool played = false;
        const QString complaints =
            runTool("ffmpeg", {"-v", "error", "-i", out.filePath("Sunrise.mkv"), "-f", "null", "-"}, &played);
        QVERIFY2(played && complaints.isEmpty(), qPrintable(complaints));

        // The same page saved as M4A: the sound alone; the user's video of that name stays as it was.
        QVERIFY(writeFile(out.filePath("Sunrise Tone.mp4"), "the user's own video"));
        QVERIFY(enterAddress());
        QVERIFY(save(sniffer->uiOptions->btnDownloadAudio, "Sunrise Tone", "MP4 Audio (*.m4a)"));
        const QStringList files{"Sunrise Tone.m4a", "Sunrise Tone.mp4", "Sunrise.mkv"};
        QCOMPARE(QDir(out.path()).entryList(QDir::Files | QDir::Hidden), files);
        QVERIFY(streams(out.filePath("Sunrise Tone.m4a")) == "aac=audio" &&
                readFile(out.filePath("Sunrise Tone.mp4")) == "the user's own video");
        // Once more under that name: asked, No back to the dialog, Cancel asked again, No: nothing written.
        QVERIFY(enterAddress());
        QString asked;
        answerModals({saveAs(out.filePath("Sunrise Tone"), "MP4 Audio (*.m4a)"), press(QMessageBox::No, &asked),
                      [](QWidget *w) { qobject_cast<QDialog *>(w)->reject(); }, press(QMessageBox::No)});
        QTest::mouseClick(sniffer->uiOptions->btnDownloadAudio, Qt::LeftButton);
        QCOMPARE(asked, out.filePath("Sunrise Tone.m4a") + " already exists.\nDo you want to replace it?");
        QVERIFY(sniffer->ui->widgetOptions->isVisible() &&
                QDir(out.path()).entryList(QDir::Files | QDir::Hidden) == files);
        // A 403 whose status text holds a link fails a list save: the error box shows the markup as text, no link.
        const QString link = "<a href=\"http://127.0.0.1:9/\">update</a>";
        sniffer->runOldSniffer();
        sniffer->Append(server.url + "/clip.mp4?refuse=" + QUrl::toPercentEncoding(link), "", "200000", "video/mp4");
        answerSaveDialog(out.filePath("Refused"));
        QString title, text;
        closeNextMessage(&title, &text, 120000);
        sniffer->onClickOldSnifferDownloadVideo();
        QVERIFY(waitFor([&] { return !text.isEmpty(); }, 120000));
        QVERIFY2(QTextDocumentFragment::fromHtml(text).toPlainText().contains("403: " + link), qPrintable(text));
    }
};

VIDORRA_TEST_MAIN(DownloadRealTest)
#include "tst_download_real.moc"
