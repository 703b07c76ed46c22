#include <QtTest>

#include <QAction>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QStackedWidget>
#include <QTimer>

#include <signal.h>

#include "Platform/Platform.h"
#include "Sniffer/Log.h"
#include "Sniffer/Sniffer.h"
#include "TestSupport.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_Options.h"
#include "ui_Progress.h"
#include "ui_Settings.h"
#include "ui_Sniffer.h"

// The application shell: settings and data folder, log, lock, layers,
// progress and messages of the real window (offscreen).
class ShellTest : public QObject
{
    Q_OBJECT

    QString stockFile() const { return toolFolder() + "/sniffer.ini"; }
    QString dataFolder() const { return qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2"; }
    QString documents() const { return qEnvironmentVariable("HOME") + "/Documents"; }

    QString lastBoxTitle, lastBoxText;
    void closeNextBox() { closeNextMessage(&lastBoxTitle, &lastBoxText); }
    // A fresh data folder holding a settings file made of `body`.
    void freshSettings(const QString &body)
    {
        QDir(dataFolder()).removeRecursively();
        QVERIFY(writeSettings(dataFolder(), body));
    }
    void stockSettings()
    {
        QDir(dataFolder()).removeRecursively();
        QDir().mkpath(dataFolder());
        QVERIFY(QFile::copy(VIDORRA_SOURCE_DIR "/deploy/sniffer.ini", dataFolder() + "/sniffer.ini"));
    }

private slots:
    void firstStartConsumesTheStockFileAndSecondStartTouchesNothing()
    {
        QDir(dataFolder()).removeRecursively();
        // A fresh account without a Documents folder still gets the save folders.
        QDir(documents()).removeRecursively();
        QVERIFY(QFile::copy(VIDORRA_SOURCE_DIR "/deploy/sniffer.ini", stockFile()));
        {
            Sniffer first;
            const QString ini = dataFolder() + "/sniffer.ini";
            QVERIFY(QFile::exists(ini));
            QVERIFY2(!QFile::exists(stockFile()), "the stock file is moved, not copied");
            QVERIFY(QDir(documents() + "/Vidorra 2/Video").exists());
            QVERIFY(QDir(documents() + "/Vidorra 2/Audio").exists());
            QSettings settings(ini, QSettings::IniFormat);
            QCOMPARE(settings.value("last_update").toString(),
                     QString::number(QDate::currentDate().dayOfYear() - 1));
            QCOMPARE(settings.value("savepath_video").toString(), documents() + "/Vidorra 2/Video");
            QCOMPARE(settings.value("savepath_audio").toString(), documents() + "/Vidorra 2/Audio");
            QCOMPARE(first.appSettings.tables.size(), 10);
            QVERIFY(first.tableText("error_messages_dl", 3).startsWith("2~"));
            // A text with commas comes back whole.
            QVERIFY(first.tableText("error_messages", 1).contains("address bar of your browser (it starts"));
        }

        // The user changes things; a stock file reappears beside the program.
        {
            QSettings settings(dataFolder() + "/sniffer.ini", QSettings::IniFormat);
            settings.setValue("last_update", "5");
            settings.setValue("savepath_video", "/somewhere/else");
        }
        QVERIFY(QFile::copy(VIDORRA_SOURCE_DIR "/deploy/sniffer.ini", stockFile()));
        {
            Sniffer second;
            QSettings settings(dataFolder() + "/sniffer.ini", QSettings::IniFormat);
            QCOMPARE(settings.value("last_update").toString(), QString("5"));
            QCOMPARE(settings.value("savepath_video").toString(), QString("/somewhere/else"));
            QVERIFY(QFile::exists(stockFile()));
        }
        QFile::remove(stockFile());
    }

    void damagedSettingsGetTheStockTables_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("no settings, no stock file") << QByteArray();
        QTest::newRow("random bytes") << QByteArray("\x00\xff[[error_titles\n=\n\x01~~\n", 19);
        QTest::newRow("data folder deleted while running, then Save") << QByteArray("deleted");
        QTest::newRow("data folder cannot be written") << QByteArray("unwritable");
    }
    void damagedSettingsGetTheStockTables()
    {
        QFETCH(QByteArray, content);
        QDir(dataFolder()).removeRecursively();
        QFile::remove(stockFile());
        const QString ini = dataFolder() + "/sniffer.ini";
        if (content == "deleted") {
            stockSettings();
            Sniffer earlier;
            earlier.start();
            QDir(dataFolder()).removeRecursively();
            qDebug() << "the log brings the folder back";
            earlier.uiSettings->pathVideo->setText("/my/videos");
            QTest::mouseClick(earlier.uiSettings->btnSave, Qt::LeftButton);
            QVERIFY(QFile::exists(ini));
        } else if (content == "unwritable") {
            // As root no permission stops a write; a file in the folder's place does.
            QVERIFY(QFile(dataFolder()).open(QIODevice::WriteOnly));
        } else if (!content.isEmpty()) {
            QDir().mkpath(dataFolder());
            QFile file(ini);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(content);
        }
        {
            Sniffer sniffer;
            sniffer.start();
            QCOMPARE(sniffer.width(), 528);
            QCOMPARE(sniffer.height(), 60);
            QCOMPARE(sniffer.tableText("error_titles", 1), QString("Address not accepted"));
            QCOMPARE(sniffer.appSettings.tables.value("os_urls").size(), 10);
            closeNextBox();
            sniffer.showErrorMessage(Downloader::errorTitle);
            QCOMPARE(lastBoxTitle, QString("The video could not be read"));
        }
        // Written back when it can be, the user's own keys kept.
        QSettings written(ini, QSettings::IniFormat);
        QCOMPARE(written.value("error_titles/2").toString(),
                 content == "unwritable" ? QString() : QString("The video could not be read"));
        if (content == "deleted")
            QCOMPARE(written.value("savepath_video").toString(), QString("/my/videos"));
        QFile::remove(dataFolder());
    }

    void tableKeysBecomeNumbers()
    {
        freshSettings("[help]\n1=one\n2=two\n10=ten\n[os_urls]\nx=not a number\n0=zero\n");
        Sniffer sniffer;
        const auto help = sniffer.appSettings.tables.value("help");
        QCOMPARE(help.size(), 3);
        QCOMPARE(help.value(1), QString("one"));
        QCOMPARE(help.value(10), QString("ten"));
        // "x" reads as 0 and shares the row with "0".
        QCOMPARE(sniffer.appSettings.tables.value("os_urls").size(), 1);
        QVERIFY(sniffer.appSettings.tables.contains("test_sniffer"));
        QCOMPARE(sniffer.tableText("nothing", 1), QString());
    }

    void dataFolderIsSingleLevelAndComesBackForTheLog()
    {
        QDir(dataFolder()).removeRecursively();
        Sniffer sniffer;
        QCOMPARE(sniffer.getApplicationDataFolder("temp"), dataFolder() + "/temp");
        QVERIFY(QDir(dataFolder() + "/temp").exists());
        QDir(dataFolder()).removeRecursively();
        QCOMPARE(sniffer.getApplicationDataFolder("a/b"), dataFolder() + "/a/b");
        QVERIFY2(!QDir(dataFolder() + "/a").exists(), "only one level is created");

        // Deleted while running: the next message recreates it.
        QDir(dataFolder()).removeRecursively();
        qInstallMessageHandler(myMessageHandler);
        qCritical() << "!!! ERROR: " << "src/Test" << 1 << "here" << ":" << QString("critical line");
        qDebug() << "src/Test" << 2 << "here" << ":" << QString("debug line");
        qInstallMessageHandler(nullptr);
        QFile log(dataFolder() + Log::fileName(QDate::currentDate()));
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QStringList lines = QString::fromUtf8(log.readAll()).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines.at(0), QString("C: !!! ERROR:  src/Test 1 here : \"critical line\""));
        QCOMPARE(lines.at(1), QString("D: src/Test 2 here : \"debug line\""));
    }

    // The lock runs in a child process (this program with "--child MODE"):
    // every failure ends that process, always with status 0.
    void lockEndsTheProcessQuietly_data()
    {
        QTest::addColumn<QString>("mode");
        QTest::addColumn<QString>("expected");
        QTest::addColumn<bool>("goesOn");
        QTest::newRow("second check finds its own file") << "lock-twice" << "instance exists" << false;
        QTest::newRow("removing a missing lock shows error 6")
            << "remove-missing" << "BOX Vidorra 2 could not start cleanly" << false;
        QTest::newRow("taking and releasing the lock") << "lock-then-remove" << "removeLocker : instance" << true;
    }
    void lockEndsTheProcessQuietly()
    {
        QFETCH(QString, mode);
        QFETCH(QString, expected);
        QFETCH(bool, goesOn);
        stockSettings();
        QProcess child;
        child.start(QCoreApplication::applicationFilePath(), {"--child", mode});
        QVERIFY(child.waitForFinished(30000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QCOMPARE(child.exitCode(), 0);
        const QString output = QString::fromLocal8Bit(child.readAllStandardOutput() + child.readAllStandardError());
        QVERIFY2(output.contains(expected), qPrintable(output));
        QCOMPARE(output.contains("not reached"), goesOn);
        if (mode == "lock-twice") {
            QVERIFY(output.contains("checkLocker : locker : ok"));
            QFile lock(dataFolder() + "/locker");
            QVERIFY(lock.open(QIODevice::ReadOnly));
            QCOMPARE(lock.readAll(), QByteArray("1"));
        }
        if (mode == "remove-missing")
            QVERIFY(output.contains("error #6:"));
        if (goesOn)
            QVERIFY(!QFile::exists(dataFolder() + "/locker"));
    }

    void terminationEndsTheDownloadAndItsFile()
    {
        stockSettings();
        QTemporaryDir dir;
        QFile scenario(dir.filePath("scenario"));
        QVERIFY(scenario.open(QIODevice::WriteOnly));
        scenario.write("[download]\npart: 4096\nhang\n");
        scenario.close();
        QProcess child;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("VIDORRA_FAKE_SCRIPT", scenario.fileName());
        child.setProcessEnvironment(environment);
        const QString output = dir.filePath("clip.mp4");
        child.start(QCoreApplication::applicationFilePath(), {"--child", "term", output});
        // The child's log echo comes first; its last line names the download's process.
        QByteArray said;
        QVERIFY(waitFor([&] { return (said += child.readAll()).contains("\nCHILD ") && QFile::exists(output + ".part"); }, 30000));
        const pid_t download = said.mid(said.indexOf("\nCHILD ") + 7).split('\n').first().toInt();
        ::kill(pid_t(child.processId()), SIGTERM);
        QVERIFY(child.waitForFinished(30000));
        QCOMPARE(child.exitStatus(), QProcess::NormalExit);
        QVERIFY2(::kill(download, 0) != 0, "the download outlived the program");
        QCOMPARE(QDir(dir.path()).entryList(QDir::Files), (QStringList{"scenario", "scenario.log"}));
    }

    void layersSetTheWindowHeight()
    {
        Sniffer sniffer;
        sniffer.start();
        const QList<QPair<Sniffer::appLayer, int>> heights{{Sniffer::LayerMain, 60},
                                                           {Sniffer::LayerInsertURL, 176},
                                                           {Sniffer::LayerSettings, 190},
                                                           {Sniffer::LayerOldSniffer, 230},
                                                           {Sniffer::LayerProgress, 120},
                                                           {Sniffer::LayerUpdate, 60}};
        for (const auto &pair : heights) {
            sniffer.showLayer(pair.first);
            QCOMPARE(sniffer.height(), pair.second);
            QCOMPARE(sniffer.ui->widgetProgress->isVisible(), pair.first == Sniffer::LayerProgress);
            QCOMPARE(sniffer.uiNavigation->stackedWidget->currentWidget(),
                     pair.first == Sniffer::LayerMain ? sniffer.uiNavigation->page_1
                                                      : sniffer.uiNavigation->page_2);
        }

        // Options before the title and formats are known: nothing changes,
        // but the step is remembered, so Back goes to the address page.
        sniffer.showLayer(Sniffer::LayerMain);
        sniffer.showLayer(Sniffer::LayerOptions);
        QCOMPARE(sniffer.height(), 60);
        QVERIFY(!sniffer.ui->widgetOptions->isVisible());
        sniffer.showPreviousPage();
        QCOMPARE(sniffer.layerHistory, QList<Sniffer::appLayer>{Sniffer::LayerInsertURL});
        QCOMPARE(sniffer.height(), 176);

        // With both known and a 100-pixel list: 60 + 270 + 100 - 75.
        sniffer.downloader->options->steps = {Downloader::stepFormats, Downloader::stepTitle};
        sniffer.uiOptions->listFormats->addItems({"a", "b", "c"});
        sniffer.uiOptions->listFormats->setFixedHeight(100);
        sniffer.showLayer(Sniffer::LayerOptions);
        QCOMPARE(sniffer.height(), 355);
        QVERIFY(sniffer.uiOptions->inputTitle->isHidden());
        // A length the site did not give stays hidden.
        sniffer.uiOptions->lblDLLength->setText("0:00");
        sniffer.showLayer(Sniffer::LayerOptions);
        QVERIFY(sniffer.uiOptions->lblDLLength->isHidden());

        // Recording mode: dark, title, length and list hidden.
        sniffer.recordingMode = true;
        sniffer.showLayer(Sniffer::LayerOptions);
        QCOMPARE(sniffer.height(), 165);
        QCOMPARE(sniffer.uiOptions->inputTitle->text(), QString("Screen_Capture_1"));
        QCOMPARE(sniffer.styleSheet(), QString("background-color:#1d1d1e;"));
        sniffer.showPreviousPage();
        QCOMPARE(sniffer.height(), 60);
        QVERIFY(!sniffer.recordingMode);

        // Back is one step, never a walk through the history.
        sniffer.showLayer(Sniffer::LayerInsertURL);
        sniffer.showLayer(Sniffer::LayerSettings);
        QTest::mouseClick(sniffer.uiNavigation->btnBack, Qt::LeftButton);
        QCOMPARE(sniffer.height(), 60);
        QTest::mouseClick(sniffer.uiNavigation->btnOptions, Qt::LeftButton);
        QCOMPARE(sniffer.height(), 190);
    }

    void progressCreepsAndCancelReturnsToTheStart()
    {
        Sniffer sniffer;
        sniffer.start();
        sniffer.progressBarStart(100, false);
        QCOMPARE(sniffer.height(), 60);
        QVERIFY(sniffer.dotsTimer == nullptr);

        // A figure shows only while the bar holds the download's own percentage.
        sniffer.progressBarStart();
        QVERIFY(sniffer.progressBar->isTextVisible());
        sniffer.progressBarStart(10);
        QVERIFY(!sniffer.progressBar->isTextVisible());
        QCOMPARE(sniffer.height(), 120);
        QVERIFY(sniffer.uiProgress->lblDots->isHidden());
        QVERIFY(sniffer.progressTimer->isActive());
        QVERIFY(waitFor([&] { return sniffer.progressBar->value() >= 5; }, 5000));

        sniffer.progressBar->setValue(97);
        sniffer.progressBarIteration();
        QVERIFY(sniffer.progressBar->value() <= 98);

        // Leaving the page stops the creeping timer.
        sniffer.showLayer(Sniffer::LayerMain);
        QVERIFY(!sniffer.progressTimer->isActive());

        sniffer.progressBarStart(20, true);
        QVERIFY(sniffer.uiProgress->lblDots->isVisible());
        QVERIFY(!sniffer.progressBar->isTextVisible());
        QCOMPARE(sniffer.progressBar->value(), 100);
        QVERIFY(waitFor([&] { return sniffer.uiProgress->lblDots->text() == "....."; }, 5000));

        sniffer.progressBarStart(10);
        QTest::mouseClick(sniffer.uiProgress->btnCloseProgress, Qt::LeftButton);
        QCOMPARE(sniffer.progressBar->value(), sniffer.progressBar->maximum());
        QVERIFY(!sniffer.progressTimer->isActive());
        QCOMPARE(sniffer.height(), 60);
        sniffer.dotsTimer->stop();
    }

    void messagesComeFromTheTables()
    {
        stockSettings();
        Sniffer sniffer;
        sniffer.start();

        sniffer.appSettings.errorDetails = QStringList{"src/Fiofostis/X", "28", "gotTitle", "a", "b", "c"};
        closeNextBox();
        sniffer.showErrorMessage(Downloader::errorTitle);
        QCOMPARE(lastBoxTitle, QString("The video could not be read"));
        QVERIFY(lastBoxText.startsWith("The title and length of this video could not be read."));
        QVERIFY(lastBoxText.contains("[DL] in 'gotTitle' : src/Fiofostis/X"));
        QVERIFY(lastBoxText.contains("<ul><li>a</li><li>b</li><li>c</li></ul>"));

        // A warning shows no details and leaves them alone.
        closeNextBox();
        sniffer.showWarningMessage(static_cast<Sniffer::appFlag>(1));
        QCOMPARE(lastBoxTitle, QString("Please note"));
        QVERIFY(!lastBoxText.contains("error #"));
        QCOMPARE(sniffer.appSettings.errorDetails.size(), 6);

        // The dark recording look is dropped before the box shows.
        sniffer.setStyleSheet("background-color:#1d1d1e;");
        closeNextBox();
        sniffer.showErrorMessage(static_cast<Sniffer::appFlag>(4));
        QVERIFY(sniffer.styleSheet().isEmpty());
        QCOMPARE(lastBoxTitle, QString("Vidorra 2 could not start cleanly"));
    }

    void focusAndClicks()
    {
        Sniffer sniffer;
        sniffer.start();
        QLineEdit *url = sniffer.uiInsertURL->inputURL;
        QLineEdit *title = sniffer.uiOptions->inputTitle;
        const QString withHint = url->styleSheet();
        QVERIFY(withHint.endsWith("background-image: url(:/bgURL)"));

        QVERIFY(withHint.contains("padding: 0 8px"));

        // The hint picture shows while the field is empty, focus or not.
        QTest::mouseClick(sniffer.uiNavigation->btnDownloaderOS, Qt::LeftButton);
        sniffer.focusChanged(nullptr, url);
        QCOMPARE(url->styleSheet(), withHint);
        QTest::keyClicks(url, "h");
        QVERIFY(url->styleSheet().endsWith("padding: 0 8px"));
        QTest::keyClick(url, Qt::Key_Backspace);
        QCOMPARE(url->styleSheet(), withHint);

        // The typed title is taken when leaving the field, except straight
        // into the address field.
        title->setText("My own title");
        sniffer.focusChanged(title, url);
        QCOMPARE(sniffer.uiOptions->lblTitle->text(), QString("title"));
        sniffer.focusChanged(title, sniffer.uiOptions->selectPath);
        QCOMPARE(sniffer.uiOptions->lblTitle->text(), QString("My own title"));

        // Escape does not close the window (and the program with it).
        QTest::keyClick(&sniffer, Qt::Key_Escape);
        QVERIFY(sniffer.isVisible());

        QSignalSpy menu(&sniffer, &QWidget::customContextMenuRequested);
        QTest::mouseClick(&sniffer, Qt::LeftButton, {}, QPoint(10, 12));
        QCOMPARE(menu.count(), 0);
        QTest::mouseClick(&sniffer, Qt::RightButton, {}, QPoint(10, 12));
        QCOMPARE(menu.count(), 1);
        QCOMPARE(menu.at(0).at(0).toPoint(), QPoint(10, 12));
    }

    void helpMenuAndAbout()
    {
        freshSettings("last_update_v=2023.03.04\n[help]\n1=Just a tip\n2=About\n3=Broken\n4=Not for the menu\n"
                      "[help_actions]\n2=showAboutDialog\n3=slot:noSuchSlot()\n4=deleteLater\n");
        Sniffer sniffer;
        sniffer.start();
        QVERIFY(sniffer.windowTitle().contains("2.0.0.327"));
        QVERIFY(sniffer.windowTitle().contains("2023.03.04"));
        const QList<QAction *> actions = sniffer.helpPopup->actions();
        QCOMPARE(actions.size(), 4);

        // The menu opens under its button, right edges aligned.
        QTest::mouseClick(sniffer.uiNavigation->btnHelp, Qt::LeftButton);
        QVERIFY(QTest::qWaitForWindowExposed(sniffer.helpPopup));
        const QRect button(sniffer.uiNavigation->btnHelp->mapToGlobal(QPoint()), sniffer.uiNavigation->btnHelp->size());
        QCOMPARE(sniffer.helpPopup->geometry().right(), button.right());
        QCOMPARE(sniffer.helpPopup->geometry().top(), button.bottom() + 1);
        sniffer.helpPopup->close();
        QCOMPARE(actions.at(0)->text(), QString("Just a tip"));

        closeNextBox();
        actions.at(0)->trigger();
        QCOMPARE(lastBoxTitle, QString("Help"));
        QCOMPARE(lastBoxText, QString("Just a tip"));

        actions.at(1)->trigger();
        QVERIFY(sniffer.aboutDialog);
        QCOMPARE(sniffer.aboutDialog->windowTitle(), QString("About Vidorra 2"));
        QVERIFY(sniffer.aboutDialog->findChild<QLabel *>("lblVersion")->text().contains("2.0.0.327"));
        auto *close = sniffer.aboutDialog->findChild<QPushButton *>("btnClose");
        QTest::mouseClick(close, Qt::LeftButton);
        QVERIFY(waitFor([&] { return sniffer.aboutDialog.isNull(); }, 3000));

        // Unknown slots, and slots that are not the menu's, show the caption.
        for (int i : {2, 3}) {
            closeNextBox();
            actions.at(i)->trigger();
            QCOMPARE(lastBoxText, actions.at(i)->text());
        }
        QVERIFY(sniffer.isVisible());
    }
};

// Child modes: the lock's must end the process by itself with status 0;
// "term" runs a download until a termination signal ends the program.
static int runChild(const QString &mode, const QString &argument)
{
    Sniffer sniffer;
    if (mode == "term") {
        Platform::quitOnTerminationSignals();
        sniffer.start();
        QUrl address("https://www.youtube.com/watch?v=BaW_jenozKc");
        sniffer.downloader->setURL(&address);
        sniffer.downloader->requestFile(22, argument);
        printf("CHILD %lld\n", sniffer.downloader->processFile->processId());
        fflush(stdout);
        return QCoreApplication::exec();
    }
    if (mode == "lock-twice") {
        sniffer.checkLocker();
        sniffer.checkLocker();
    } else if (mode == "remove-missing") {
        answerNextModal([](QWidget *w) {
            if (auto *box = qobject_cast<QMessageBox *>(w))
                printf("BOX %s\n%s\n", qPrintable(box->windowTitle()), qPrintable(box->text()));
            fflush(stdout);
            w->close();
        });
        sniffer.removeLocker();
    } else if (mode == "lock-then-remove") {
        sniffer.checkLocker();
        sniffer.removeLocker();
    }
    printf("not reached\n");
    return 0;
}

int main(int argc, char **argv)
{
    const bool child = argc > 2 && QByteArray(argv[1]) == "--child";
    std::unique_ptr<TestHome> home;
    if (!child)
        home = std::make_unique<TestHome>();
    QApplication app(argc, argv);
    Q_INIT_RESOURCE(vidorra);
    if (child) {
        qInstallMessageHandler(myMessageHandler);
        return runChild(QString::fromLocal8Bit(argv[2]), QString::fromLocal8Bit(argc > 3 ? argv[3] : ""));
    }
    watchModals();
    ShellTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_shell.moc"
