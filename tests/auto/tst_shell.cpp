#include "Fiofostis/SniffedDownload.h"
#include "Platform/Platform.h"
#include "Platform/Log.h"
#include "Sniffer/Sniffer.h"
#include "TestSupport.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_Options.h"
#include "ui_Progress.h"
#include "ui_Settings.h"
#include "ui_Sniffer.h"

#include <csignal>
#include <sys/stat.h>

// The application shell of the real window (offscreen): settings, data folder, log, lock, layers, progress, messages.
class ShellTest : public QObject
{
    Q_OBJECT

    const QString data = qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2";
    const QString ini = data + "/sniffer.ini";
    const QString stock = QCoreApplication::applicationDirPath() + "/sniffer.ini";
    const QString documents = qEnvironmentVariable("HOME") + "/Documents";
    const QString stockSource = VIDORRA_SOURCE_DIR "/deploy/sniffer.ini";
    QString boxTitle, boxText;

    QString stored(const QString &key) const
    {
        return QSettings(ini, QSettings::IniFormat).value(key).toString();
    }
    // A fresh data folder whose settings hold `body`; the missing tables come from the stock.
    void settings(const QString &body = {})
    {
        QDir(data).removeRecursively();
        QVERIFY(writeSettings(data, body));
    }

private slots:
    void firstStartMovesTheStockFileLaterStartsTouchNothingAndTheLogFindsItsFolder()
    {
        QDir(data).removeRecursively();
        QDir(documents).removeRecursively(); // a fresh account without Documents still gets the save folders
        QVERIFY(QFile::copy(stockSource, stock));
        {
            Sniffer first;
            QVERIFY2(QFile::exists(ini) && !QFile::exists(stock), "the stock file is moved, not copied");
            QCOMPARE(stored("last_update"), QString::number(QDate::currentDate().dayOfYear() - 1));
            for (const QString kind : {"Video", "Audio"})
                QVERIFY(stored("savepath_" + kind.toLower()) == documents + "/Vidorra 2/" + kind &&
                        QDir(documents + "/Vidorra 2/" + kind).exists());
            // A text with commas comes back whole.
            QVERIFY(first.tableText("error_messages", 1).contains("address bar of your browser (it starts"));
        }
        QSettings(ini, QSettings::IniFormat).setValue("savepath_video", "/somewhere/else");
        QVERIFY(QFile::copy(stockSource, stock));
        Sniffer second;
        QCOMPARE(stored("savepath_video"), QString("/somewhere/else"));
        QVERIFY2(QFile::remove(stock), "a second start leaves the stock file alone");
        // The data folder is single-level; deleted while running, the next log message brings it back.
        QVERIFY(second.getApplicationDataFolder("temp") == data + "/temp" && QDir(data + "/temp").exists());
        // Whatever the umask, the data folder and all in it are the user's alone; looser modes are tightened at start.
        const mode_t mask = ::umask(0);
        QDir(data).removeRecursively();
        qInstallMessageHandler(myMessageHandler);
        qCritical() << "critical" << 1;
        qDebug() << QString("debug line");
        qInstallMessageHandler(nullptr);
        const QString log = Log::fileName(QDate::currentDate());
        QCOMPARE(readFile(data + log), QByteArray("C: critical 1\nD: \"debug line\"\n"));
        QVERIFY(QDir(data).mkdir("temp") && writeFile(data + "/temp/old.wav", "x")); // left open by an earlier run
        Sniffer third;
        third.checkLocker();
        ::umask(mask);
        QStringList modes;
        for (const QString &name : QStringList{"", "/temp", "/temp/old.wav", "/sniffer.ini", "/locker", log})
            modes << QString::number(QFile::permissions(data + name), 16);
        QCOMPARE(modes.join(' '), QString("7700 7700 6600 6600 6600 6600"));
        third.removeLocker();
    }

    void damagedSettingsGetTheStockTables_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("no settings, no stock file") << QByteArray();
        QTest::newRow("random bytes") << QByteArray("\x00\xff[[error_titles\n=\n\x01~~\n", 19);
        QTest::newRow("data folder deleted while running, then Save") << QByteArray("deleted");
        QTest::newRow("data folder cannot be written") << QByteArray("unwritable");
        QTest::newRow("an earlier version's, fewer messages") << QByteArray("[error_messages_dl]\n0=\"2~Mine\"\n");
    }
    void damagedSettingsGetTheStockTables()
    {
        QFETCH(QByteArray, content);
        QDir(data).removeRecursively();
        QFile::remove(stock);
        if (content == "deleted") {
            settings();
            Sniffer earlier;
            earlier.start();
            QDir(data).removeRecursively();
            earlier.uiSettings->pathVideo->setText("/my/videos");
            QTest::mouseClick(earlier.uiSettings->btnSave, Qt::LeftButton);
        } else if (content == "unwritable") {
            // As root no permission stops a write; a file in the folder's place does.
            QVERIFY(QFile(data).open(QIODevice::WriteOnly));
        } else if (!content.isEmpty()) {
            QVERIFY(QDir().mkpath(data) && writeFile(ini, content));
        }
        {
            Sniffer sniffer;
            QCOMPARE(sniffer.tableText("error_titles", 1) + "|" + sniffer.tableText("error_titles", 2),
                     QString("Address not accepted|The video could not be read"));
            if (content.contains("Mine"))
                QVERIFY(sniffer.tableText("error_messages_dl", 0) == "2~Mine" &&
                        sniffer.tableText("error_messages_dl", 9).contains("formats of this video"));
        }
        // Written back when it can be, the user's own keys kept.
        QCOMPARE(stored("error_titles/2"), content == "unwritable" ? QString() : "The video could not be read");
        if (content == "deleted")
            QCOMPARE(stored("savepath_video"), QString("/my/videos"));
        QFile::remove(data);
    }

    // The lock runs in a child ("--child MODE"): every failure ends it with status 0. A termination signal ends the
    // child's download and its file.
    void childEndsQuietlyAndCleanly()
    {
        const QList<QPair<QString, QStringList>> modes{
            {"check,check", {"checkLocker : locker : ok", "instance exists"}},  // the second check finds its own file
            {"remove", {"BOX Vidorra 2 could not start cleanly", "error #6:"}}, // no lock to remove
            {"check,remove", {"removeLocker : instance", "steps done"}},
        };
        for (const auto &[mode, expected] : modes) {
            settings();
            QProcess child;
            child.start(QCoreApplication::applicationFilePath(), {"--child", mode});
            QVERIFY(child.waitForFinished(30000) && child.exitStatus() == QProcess::NormalExit &&
                    child.exitCode() == 0);
            const QString output = QString::fromLocal8Bit(child.readAllStandardOutput() + child.readAllStandardError());
            for (const QString &text : expected)
                QVERIFY2(output.contains(text), qPrintable(output));
            QCOMPARE(output.contains("steps done"), mode == "check,remove");
            QCOMPARE(QFile::exists(data + "/locker") ? readFile(data + "/locker") : "none",
                     QByteArray(mode == "check,check" ? "1" : "none"));
        }
    }

    // SIGTERM, SIGINT and SIGHUP end the program in every state (a window of its own on the X server when there is
    // one), with every child it started (the round's mark in their environment) and every partial file.
    void terminationSignalsEndTheProgramItsChildrenAndItsFiles()
    {
        settings();
        // Each state, and the child the program has running in it (none: its window alone).
        QList<QPair<QString, QString>> states{{"start", ""},    {"queries", "sleep"},     {"download", "sleep"},
                                              {"box", "sleep"}, {"conversion", "ffmpeg"}, {"transfer", "sleep"}};
        if (!qEnvironmentVariableIsEmpty("DISPLAY"))
            states << qMakePair(QString("recorder"), QString()) << qMakePair(QString("recording"), QString("x11grab"));
        for (int round = 0; round < 3 * states.size(); ++round) {
            const auto [state, running] = states.at(round % states.size());
            const int signal = QList<int>{SIGTERM, SIGINT, SIGHUP}.at((round + round / states.size()) % 3);
            QTemporaryDir dir;
            useScenario(dir.filePath("scenario"),
                        "[title]\nspawn: 600\nhang\n[formats]\nhang\n[download]\nspawn: 600\nhang\n");
            const auto children = [&] {
                QStringList found;
                for (const QString &pid : QDir("/proc").entryList(QDir::Dirs))
                    if (readFile("/proc/" + pid + "/environ").contains("VIDORRA_ROUND=" + dir.path().toUtf8() + '\0'))
                        found << readFile("/proc/" + pid + "/cmdline").replace('\0', ' ');
                return found.join(", ");
            };
            QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
            environment.insert("VIDORRA_ROUND", dir.path());
            if (environment.contains("DISPLAY"))
                environment.remove("QT_QPA_PLATFORM");
            QProcess child;
            child.setProcessEnvironment(environment);
            child.start(QCoreApplication::applicationFilePath(), {"--child", "signal", state, dir.path()});
            const QString where = state + " " + QString::number(signal);
            QVERIFY2(waitFor([&] { return child.canReadLine() && children().contains(running); }, 60000),
                     qPrintable(where));
            ::kill(pid_t(child.processId()), signal);
            QVERIFY2(child.waitForFinished(20000) && child.exitStatus() == QProcess::NormalExit &&
                         child.exitCode() == 0,
                     qPrintable(where));
            QVERIFY2(waitFor([&] { return children().isEmpty(); }, 20000), qPrintable(where + ": " + children()));
            QDir(dir.path()).remove("scenario.log");
            QCOMPARE(QDir(dir.path()).entryList(QDir::Files | QDir::System).join(" ") + where, "scenario" + where);
            QCOMPARE(QDir(data + "/temp").entryList(QDir::Files).join(" ") + where, where);
        }
    }

    // The window: its layers, progress, focus, messages and help menu.
    void windowLayersProgressFocusAndMessages()
    {
        // Table keys are numbers: "10" comes after "4". The other tables come from the stock.
        settings("last_update_v=2023.03.04\n[help]\n1=Just a tip\n2=About\n3=Broken\n4=Not for the menu\n10=Ten\n"
                 "[help_actions]\n2=showAboutDialog\n3=slot:noSuchSlot()\n4=deleteLater\n");
        Sniffer sniffer;
        sniffer.start();
        QCOMPARE(sniffer.size(), QSize(528, 60)); // started on the main page
        const QList<QPair<Sniffer::appLayer, int>> heights{
            {Sniffer::LayerMain, 60},        {Sniffer::LayerInsertURL, 176}, {Sniffer::LayerSettings, 222},
            {Sniffer::LayerOldSniffer, 230}, {Sniffer::LayerProgress, 120},  {Sniffer::LayerUpdate, 130}};
        for (const auto &[layer, height] : heights) {
            sniffer.showLayer(layer);
            QCOMPARE(sniffer.height(), height);
            QCOMPARE(sniffer.ui->widgetProgress->isVisible(), layer == Sniffer::LayerProgress);
            QCOMPARE(sniffer.uiNavigation->stackedWidget->currentIndex(), int(layer != Sniffer::LayerMain));
        }
        // Options before title and formats: nothing changes, but the step is kept, so Back goes to the address page.
        sniffer.showLayer(Sniffer::LayerMain);
        sniffer.showLayer(Sniffer::LayerOptions);
        QVERIFY(sniffer.height() == 60 && !sniffer.ui->widgetOptions->isVisible());
        sniffer.showPreviousPage();
        QVERIFY(sniffer.layerHistory == QList<Sniffer::appLayer>{Sniffer::LayerInsertURL} && sniffer.height() == 176);
        // Both known, a 100-pixel list: 60 + 270 + 100 - 75; a length of "0:00" stays hidden.
        sniffer.downloader->options->steps = {Downloader::stepFormats, Downloader::stepTitle};
        sniffer.uiOptions->listFormats->addItems({"a", "b", "c"});
        sniffer.uiOptions->listFormats->setFixedHeight(100);
        sniffer.uiOptions->lblDLLength->setText("0:00");
        sniffer.showLayer(Sniffer::LayerOptions);
        QCOMPARE(sniffer.height(), 355);
        QVERIFY(sniffer.uiOptions->inputTitle->isHidden() && sniffer.uiOptions->lblDLLength->isHidden());
        // Recording mode: dark, title, length and list hidden.
        sniffer.recordingMode = sniffer.fromRecorder = true;
        sniffer.showLayer(Sniffer::LayerOptions);
        QCOMPARE(sniffer.height(), 165);
        QVERIFY(sniffer.uiOptions->inputTitle->text() == "Screen_Capture_1" && !sniffer.styleSheet().isEmpty());
        sniffer.showPreviousPage(); // the buttons serve addresses again
        QVERIFY(sniffer.height() == 60 && !sniffer.recordingMode && !sniffer.fromRecorder);
        // Back is one step, never a walk through the history.
        sniffer.showLayer(Sniffer::LayerInsertURL);
        sniffer.showLayer(Sniffer::LayerSettings);
        QTest::mouseClick(sniffer.uiNavigation->btnBack, Qt::LeftButton);
        QCOMPARE(sniffer.height(), 60);
        QTest::mouseClick(sniffer.uiNavigation->btnOptions, Qt::LeftButton);
        QCOMPARE(sniffer.height(), 222);
        // The browser whose cookies the launcher takes: "none" is an empty setting, a typed profile is kept.
        for (const char *browser : {"chrome:Profile 1", "none"}) {
            sniffer.uiSettings->cookiesBrowser->setCurrentText(browser);
            QTest::mouseClick(sniffer.uiSettings->btnSave, Qt::LeftButton);
            QCOMPARE(stored("cookies_from_browser"), QString(browser).remove("none"));
        }
        // The progress page: the bar creeps, the dots swing, Cancel returns to the start.
        sniffer.progressBarStart(100, false);
        QVERIFY(sniffer.height() == 60 && !sniffer.dotsTimer); // nothing without a caption
        // A figure shows only while the bar holds the download's own percentage.
        sniffer.progressBarStart();
        QVERIFY(sniffer.progressBar->isTextVisible());
        sniffer.progressBarStart(10);
        QVERIFY(!sniffer.progressBar->isTextVisible() && sniffer.uiProgress->lblDots->isHidden());
        QCOMPARE(sniffer.height(), 120);
        QVERIFY(waitFor([&] { return sniffer.progressBar->value() >= 5; }, 5000));
        sniffer.showLayer(Sniffer::LayerMain); // leaving the page stops the creeping
        QVERIFY(!sniffer.progressTimer->isActive());
        sniffer.progressBarStart(20, true); // converting: the bar full, the dots swing
        QVERIFY(sniffer.uiProgress->lblDots->isVisible() && !sniffer.progressBar->isTextVisible() &&
                sniffer.progressBar->value() == 100);
        QVERIFY(waitFor([&] { return sniffer.uiProgress->lblDots->text() == "....."; }, 5000));
        sniffer.progressBarStart(10);
        QTest::mouseClick(sniffer.uiProgress->btnCloseProgress, Qt::LeftButton);
        QVERIFY(sniffer.progressBar->value() == sniffer.progressBar->maximum() && !sniffer.progressTimer->isActive() &&
                sniffer.height() == 60);
        sniffer.dotsTimer->stop();
        QLineEdit *url = sniffer.uiInsertURL->inputURL;
        const QString withHint = url->styleSheet();
        QVERIFY(withHint.endsWith("padding: 0 8px;background-image: url(:/bgURL)"));
        // The hint picture shows while the field is empty, focus or not.
        QTest::mouseClick(sniffer.uiNavigation->btnDownloaderOS, Qt::LeftButton);
        sniffer.focusChanged(nullptr, url);
        QCOMPARE(url->styleSheet(), withHint);
        QTest::keyClicks(url, "h");
        QVERIFY(url->styleSheet().endsWith("padding: 0 8px"));
        QTest::keyClick(url, Qt::Key_Backspace);
        QCOMPARE(url->styleSheet(), withHint);
        // The typed title is taken when leaving its field, except straight into the address field.
        sniffer.uiOptions->inputTitle->setText("My own title");
        sniffer.focusChanged(sniffer.uiOptions->inputTitle, url);
        QCOMPARE(sniffer.uiOptions->lblTitle->text(), QString("title"));
        sniffer.focusChanged(sniffer.uiOptions->inputTitle, sniffer.uiOptions->selectPath);
        QCOMPARE(sniffer.uiOptions->lblTitle->text(), QString("My own title"));
        QTest::keyClick(&sniffer, Qt::Key_Escape);
        QVERIFY2(sniffer.isVisible(), "Escape closed the window");
        // A warning shows no details.
        closeNextMessage(&boxTitle, &boxText);
        sniffer.showWarningMessage(static_cast<Sniffer::appFlag>(1));
        QVERIFY(boxTitle == "Please note" && !boxText.contains("error #"));
        // The dark recording look is dropped before the box shows.
        sniffer.setStyleSheet("background-color:#1d1d1e;");
        closeNextMessage(&boxTitle, &boxText);
        sniffer.showErrorMessage(static_cast<Sniffer::appFlag>(4));
        QVERIFY(sniffer.styleSheet().isEmpty() && boxTitle == "Vidorra 2 could not start cleanly");
        QVERIFY(sniffer.windowTitle().contains("2.0.0.327") && sniffer.windowTitle().contains("2023.03.04"));
        const QList<QAction *> actions = sniffer.helpPopup->actions();
        QCOMPARE(actions.size(), 5);
        QCOMPARE(actions.last()->text() + "|" + sniffer.tableText("help", 10), QString("Ten|Ten"));
        // The menu opens under its button, right edges aligned.
        QTest::mouseClick(sniffer.uiNavigation->btnHelp, Qt::LeftButton);
        QVERIFY(QTest::qWaitForWindowExposed(sniffer.helpPopup));
        const QRect button(sniffer.uiNavigation->btnHelp->mapToGlobal(QPoint()), sniffer.uiNavigation->btnHelp->size());
        QCOMPARE(sniffer.helpPopup->geometry().topRight(), button.bottomRight() + QPoint(0, 1));
        sniffer.helpPopup->close();
        closeNextMessage(&boxTitle, &boxText);
        actions.at(0)->trigger();
        QCOMPARE(boxTitle + ": " + boxText, QString("Help: Just a tip"));
        actions.at(1)->trigger();
        QVERIFY(sniffer.aboutDialog->findChild<QLabel *>("lblVersion")->text().contains("2.0.0.327"));
        QTest::mouseClick(sniffer.aboutDialog->findChild<QPushButton *>("btnClose"), Qt::LeftButton);
        QVERIFY(waitFor([&] { return sniffer.aboutDialog.isNull(); }, 3000));
        // Unknown slots, and slots that are not the menu's ("deleteLater"), show the caption.
        for (int i : {2, 3}) {
            closeNextMessage(&boxTitle, &boxText);
            actions.at(i)->trigger();
            QCOMPARE(boxText, actions.at(i)->text());
        }
        QVERIFY(sniffer.isVisible());
    }
};

// Child modes: "signal STATE FOLDER", the program brought to a state (a line once it is on its way there); else lock
// steps (a failure exits with 0).
static int runChild(const QString &mode, const QString &state, const QString &folder)
{
    setvbuf(stdout, nullptr, _IONBF, 0);
    if (mode == "signal")
        return Sniffer::runProgram([state, folder](Sniffer &sniffer) {
            QUrl address("https://www.youtube.com/watch?v=BaW_jenozKc");
            sniffer.downloader->setURL(&address);
            if (state == "queries") { // typed, and Return pressed in the address field
                sniffer.uiNavigation->btnDownloaderYT->click();
                sniffer.activateWindow();
                sniffer.uiInsertURL->inputURL->setFocus();
                QTest::keyClicks(sniffer.uiInsertURL->inputURL, address.toString());
                QTest::keyClick(sniffer.uiInsertURL->inputURL, Qt::Key_Return);
            } else if (state == "download" || state == "box") {
                sniffer.progressBarStart();
                sniffer.downloader->requestFile(22, folder + "/clip.mp4");
                if (state == "box")
                    QTimer::singleShot(0, &sniffer,
                                       [&] { sniffer.showPlainMessage(QMessageBox::Warning, "Box", "A"); });
            } else if (state == "conversion") { // ffmpeg waits for a writer of its input
                ::mkfifo(QFile::encodeName(folder + "/clip.mp4"), 0600);
                sniffer.downloader->formatConverting(folder + "/clip.mp4", folder + "/clip.mp3",
                                                     Downloader::fromAudioExtraction);
            } else if (state == "transfer") {
                sniffer.sniffedDownloads << new SniffedDownload("127.0.0.1:9/clip.mp4", folder + "/list.mp4", false);
                sniffer.sniffedDownloads.last()->start();
            } else if (state.startsWith("record")) {
                sniffer.runRecorderAV();
                if (state == "recording")
                    sniffer.recorder->clickButtonStart();
            }
            printf("%s\n", qPrintable(state));
        });
    Sniffer sniffer;
    answerNextModal([](QWidget *w) {
        auto *box = qobject_cast<QMessageBox *>(w);
        printf("BOX %s\n%s\n", qPrintable(box->windowTitle()), qPrintable(box->text()));
        w->close();
    });
    for (const QString &step : mode.split(','))
        step == "check" ? sniffer.checkLocker() : sniffer.removeLocker();
    printf("steps done\n");
    return 0;
}

int main(int argc, char **argv)
{
    const bool child = argc > 2 && QByteArray(argv[1]) == "--child";
    std::unique_ptr<TestHome> home(child ? nullptr : new TestHome);
    QApplication app(argc, argv);
    Q_INIT_RESOURCE(vidorra);
    if (child) {
        qInstallMessageHandler(myMessageHandler);
        return runChild(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argc > 3 ? argv[3] : ""),
                        QString::fromLocal8Bit(argc > 4 ? argv[4] : ""));
    }
    watchModals();
    ShellTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_shell.moc"
