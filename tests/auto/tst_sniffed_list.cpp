#include <QtTest>

#include <QtWidgets>

#include "Fiofostis/DownloaderRules.h"
#include "Sniffer/SniffedRules.h"
#include "Sniffer/Sniffer.h"
#include "Sniffer/SnifferQueue.h"
#include "TestSupport.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_OldSniffer.h"
#include "ui_Settings.h"
#include "ui_Sniffer.h"

// The sniffed media list of the real window (offscreen): rules, queue, buttons
// with the stand-in downloader, the update notice and the self-test.
class SniffedListTest : public QObject
{
    Q_OBJECT

    const QString data = qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2";
    QTemporaryDir work;
    std::unique_ptr<Sniffer> sniffer;
    QStringList opened; // addresses given to the desktop
    QString boxTitle, boxText;

    QListWidget *list() const
    {
        return sniffer->uiOldSniffer->mediaList;
    }
    QString row(int r) const
    {
        return list()->item(r)->text();
    }
    // The colour of a row's state square.
    QRgb square(int row) const
    {
        return list()->item(row)->icon().pixmap(16, 16).toImage().pixel(8, 8);
    }
    void report(const char *address, qint64 size, const char *type = "video/mp4")
    {
        VideoSnifferCallback(address, "http://page", std::to_string(size), type);
        while (g_urlData.records.size())
            sniffer->checkUrlQueue();
    }
    void scenario(const QString &text)
    {
        QFile file(work.filePath("scenario"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) == text.size());
        qputenv("VIDORRA_FAKE_SCRIPT", file.fileName().toLocal8Bit());
    }

public slots:
    void openUrl(const QUrl &url)
    {
        opened << url.toString();
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        for (const char *scheme : {"http", "https", "file"})
            QDesktopServices::setUrlHandler(scheme, this, "openUrl");
    }

    void init()
    {
        QDir(data).removeRecursively();
        QVERIFY(writeSettings(data, "[os_urls]\n1=vimeo.com\n[mirel_test_urls]\n1=a\n2=b\n3=c\n"
                                    "[test_sniffer]\n0=http://test.page/\n1=help/index.html\n"
                                    "[error_messages]\n9=\"3~Not saved.\"\n"));
        sniffer.reset(new Sniffer);
        sniffer->start();
        opened.clear();
    }
    void cleanup()
    {
        sniffer.reset();
    }

    void rules_data()
    {
        QTest::addColumn<QString>("rule");
        QTest::addColumn<QString>("input");
        QTest::addColumn<QString>("expected");
        const char *const rows[][4] = {
            {"type clean-up", "type", "video/x-flv\r\nmore", "video/flv"},
            {"type at a line break", "type", "\r\nvideo/mp4", "\r\nvideo/mp4"},
            {"1 MiB", "size", "1048576", "1.00 MB"},
            {"row columns", "row", "7. 12:00:01", "7. 12:00:01           video/mp4     2.50 MB"},
            {"version, final dot", "version", "Updated yt-dlp to 2015.11.13.", "2015.11.1"},
            {"version, dots only", "version", "done... v1.2.3", "last"},
            {"version, plus kept", "version", "is up to date (2023.03.04+dfsg)", "2023.03.04+"},
            {"no version", "notice", "last", "Vidorra 2 is up-to-date"},
            {"mp4 video", "extension", "video/mp4", "mp4"},
            {"flash video", "extension", "video/flv", "flv"},
            {"mpeg audio", "extension", "audio/mpeg", "mp3"},
            {"quicktime", "extension", "video/quicktime; codecs=x", "mov"},
            {"not media", "extension", "application/octet-stream", "mp4"},
            {"tool's error lines", "complaint", "warning\nERROR: HTTP 403\nlast", "ERROR: HTTP 403"},
            {"tool's last line", "complaint", "one\ntwo\n", "two"},
            {"transfer address", "address", " http://a/http://b ", "a/b"}};
        for (const auto &row : rows)
            QTest::newRow(row[0]) << QString(row[1]) << QString(row[2]) << QString(row[3]);
    }
    void rules()
    {
        QFETCH(QString, rule);
        QFETCH(QString, input);
        QFETCH(QString, expected);
        using namespace SniffedRules;
        const QHash<QString, std::function<QString()>> rules{
            {"type", [&] { return cleanType(input); }},
            {"size", [&] { return sizeText(input.toLongLong()); }},
            {"row", [&] { return rowText(input, "video/mp4", sizeText(2621440)); }},
            {"version", [&] { return versionFromUpdateOutput(input); }},
            {"notice", [&] { return upToDateText(input); }},
            {"extension", [&] { return extensionForType(input); }},
            {"address", [&] { return transferAddress(input); }},
            {"complaint", [&] { return DownloaderRules::toolComplaint(input.toUtf8(), 1); }}};
        QCOMPARE(rules.value(rule)(), expected);
    }

    void listKeepsTheNewestAndDropsRepeats()
    {
        report("early.example/a.mp4", 500000); // before the page is first opened: counted, then cleared
        QCOMPARE(sniffer->sniffedCount, 1);
        QTest::mouseClick(sniffer->uiNavigation->btnSniffer, Qt::LeftButton);
        QVERIFY(sniffer->ui->widgetOldSniffer->isVisible() && list()->count() == 0);
        QVERIFY(!sniffer->uiOldSniffer->pbRemove->isEnabled());

        report("small.example/a.mp4", 99999);
        report("media.example/first.flv", 100000, "video/x-flv");
        report("media.example/first.flv", 200000);
        report("other.example/same-size.mp4", 100000);
        QCOMPARE(list()->count(), 1);
        QCOMPARE(row(0), SniffedRules::rowText("1. " + sniffer->sniffedEntries[0].time, "video/flv", "0.10 MB"));
        QCOMPARE(sniffer->sniffedEntries[0].url, QString("http://media.example/first.flv"));
        QCOMPARE(square(0), QColor(0xe0, 0x45, 0x3a).rgb());

        // Three reports wait for three looks at the queue.
        for (int i = 2; i <= 4; ++i)
            VideoSnifferCallback("media.example/" + std::to_string(i), "", std::to_string(100000 + i), "video/mp4");
        sniffer->checkUrlQueue();
        sniffer->checkUrlQueue();
        QCOMPARE(list()->count(), 3);
        sniffer->checkUrlQueue();
        QCOMPARE(list()->count(), 4);

        for (int i = 5; i <= 27; ++i)
            report(qPrintable("media.example/" + QString::number(i)), 100000 + i);
        QCOMPARE(list()->count(), 25);
        QVERIFY(row(0).startsWith("27. ") && row(24).startsWith("3. "));

        // A page of the video site cannot be previewed.
        report("www.youtube.com/watch?v=x", 999999);
        QVERIFY(!sniffer->uiOldSniffer->pbPreview->isEnabled());
        list()->setCurrentRow(1);
        sniffer->onClickOldSnifferListItem(list()->item(1));
        QVERIFY(sniffer->uiOldSniffer->pbPreview->isEnabled());

        // Remove flashes its pressed look, then takes the current row away
        // (once, however often the page was opened).
        QTest::mouseClick(sniffer->uiNavigation->btnBack, Qt::LeftButton);
        QTest::mouseClick(sniffer->uiNavigation->btnSniffer, Qt::LeftButton);
        list()->setCurrentRow(1);
        const QString removed = list()->currentItem()->text();
        QTest::mouseClick(sniffer->uiOldSniffer->pbRemove, Qt::LeftButton);
        const QImage pressed = QIcon(":btnRemoveOSNclc").pixmap(24, 24).toImage();
        QCOMPARE(sniffer->uiOldSniffer->pbRemove->icon().pixmap(24, 24).toImage(), pressed);
        QVERIFY(waitFor([&] { return sniffer->uiOldSniffer->pbRemove->icon().pixmap(24, 24).toImage() != pressed; }));
        QCOMPARE(list()->count(), 24);
        QVERIFY(row(0) != removed && row(1) != removed);
        while (list()->count())
            sniffer->onClickOldSnifferRemove();
        QVERIFY(!sniffer->uiOldSniffer->pbDownloadVideo->isEnabled() && !sniffer->uiOldSniffer->pbPreview->isEnabled());
    }

    void savesTransferTheMedia()
    {
        QTest::mouseClick(sniffer->uiNavigation->btnSniffer, Qt::LeftButton);
        const QString clip = work.filePath("clip.mp4");
        QVERIFY(makeClip(clip, 1.0, true));
        scenario("[download]\npart: 4096\nmedia: " + clip +
                 "\n[download 2]\npart: 4096\nexit: 1\n[download 3]\nmedia: " + clip + "\n");
        report("media.example/clip.mp4", 300000);
        sniffer->uiSettings->pathVideo->setText(work.path());
        sniffer->uiSettings->pathAudio->setText(work.path());
        QSignalSpy finished(sniffer.get(), &Sniffer::downloadFinished);

        answerSaveDialog("My clip");
        QTest::mouseClick(sniffer->uiOldSniffer->pbDownloadVideo, Qt::LeftButton);
        QCOMPARE(square(0), QColor(0xf2, 0xc2, 0x30).rgb());
        QVERIFY(!sniffer->uiOldSniffer->pbDownloadVideo->isEnabled());
        report("media.example/other.mp4", 400000); // a new row leaves the save's button off
        QVERIFY(!sniffer->uiOldSniffer->pbDownloadVideo->isEnabled());
        QVERIFY(waitFor([&] { return finished.size() == 1; }));
        QCOMPARE(finished.at(0).at(0).toString(), work.path() + "/My clip.mp4");
        QCOMPARE(streams(work.path() + "/My clip.mp4"), streams(clip));
        QCOMPARE(square(1), QColor(0x3f, 0xbf, 0x5a).rgb());
        sniffer->RemoveAt(1);

        // A failed save goes back to red, leaves nothing behind and says why.
        answerSaveDialog("Lost");
        closeNextMessage(&boxTitle, &boxText);
        QTest::mouseClick(sniffer->uiOldSniffer->pbDownloadVideo, Qt::LeftButton);
        QVERIFY(waitFor([&] { return !boxText.isEmpty(); }));
        QVERIFY2(boxText.startsWith("Not saved.") &&
                     boxText.contains("<li>The downloader ended with exit code 1.</li>"),
                 qPrintable(boxText));
        QCOMPARE(square(0), QColor(0xe0, 0x45, 0x3a).rgb());
        QCOMPARE(finished.size(), 1);
        QCOMPARE(QDir(work.path()).entryList({"Lost*"}), QStringList());

        // An audio save holds the sound alone.
        answerSaveDialog("Tune");
        QTest::mouseClick(sniffer->uiOldSniffer->pbDownloadAudio, Qt::LeftButton);
        QVERIFY(waitFor([&] { return finished.size() == 2; }));
        QCOMPARE(QDir(work.path()).entryList({"Tune*"}), QStringList{"Tune.mp3"});
        QCOMPARE(streams(work.path() + "/Tune.mp3"), QString("mp3=audio"));

        // A cancelled dialog changes nothing.
        answerNextModal([](QWidget *w) { qobject_cast<QDialog *>(w)->reject(); });
        QCOMPARE(sniffer->onClickOldSnifferDownload(), QString());

        // An audio save leaves a plain ".mp3" copy beside the file.
        emit sniffer->downloadFinished(work.path() + "/My clip.mp4");
        QCOMPARE(QFileInfo(work.path() + "/My clip.mp3").size(), QFileInfo(clip).size());

        // Closing the window during a save leaves nothing of it.
        scenario("[download]\npart: 4096\nhang\n");
        answerSaveDialog("Unfinished");
        QTest::mouseClick(sniffer->uiOldSniffer->pbDownloadVideo, Qt::LeftButton);
        QVERIFY(waitFor([&] { return QFile::exists(work.path() + "/Unfinished.mp4.part"); }));
        sniffer.reset();
        QCOMPARE(QDir(work.path()).entryList({"Unfinished*"}), QStringList());
    }

    void updateNoticeAndSelfTest()
    {
        QVERIFY(!sniffer->checkLastUpdateDate());
        QSettings(data + "/sniffer.ini", QSettings::IniFormat).setValue("last_update", "0");
        Sniffer other;
        QVERIFY(other.checkLastUpdateDate() && !other.checkLastUpdateDate());

        // Ctrl+U: the update layer, then the notice with the tool's version.
        closeNextMessage(&boxTitle, &boxText);
        QApplication::setActiveWindow(sniffer.get());
        QVERIFY(QTest::qWaitForWindowActive(sniffer.get()));
        QTest::keyClick(sniffer.get(), Qt::Key_U, Qt::ControlModifier);
        QVERIFY(sniffer->ui->widgetNavigation->isVisible() && !sniffer->uiNavigation->btnSniffer->isVisible());
        QVERIFY(waitFor([&] { return !boxText.isEmpty(); }));
        QCOMPARE(boxText, QString("Vidorra 2 2023.03.04 is up-to-date"));
        QVERIFY(sniffer->windowTitle().contains("2023.03.04"));
        QVERIFY(sniffer->uiNavigation->btnSniffer->isVisible());

        // The self-test opens its page beside the list, with the notice under it.
        sniffer->testSniffer();
        QCOMPARE(opened, QStringList{"http://test.page/"});
        QCOMPARE(sniffer->height(), 60 + 320);
        QCOMPARE(sniffer->uiOldSniffer->stackedWidget->currentIndex(), 1);
        emit sniffer->uiOldSniffer->label_2->linkActivated("help-desk");
        QCOMPARE(opened.last(), QUrl::fromLocalFile(toolFolder() + "/help/index.html").toString());
        sniffer->runOldSniffer();
        QCOMPARE(sniffer->height(), 60 + 170);

        for (const char *expected : {"a", "b", "c", "a"}) {
            sniffer->mirelSetDefaultURL();
            QCOMPARE(sniffer->uiInsertURL->inputURL->text(), QString(expected));
        }
        // The field's clear button fades in; its animation goes only when done.
        for (QToolButton *button : sniffer->uiInsertURL->inputURL->findChildren<QToolButton *>())
            QVERIFY(waitFor([button] { return button->property("opacity").toReal() == 1.0; }));

        sniffer->appSettings.tables["test_sniffer"].clear();
        closeNextMessage(&boxTitle, &boxText);
        sniffer->testSniffer();
        QVERIFY(boxText.contains("<b>error #8:9</b>"));
    }

    void addressMenuOfOtherSites()
    {
        QPushButton *button = sniffer->uiNavigation->btnDownloaderOS;
        const QPoint inside = button->mapTo(sniffer.get(), QPoint(3, 3));
        emit sniffer->customContextMenuRequested(inside + QPoint(button->width(), 0));
        QVERIFY(!QApplication::activePopupWidget());
        QTest::mousePress(button, Qt::RightButton, {}, QPoint(3, 3));
        QVERIFY(waitFor([] { return QApplication::activePopupWidget(); }));
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        QCOMPARE(menu->actions().size(), 1);
        menu->actions().first()->trigger();
        menu->close();
        QCOMPARE(opened, QStringList{"http://vimeo.com"});
        QVERIFY(sniffer->ui->widgetInsertURL->isVisible());
        QCOMPARE(sniffer->appSettings.urlTable, QString("os_urls"));
    }
};

VIDORRA_TEST_MAIN(SniffedListTest)
#include "tst_sniffed_list.moc"
