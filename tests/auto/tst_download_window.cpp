#include "Sniffer/DownloadRules.h"
#include "Platform/Log.h"
#include "Sniffer/SniffedRules.h"
#include "Sniffer/Sniffer.h"
#include "Sniffer/SnifferQueue.h"
#include "TestSupport.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_OldSniffer.h"
#include "ui_Options.h"
#include "ui_Progress.h"
#include "ui_Settings.h"
#include "ui_Sniffer.h"
#include "ui_Update.h"

// The downloads of the real window (offscreen) through its widgets, from a typed address and from the sniffed media
// list (its queue, the update notice and the self-test too); the stand-in downloader, the real ffmpeg.
class DownloadWindowTest : public QObject
{
    Q_OBJECT

    QTemporaryDir work;
    std::unique_ptr<Sniffer> sniffer;
    QString boxTitle, boxText, clip;
    QMessageBox::Icon boxIcon = QMessageBox::NoIcon;
    bool boxPlain = false;
    QStringList opened; // addresses given to the desktop
    int scenarios = 0;
    QListWidget *media = nullptr; // the sniffed list
    const QString canonical = "https://www.youtube.com/watch?v=BaW_jenozKc";
    const QString dataFolder = qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2";
    const QString desktop = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);

    bool waitForPage(QWidget *page)
    {
        return waitFor([page] { return page->isVisible(); });
    }
    // A fresh scenario for the stand-in; returns the log of the tool's calls.
    QString scenario(const QString &text)
    {
        return useScenario(work.filePath(QString("scenario-%1.txt").arg(++scenarios)), text);
    }
    // A downloader's page; the address typed and Return pressed in the focused field, as the window system sends keys.
    void enter(const QString &address, QPushButton *downloader = nullptr)
    {
        downloader = downloader ? downloader : sniffer->uiNavigation->btnDownloaderYT;
        for (int i = 0; i < 2 && !downloader->isVisible(); ++i)
            QTest::mouseClick(sniffer->uiNavigation->btnBack, Qt::LeftButton);
        QTest::mouseClick(downloader, Qt::LeftButton);
        QApplication::setActiveWindow(sniffer.get()); // as the window system does after a dialog
        QVERIFY(QTest::qWaitForWindowActive(sniffer.get()));
        sniffer->uiInsertURL->inputURL->setFocus();
        QCOMPARE(QApplication::focusWidget(), sniffer->uiInsertURL->inputURL);
        QTest::keyClicks(QApplication::focusWidget(), address);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
    }

    void openOptions()
    {
        enter("watch this https://youtu.be/BaW_jenozKc?t=5");
        QVERIFY(waitForPage(sniffer->ui->widgetOptions));
    }
    // Cancel while the address is checked (each query's call `number`) ends both queries: nothing answers later.
    void cancelWhileChecking(const QString &log, int number)
    {
        QVERIFY(sniffer->ui->widgetProgress->isVisible());
        QVERIFY(waitFor(
            [&] { return fakeCalls(log, "title").size() == number && fakeCalls(log, "formats").size() == number; }));
        const QList<qint64> pids{sniffer->downloader->processTitle->processId(),
                                 sniffer->downloader->processFormats->processId()};
        QTest::mouseClick(sniffer->uiProgress->btnCloseProgress, Qt::LeftButton);
        for (qint64 pid : pids)
            QVERIFY2(waitFor([pid] { return !alive(pid); }), "a query still runs");
        QCoreApplication::processEvents();
        QVERIFY(sniffer->ui->widgetNavigation->isVisible() && !sniffer->ui->widgetOptions->isVisible());
    }

    // The colour of a row's state square.
    QRgb square(int row) const
    {
        return media->item(row)->icon().pixmap(16, 16).toImage().pixel(8, 8);
    }
    void report(const char *address, qint64 size, const char *type = "video/mp4")
    {
        VideoSnifferCallback(address, "http://page", std::to_string(size), type);
        while (g_urlData.records.size())
            sniffer->checkUrlQueue();
    }
    void save(QPushButton *button, const QString &name, std::function<void()> afterSave = {})
    {
        answerSaveDialog(name, QString(), afterSave);
        QTest::mouseClick(button, Qt::LeftButton);
    }
    // Saves as `name`: the progress page shows, the completion message comes, the address page follows.
    bool saveToTheEnd(QPushButton *button, const QString &name, int timeoutMs = 15000)
    {
        save(button, name);
        const bool progress = sniffer->ui->widgetProgress->isVisible();
        closeNextMessage(&boxTitle, &boxText, timeoutMs);
        return progress && waitFor([this] { return boxText == "Processing is completed"; }, timeoutMs) &&
               boxTitle == "Processing state:" && waitForPage(sniffer->ui->widgetInsertURL);
    }

public slots:
    void openUrl(const QUrl &url)
    {
        opened << url.toString();
    }

private slots:
    void initTestCase()
    {
        clip = work.filePath("clip.mp4");
        QVERIFY(work.isValid() && makeClip(clip));
        for (const char *scheme : {"http", "https", "file"})
            QDesktopServices::setUrlHandler(scheme, this, "openUrl");
    }

    void init()
    {
        sniffer.reset();                 // the last test's window ends what still runs, as Cancel does
        qInstallMessageHandler(nullptr); // a test that reads the log writes it
        QDir(dataFolder).removeRecursively();
        QVERIFY(writeSettings(dataFolder,
                              "[error_titles]\n1=\"Address not accepted\"\n2=\"Video not read\"\n3=\"Not saved\"\n"
                              "[error_messages]\n2=\"1~Not an address of the video site.\"\n9=\"3~Not saved.\"\n"
                              "[error_messages_dl]\n3=\"2~Title and length could not be read.\"\n"
                              "8=\"3~Download failed.\"\n9=\"2~Formats could not be read.\"\n"
                              "[os_urls]\n1=127.0.0.1\n2=vimeo.com\n[mirel_test_urls]\n1=a\n2=b\n3=c\n"
                              "[test_sniffer]\n0=http://test.page/\n1=help/index.html\n"));
        scenario(QString());
        opened.clear();
        sniffer.reset(new Sniffer(nullptr));
        sniffer->start();
        media = sniffer->uiOldSniffer->mediaList;
        QVERIFY(QTest::qWaitForWindowExposed(sniffer.get()));
    }

    void optionsFitTheFormatsDownloadsReachTheFileAndCancelEndsEveryStep()
    {
        // A lone mp3 offers only the audio button.
        QListWidget *list = sniffer->uiOptions->listFormats;
        scenario("[formats]\nout: [generic] Extracting\\n0 mp3 audio only (best)\n");
        enter("http://127.0.0.1:9/song.mp3", sniffer->uiNavigation->btnDownloaderOS);
        QVERIFY(waitForPage(sniffer->ui->widgetOptions) && list->isHidden());
        QVERIFY(sniffer->uiOptions->btnDownloadVideo->isHidden() && sniffer->uiOptions->btnDownloadAudio->isVisible());
        // The next address lists 10,001 formats: the video button is back, the list scrolls, the window takes the
        // screen's height and no more. Each read stands alone and the list holds the last: the final 70 rows come in
        // one (atomic) write.
        QString listing;
        for (int code = 1; code <= 10001; ++code)
            listing += QString::number(code) + " mp4 640x360 medium\\n" + (code == 9931 ? "\nout: " : "");
        scenario("[formats]\nout: " + listing + "\n");
        enter("http://127.0.0.1:9/watch.html", sniffer->uiNavigation->btnDownloaderOS);
        QVERIFY(waitForPage(list) && list->count() >= 70 && list->verticalScrollBar()->maximum() > 0);
        const int room = QGuiApplication::primaryScreen()->availableGeometry().height();
        QVERIFY(sniffer->frameGeometry().height() <= room && sniffer->frameGeometry().height() > room - 100);
        QVERIFY(sniffer->uiOptions->btnDownloadVideo->isVisible());
        const QString log =
            scenario("[download]\npart: 4096\nout-file: recorded/progress-end.txt\nmedia: " + clip + "\n");
        openOptions();
        QCOMPARE(sniffer->uiOptions->inputTitle->text() + " " + sniffer->uiOptions->lblDLLength->text(),
                 QString("Stand in Video 0:42"));
        // The format table in reverse, the best one marked, the top row chosen.
        QStringList expected;
        for (const Downloader::videoFormat &format : sniffer->downloader->options->formats)
            expected.prepend(DownloadRules::formatRowText(format));
        QVERIFY(list->count() == expected.size() && list->currentRow() == 0);
        for (int row = 0; row < list->count(); ++row)
            QCOMPARE(list->item(row)->text(), expected[row]);
        const QList<QListWidgetItem *> best = list->findItems("( BEST )", Qt::MatchContains);
        QVERIFY(best.size() == 1 && best[0]->text() == "1280x720\tAAC 192 KBps\t( BEST )");
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(best[0]).center());
        // The folder disappears between the dialog and the download: told at once, nothing started.
        const QString gone = work.filePath("gone");
        QVERIFY(QDir().mkpath(gone));
        save(sniffer->uiOptions->btnDownloadVideo, gone + "/Clip", [this, gone] {
            QDir(gone).removeRecursively();
            closeNextMessage(&boxTitle, &boxText);
        });
        QVERIFY(boxTitle == "Processing error:" && boxText.startsWith("<b>File</b> <i>" + gone + "/Clip."));
        QVERIFY(sniffer->ui->widgetOptions->isVisible() && fakeCalls(log, "download").isEmpty());
        const QString target = work.filePath("My Clip.mp4");
        QVERIFY(saveToTheEnd(sniffer->uiOptions->btnDownloadVideo, target));
        const QStringList call = fakeCalls(log, "download").value(0);
        QCOMPARE(call, (QStringList{canonical, "-o", call.value(2), "--format", "22"}));
        QVERIFY(call.value(2).startsWith(work.filePath(".My Clip.")) && !QFile::exists(call.value(2)) &&
                streams(target) == "h264=video aac=audio");
        // Its audio, through ffmpeg, is the MP3 alone; the dialog opens in the audio folder with MP3 chosen.
        openOptions();
        const QString folder = work.filePath("audio");
        QVERIFY(QDir().mkpath(folder));
        sniffer->uiSettings->pathAudio->setText(folder);
        QVERIFY(saveToTheEnd(sniffer->uiOptions->btnDownloadAudio, "Tune", 60000));
        QCOMPARE(QDir(folder).entryList(QDir::Files | QDir::Hidden), QStringList{"Tune.mp3"});
        QCOMPARE(streams(folder + "/Tune.mp3"), QString("mp3=audio"));
        // No button of the window takes Return for itself.
        for (QPushButton *button : sniffer->findChildren<QPushButton *>())
            QVERIFY2(!button->autoDefault() && !button->isDefault(), qPrintable(button->objectName()));
        // Addresses 1 and 3 are still being checked when Cancel comes.
        const QString hangs = scenario("[title 1]\nhang\n[formats 1]\nhang\n[title 3]\nhang\n[formats 3]\nhang\n"
                                       "[download]\npart: 4096\nout-file: recorded/progress-middle.txt\nwait-for: go\n"
                                       "out: [download]   nan% of ~1MiB\nhang\n");
        enter(canonical);
        // The hidden field lets the focus go: Return again neither restarts nor cancels.
        QVERIFY(QApplication::focusWidget() && QApplication::focusWidget() != sniffer->uiInsertURL->inputURL);
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
        cancelWhileChecking(hangs, 1);
        enter(canonical);
        QVERIFY(sniffer->ui->widgetProgress->isVisible() && waitForPage(sniffer->ui->widgetOptions));
        const QString cancelled = work.filePath("cancelled");
        QVERIFY(QDir().mkpath(cancelled));
        save(sniffer->uiOptions->btnDownloadVideo, cancelled + "/Clip");
        // Cancel during the download removes the unfinished file and shows the main page.
        const QString part = sniffer->outputVideoFile + ".part";
        QVERIFY(waitFor([&] { return QFile::exists(part) && sniffer->progressBar->value() == 45; }));
        QFile(work.filePath("go")).open(QIODevice::WriteOnly); // the stand-in goes on: a figure that is not a number
        QVERIFY(waitFor([&] { return sniffer->progressBar->value() == 0; }));
        QTest::mouseClick(sniffer->uiProgress->btnCloseProgress, Qt::LeftButton);
        QVERIFY(!QFile::exists(part) && sniffer->ui->widgetNavigation->isVisible() &&
                !sniffer->ui->widgetProgress->isVisible() && !sniffer->ui->widgetInsertURL->isVisible());
        enter(canonical);
        cancelWhileChecking(hangs, 3);
        QVERIFY(QDir(cancelled).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
    }

    // A refused address, a failed title, a site that wants a sign-in (both queries fail: told once, in plain words).
    // Each row: the stand-in's script, the address, the message's title, its start, what else it holds.
    void refusedAddressAndFailedQueriesGoBackToTheAddress_data()
    {
        QTest::addColumn<QStringList>("row");
        const QString bot = "err: ERROR: [youtube] x: Sign in to confirm you’re NOT a bot. <b>Use</b>\\n\nexit: 1\n";
        QTest::newRow("refused") << QStringList{"",
                                                "https://vimeo.com/12345",
                                                "Address not accepted",
                                                "Not an address of the video site.<br><br><hr>",
                                                "<b>error #2:",
                                                "in 'processURL' : src/Sniffer/ProcessURL.cpp"};
        QTest::newRow("no title") << QStringList{"[title]\nexit: 1\n", canonical, "Video not read",
                                                 "Title and length could not be read.",
                                                 "[DL] in 'onDownloaderError' : src/Sniffer/DownloadFile.cpp"};
        QTest::newRow("listing crashed") << QStringList{
            "[formats]\nerr: Traceback (most recent call last):\\nRuntimeError: the listing broke\ncrash\n", canonical,
            "Video not read", "Formats could not be read.", "comment: RuntimeError: the listing broke"};
        QTest::newRow("sign-in") << QStringList{"[title]\n" + bot + "[formats]\n" + bot, canonical, "Sign-in needed",
                                                "", "Choose your browser under Settings, Cookies from browser"};
    }
    void refusedAddressAndFailedQueriesGoBackToTheAddress()
    {
        QFETCH(QStringList, row);
        const QString script = row.takeFirst(), address = row.takeFirst(), title = row.takeFirst();
        scenario(script);
        qInstallMessageHandler(myMessageHandler);
        closeNextMessage(&boxTitle, &boxText, 60000, &boxIcon, &boxPlain);
        enter(address);
        QVERIFY(waitFor([this] { return !boxText.isEmpty(); }));
        QCOMPARE(boxTitle, title);
        QVERIFY2(boxText.startsWith(row.takeFirst()), qPrintable(boxText));
        for (const QString &part : row)
            QVERIFY2(boxText.contains(part), qPrintable(boxText));
        QCOMPARE(boxIcon == QMessageBox::Warning && boxPlain, title == "Sign-in needed");
        QCOMPARE(sniffer->uiInsertURL->inputURL->text(), address);
        const QByteArray words = row.last().section("comment: ", 1).toUtf8(); // the tool's, in the log too
        QVERIFY(readFile(dataFolder + Log::fileName(QDate::currentDate())).contains(words));
        // The other query is ended: it neither opens the Options page nor tells again.
        QVERIFY(!sniffer->downloader->processFormats && !sniffer->downloader->processTitle);
        QCoreApplication::processEvents();
        QVERIFY(!QApplication::activeModalWidget() && sniffer->ui->widgetInsertURL->isVisible());
    }

    // A download that fails on the way (the tool crashes, the folder goes, the disk fills: a 1 MB tmpfs as root, else
    // a tool that found it full) is told with the tool's last words, in the log too; nothing of it stays.
    void failedDownloadsAreToldAndLeaveNothing()
    {
        const QString target = work.filePath("failed");
        const QList<QPair<QString, QString>> rows{
            {"err: ERROR: unable to download video data: HTTP Error 500\ncrash",
             "ERROR: unable to download video data"},
            {"wait-for: go\npart: 8192", "FileNotFoundError: [Errno 2] No such file or directory"},
            {"wait-for: go\npart: 2000000", "[Errno 28] No space left on device"}};
        for (auto [script, words] : rows) {
            QFile::remove(work.filePath("go"));
            QVERIFY(QDir(target).removeRecursively() && QDir().mkpath(target));
            const bool full = script.endsWith("2000000");
            const bool tmpfs = full && runTool("mount", {"-t", "tmpfs", "-o", "size=1m", "tmpfs", target}).isEmpty();
            const auto unmount = qScopeGuard([&] {
                if (tmpfs)
                    runTool("umount", {"-l", target});
            });
            scenario(
                "[download]\npart: 4096\n" +
                (full && !tmpfs ? "wait-for: go\nerr: OSError: [Errno 28] No space left on device\nexit: 1" : script));
            qInstallMessageHandler(myMessageHandler);
            openOptions();
            save(sniffer->uiOptions->btnDownloadVideo, target + "/Clip");
            const QString part = sniffer->outputVideoFile + ".part";
            QVERIFY(waitFor([&] { return QFile::exists(part); }));
            if (script.endsWith("8192"))
                QDir(target).removeRecursively();
            closeNextMessage(&boxTitle, &boxText);
            QVERIFY(writeFile(work.filePath("go"), "") && waitFor([this] { return !boxText.isEmpty(); }));
            QVERIFY2(boxTitle == "Not saved" && boxText.startsWith("Download failed.") && boxText.contains(words),
                     qPrintable(boxText));
            QVERIFY(!QFile::exists(part) && sniffer->ui->widgetInsertURL->isVisible() &&
                    readFile(dataFolder + Log::fileName(QDate::currentDate())).contains(words.toUtf8()));
        }
    }

    void saveFoldersAndTheSniffedList()
    {
        // The sniffed list's Save As cleans the typed name; when that name exists it asks (No: the dialog again).
        sniffer->uiSettings->pathAudio->setText(work.path());
        sniffer->snifferSaveMode = DownloadRules::KindAudio;
        QString asked;
        QVERIFY(writeFile(work.path() + "/My.Clip.2.mp3", "kept"));
        answerModals({saveAs("My_Clip - 2.mp3"), press(QMessageBox::No, &asked), saveAs("My_Clip - 2.mp3"),
                      press(QMessageBox::Yes)});
        QCOMPARE(sniffer->GetSaveAsFullPath("mp3"), work.path() + "/My.Clip.2.mp3");
        QCOMPARE(asked, work.path() + "/My.Clip.2.mp3 already exists.\nDo you want to replace it?");
        // With nothing stored the Options page lists Desktop, Documents, Music, Movies.
        QComboBox *folders = sniffer->uiOptions->selectPath;
        sniffer->setSaveFilePath();
        const QString home = qEnvironmentVariable("HOME");
        const QStringList places{desktop, home + "/Documents", home + "/Music", home + "/Videos"};
        for (int i = 0; i < places.size() || i < folders->count(); ++i)
            QCOMPARE(folders->itemText(i), places.value(i));
        // Settings page: a cancelled chooser fills an empty field with the Desktop; Save stores the text as typed.
        QTest::mouseClick(sniffer->uiNavigation->btnOptions, Qt::LeftButton);
        answerNextModal([](QWidget *w) { qobject_cast<QDialog *>(w)->reject(); });
        QTest::mouseClick(sniffer->uiSettings->btnSelectVideoPath, Qt::LeftButton);
        QCOMPARE(sniffer->uiSettings->pathVideo->text(), desktop);
        sniffer->uiSettings->pathAudio->clear();
        QTest::keyClicks(sniffer->uiSettings->pathAudio, "  /no such/place ");
        sniffer->uiSettings->pathVideo->setText(work.path());
        QTest::mouseClick(sniffer->uiSettings->btnSave, Qt::LeftButton);
        QVERIFY(!sniffer->ui->widgetSettings->isVisible() && sniffer->ui->widgetNavigation->isVisible());
        QCOMPARE(QSettings(dataFolder + "/sniffer.ini", QSettings::IniFormat).value("savepath_audio").toString(),
                 QString("  /no such/place "));
        // The stored video folder comes first, the Desktop last; the chooser puts its folder on top.
        sniffer->setSaveFilePath();
        QVERIFY(folders->count() == 5 && folders->itemText(0) == work.path() && folders->itemText(4) == desktop);
        answerNextModal([this](QWidget *w) {
            auto *dialog = qobject_cast<QFileDialog *>(w);
            dialog->setDirectory(dataFolder);
            QTest::mouseClick(dialog->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Open), Qt::LeftButton);
        });
        sniffer->uiOptions->btnSelectPath->click();
        QVERIFY(folders->currentText() == dataFolder && folders->count() == 6);
        report("early.example/a.mp4", 500000); // before the page is first opened: counted, then cleared
        QCOMPARE(sniffer->sniffedCount, 1);
        QTest::mouseClick(sniffer->uiNavigation->btnSniffer, Qt::LeftButton);
        QVERIFY(sniffer->ui->widgetOldSniffer->isVisible() && media->count() == 0);
        QVERIFY(!sniffer->uiOldSniffer->pbRemove->isEnabled());
        report("small.example/a.mp4", 99999);
        report("media.example/first.flv", 100000, "video/x-flv");
        report("media.example/first.flv", 200000);
        report("other.example/same-size.mp4", 100000);
        QCOMPARE(media->count(), 1);
        QCOMPARE(media->item(0)->text(),
                 SniffedRules::rowText("1. " + sniffer->sniffedEntries[0].time, "video/flv", "0.10 MB"));
        // Three reports wait for three looks at the queue.
        for (int i = 2; i <= 4; ++i)
            VideoSnifferCallback("media.example/" + std::to_string(i), "", std::to_string(100000 + i), "video/mp4");
        sniffer->checkUrlQueue();
        sniffer->checkUrlQueue();
        QCOMPARE(media->count(), 3);
        for (int i = 5; i <= 27; ++i)
            report(qPrintable("media.example/" + QString::number(i)), 100000 + i);
        QCOMPARE(media->count(), 25);
        QVERIFY(media->item(0)->text().startsWith("27. ") && media->item(24)->text().startsWith("3. "));
        // A page of the video site cannot be previewed.
        report("www.youtube.com/watch?v=x", 999999);
        QVERIFY(!sniffer->uiOldSniffer->pbPreview->isEnabled());
        media->setCurrentRow(1);
        sniffer->onClickOldSnifferListItem(media->item(1));
        QVERIFY(sniffer->uiOldSniffer->pbPreview->isEnabled());
        // Remove takes the current row away (once, however often the page was opened).
        QTest::mouseClick(sniffer->uiNavigation->btnBack, Qt::LeftButton);
        QTest::mouseClick(sniffer->uiNavigation->btnSniffer, Qt::LeftButton);
        media->setCurrentRow(1);
        const QString removed = media->currentItem()->text();
        QTest::mouseClick(sniffer->uiOldSniffer->pbRemove, Qt::LeftButton);
        QVERIFY(media->count() == 24 && media->findItems(removed, Qt::MatchExactly).isEmpty());
        while (media->count())
            sniffer->onClickOldSnifferRemove();
        QVERIFY(!sniffer->uiOldSniffer->pbDownloadVideo->isEnabled() && !sniffer->uiOldSniffer->pbPreview->isEnabled());
        // Saves from the list transfer the media; a type outside the table leaves the typed media extension.
        scenario("[download]\npart: 4096\nmedia: " + clip +
                 "\n[download 2]\npart: 4096\nexit: 1\n[download 3]\nmedia: " + clip + "\n");
        report("media.example/clip.mp4", 300000, "video/mp4.desktop");
        sniffer->uiSettings->pathVideo->setText(work.path());
        sniffer->uiSettings->pathAudio->setText(work.path());
        QSignalSpy finished(sniffer.get(), &Sniffer::downloadFinished);
        save(sniffer->uiOldSniffer->pbDownloadVideo, "My clip.mp4");
        QCOMPARE(square(0), QColor(0xf2, 0xc2, 0x30).rgb());
        report("media.example/other.mp4", 400000); // a new row leaves the save's button off
        QVERIFY(!sniffer->uiOldSniffer->pbDownloadVideo->isEnabled() && waitFor([&] { return finished.size() == 1; }));
        QCOMPARE(finished.at(0).at(0).toString(), work.path() + "/My clip.mp4");
        QCOMPARE(streams(work.path() + "/My clip.mp4"), streams(clip));
        QCOMPARE(square(1), QColor(0x3f, 0xbf, 0x5a).rgb());
        sniffer->RemoveAt(1);
        // A failed save goes back to red, leaves nothing of its own behind (what was there stays) and says why.
        QVERIFY(writeFile(work.path() + "/Lost.mp4.part", "kept") && writeFile(work.path() + "/Lost.mp4.ytdl", "kept"));
        save(sniffer->uiOldSniffer->pbDownloadVideo, "Lost", [this] { closeNextMessage(&boxTitle, &boxText); });
        QVERIFY(waitFor([&] { return !boxText.isEmpty(); }));
        QVERIFY2(boxText.startsWith("Not saved.") &&
                     boxText.contains("<li>The downloader ended with exit code 1.</li>"),
                 qPrintable(boxText));
        QCOMPARE(square(0), QColor(0xe0, 0x45, 0x3a).rgb());
        QCOMPARE(finished.size(), 1);
        QCOMPARE(QDir(work.path()).entryList({"*Lost*"}, QDir::Files | QDir::Hidden),
                 (QStringList{"Lost.mp4.part", "Lost.mp4.ytdl"}));
        // An audio save holds the sound alone.
        save(sniffer->uiOldSniffer->pbDownloadAudio, "Tune");
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
        const QString hangs = scenario("[download]\npart: 4096\nhang\n");
        save(sniffer->uiOldSniffer->pbDownloadVideo, "Unfinished");
        QVERIFY(waitFor([&] { return QFile::exists(fakeCalls(hangs, "download").value(0).value(2) + ".part"); }));
        sniffer.reset();
        QCOMPARE(QDir(work.path()).entryList({"*Unfinished*"}, QDir::Files | QDir::Hidden), QStringList());
    }

    void updateNoticeSelfTestAndAddressMenus()
    {
        QVERIFY(!sniffer->checkLastUpdateDate());
        QSettings(dataFolder + "/sniffer.ini", QSettings::IniFormat).setValue("last_update", "0");
        Sniffer other;
        QVERIFY(other.checkLastUpdateDate() && !other.checkLastUpdateDate());
        // The self-test opens its page beside the list, with the notice under it.
        sniffer->testSniffer();
        QVERIFY(opened == QStringList{"http://test.page/"} && sniffer->height() == 60 + 320 &&
                sniffer->uiOldSniffer->stackedWidget->currentIndex() == 1);
        emit sniffer->uiOldSniffer->label_2->linkActivated("help-desk");
        QCOMPARE(opened.last(),
                 QUrl::fromLocalFile(QCoreApplication::applicationDirPath() + "/help/index.html").toString());
        sniffer->runOldSniffer();
        QCOMPARE(sniffer->height(), 60 + 170);
        for (const char *expected : {"a", "b", "c", "a"}) {
            sniffer->mirelSetDefaultURL();
            QCOMPARE(sniffer->uiInsertURL->inputURL->text(), QString(expected));
        }
        sniffer->appSettings.tables["test_sniffer"].clear();
        closeNextMessage(&boxTitle, &boxText);
        sniffer->testSniffer();
        QVERIFY(boxText.contains("<b>error #8:9</b>"));
        // The other sites' button offers their addresses on a right press, on the button only.
        QTest::mouseClick(sniffer->uiNavigation->btnBack, Qt::LeftButton);
        QPushButton *button = sniffer->uiNavigation->btnDownloaderOS;
        emit sniffer->customContextMenuRequested(button->mapTo(sniffer.get(), QPoint(3 + button->width(), 3)));
        QVERIFY(!QApplication::activePopupWidget());
        QTest::mousePress(button, Qt::RightButton, {}, QPoint(3, 3));
        QVERIFY(waitFor([] { return QApplication::activePopupWidget(); }));
        auto *menu = qobject_cast<QMenu *>(QApplication::activePopupWidget());
        QCOMPARE(menu->actions().size(), 2); // in the order of the settings' numbers
        menu->actions().last()->trigger();
        menu->close();
        QVERIFY(opened.last() == "http://vimeo.com" && sniffer->ui->widgetInsertURL->isVisible() &&
                sniffer->appSettings.urlTable == "os_urls");
    }

    // Ctrl+U: the update page with the launcher's progress, then its verdict: news, the system's notice, a warning.
    void updateNotices_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("text"); // the window's title names the version it names
        const QString failed = "The downloader could not be updated: ";
        const QString system = "yt-dlp 2023.03.04 is installed by the system's package manager (apt): update it with "
                               "the package manager";
        QTest::newRow("current") << ""
                                 << "Vidorra 2 2023.03.04 is up-to-date";
        QTest::newRow("system") << "out: " + system << system;
        QTest::newRow("failed") << "err: [download]  42.5% of yt-dlp\\n\nwait-for: go\nout: yt-dlp 2023.07.06 stays "
                                   "in use\nerr: run: update failed: <a href=x>y</a>\\n\nexit: 1"
                                << failed + "<a href=x>y</a>.\n\nThe installed version 2023.07.06 keeps working.";
        QTest::newRow("no launcher") << "exit: 127"
                                     << failed + "the downloader launcher could not be started.\n\nNo working "
                                                 "downloader was found: addresses cannot be read until an update "
                                                 "succeeds.";
    }
    void updateNotices()
    {
        QFETCH(QString, script);
        QFETCH(QString, text);
        scenario(script.isEmpty() ? QString() : "[update]\n" + script + "\n");
        closeNextMessage(&boxTitle, &boxText, 60000, &boxIcon, &boxPlain);
        QApplication::setActiveWindow(sniffer.get());
        QVERIFY(QTest::qWaitForWindowActive(sniffer.get()));
        QTest::keyClick(sniffer.get(), Qt::Key_U, Qt::ControlModifier);
        QVERIFY(sniffer->ui->widgetUpdate->isVisible() && !sniffer->uiNavigation->btnSniffer->isVisible());
        if (script.contains("wait-for")) {
            QVERIFY(waitFor([&] { return sniffer->uiUpdate->updateBar->value() == 42; }) &&
                    sniffer->uiUpdate->lblUpdate->text() == "Downloading yt-dlp…");
            QVERIFY(QFile(work.filePath("go")).open(QIODevice::WriteOnly));
        }
        QVERIFY(waitFor([&] { return !boxText.isEmpty(); }));
        QCOMPARE(boxText, text);
        const bool warning = text.startsWith("The downloader could not be updated: ");
        QCOMPARE(boxTitle, QString(warning ? "Update not possible" : "Vidorra 2"));
        QVERIFY(boxIcon == (warning ? QMessageBox::Warning : QMessageBox::Information) &&
                boxPlain == !text.endsWith("is up-to-date"));
        const QString version = QRegularExpression("\\d{4}\\.\\d\\d\\.\\d\\d").match(text).captured();
        QVERIFY(sniffer->windowTitle().contains(version) && sniffer->uiNavigation->btnSniffer->isVisible());
    }
};

VIDORRA_TEST_MAIN(DownloadWindowTest)
#include "tst_download_window.moc"
