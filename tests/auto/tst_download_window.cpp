#include <QtTest>

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QStandardPaths>

#include <memory>

#include "Sniffer/DownloadRules.h"
#include "Sniffer/Sniffer.h"
#include "TestSupport.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_Options.h"
#include "ui_Progress.h"
#include "ui_Settings.h"
#include "ui_Sniffer.h"

// The download workflow of the real window (offscreen), driven through its
// widgets, with the scripted stand-in as the downloader tool and the real
// ffmpeg for the audio extraction.
class DownloadWindowTest : public QObject
{
    Q_OBJECT

    QTemporaryDir work;
    std::unique_ptr<Sniffer> sniffer;
    QString lastBoxTitle, lastBoxText;
    int scenarioCount = 0;

    QString dataFolder() const
    {
        return qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2";
    }
    QString clip() const
    {
        return work.filePath("clip.mp4");
    }
    QString standard(QStandardPaths::StandardLocation where) const
    {
        return QStandardPaths::writableLocation(where);
    }

    // A fresh scenario for the stand-in; every call of the tool is logged
    // beside it.
    QString useScenario(const QString &text)
    {
        const QString path = work.filePath(QString("scenario-%1.txt").arg(++scenarioCount));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
            return QString();
        file.write(text.toUtf8());
        qputenv("VIDORRA_FAKE_SCRIPT", path.toLocal8Bit());
        return path + ".log";
    }

    // Arguments of every logged call of one kind.
    static QList<QStringList> calls(const QString &log, const QString &kind)
    {
        QList<QStringList> result;
        QFile file(log);
        if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
            return result;
        for (const QByteArray &line : file.readAll().split('\n')) {
            const QList<QByteArray> parts = line.split('\t');
            if (parts.size() != 2 || parts[0] != kind.toUtf8())
                continue;
            QStringList args;
            for (const QJsonValue &v : QJsonDocument::fromJson(parts[1]).array())
                args << v.toString();
            result << args;
        }
        return result;
    }

    void closeNextBox()
    {
        lastBoxTitle.clear();
        lastBoxText.clear();
        answerNextModal([this](QWidget *w) {
            if (auto *box = qobject_cast<QMessageBox *>(w)) {
                lastBoxTitle = box->windowTitle();
                lastBoxText = box->text();
            }
            w->close();
        });
    }

    // Types the name into the save dialog, picks the filter and presses Save.
    void answerSaveDialog(const QString &path, const QString &filter = QString(), std::function<void()> afterSave = {})
    {
        answerNextModal([path, filter, afterSave](QWidget *w) {
            auto *dialog = qobject_cast<QFileDialog *>(w);
            if (!dialog) {
                w->close();
                return;
            }
            if (!filter.isEmpty())
                dialog->selectNameFilter(filter);
            auto *name = dialog->findChild<QLineEdit *>("fileNameEdit");
            name->clear();
            QTest::keyClicks(name, path);
            auto *buttons = dialog->findChild<QDialogButtonBox *>("buttonBox");
            QTest::mouseClick(buttons->button(QDialogButtonBox::Save), Qt::LeftButton);
            if (afterSave)
                afterSave();
        });
    }

    void enterAddress(QPushButton *downloader, const QString &address)
    {
        QTest::mouseClick(downloader, Qt::LeftButton);
        QLineEdit *field = sniffer->uiInsertURL->inputURL;
        QVERIFY(field->isVisible());
        QVERIFY(field->text().isEmpty());
        QTest::keyClicks(field, address);
        QTest::keyClick(field, Qt::Key_Return);
    }

    bool onPage(QWidget *page) const
    {
        return page->isVisible();
    }

    // Fills the Options page for the stand-in's classic listing.
    void openOptions()
    {
        enterAddress(sniffer->uiNavigation->btnDownloaderYT, "watch this https://youtu.be/BaW_jenozKc?t=5");
        QVERIFY(waitFor([this] { return onPage(sniffer->ui->widgetOptions); }));
    }

    void clickRow(QListWidget *list, int row)
    {
        const QRect rect = list->visualItemRect(list->item(row));
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, rect.center());
        QCOMPARE(list->currentRow(), row);
    }

    static QString probeStreams(const QString &file)
    {
        QProcess probe;
        probe.start("ffprobe", {"-v", "error", "-show_entries", "stream=codec_type", "-of", "csv=p=0", file});
        probe.waitForFinished(30000);
        return QString::fromUtf8(probe.readAllStandardOutput()).trimmed();
    }

private slots:
    void initTestCase()
    {
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);
        QVERIFY(work.isValid());
        QVERIFY(makeClip(clip(), 1.0, true));
        QVERIFY(QFileInfo(toolFolder() + "/run").isExecutable());
    }

    void init()
    {
        QDir(dataFolder()).removeRecursively();
        QVERIFY(QDir().mkpath(dataFolder()));
        QFile ini(dataFolder() + "/sniffer.ini");
        QVERIFY(ini.open(QIODevice::WriteOnly | QIODevice::Text));
        ini.write(QString("[General]\nlast_update=%1\n"
                          "[error_titles]\n1=\"Address not accepted\"\n2=\"Video not read\"\n"
                          "[error_messages]\n1=\"1~Not a video page address.\"\n"
                          "2=\"1~Not an address of the video site.\"\n3=\"1~Address unusable.\"\n"
                          "[error_messages_dl]\n3=\"2~Title and length could not be read.\"\n"
                          "[yt_urls]\n1=www.youtube.com\n2=youtube.com\n3=youtu.be\n"
                          "[os_urls]\n1=127.0.0.1\n2=vimeo.com\n")
                      .arg(QDate::currentDate().dayOfYear())
                      .toUtf8());
        ini.close();
        useScenario(QString());
        sniffer.reset(new Sniffer(nullptr));
        sniffer->start();
        QVERIFY(QTest::qWaitForWindowExposed(sniffer.get()));
    }

    void cleanup()
    {
        sniffer->downloader->stop();
        sniffer.reset();
    }

    void videoDownloadFromAddressToFile()
    {
        const QString log = useScenario("[download]\npart: 4096\n"
                                        "out-file: recorded/progress-start.txt\n"
                                        "out-file: recorded/progress-middle.txt\n"
                                        "out-file: recorded/progress-end.txt\n"
                                        "media: " +
                                        clip() + "\n");
        openOptions();
        QCOMPARE(calls(log, "title").value(0).last(), QString("https://www.youtube.com/watch?v=BaW_jenozKc"));
        QCOMPARE(sniffer->uiOptions->lblTitle->text(), QString("Stand in Video"));
        QCOMPARE(sniffer->uiOptions->inputTitle->text(), QString("Stand in Video"));
        QCOMPARE(sniffer->uiOptions->lblDLLength->text(), QString("0:42"));
        QVERIFY(sniffer->uiOptions->lblDLLength->isVisible());

        // Newest rows on top: the list shows the format table in reverse.
        const auto &formats = sniffer->downloader->options->formats;
        QStringList expected;
        for (auto it = formats.constBegin(); it != formats.constEnd(); ++it)
            expected.prepend(DownloadRules::formatRowText(it.value()));
        QListWidget *list = sniffer->uiOptions->listFormats;
        QVERIFY(list->isVisible());
        QStringList shown;
        for (int row = 0; row < list->count(); ++row)
            shown << list->item(row)->text();
        QCOMPARE(shown, expected);
        QCOMPARE(list->currentRow(), 0);
        QCOMPARE(list->maximumHeight(), 27 * list->count() + 10);
        const QList<QListWidgetItem *> best = list->findItems("( BEST )", Qt::MatchContains);
        QCOMPARE(best.size(), 1);
        QCOMPARE(best.first()->text(), QString("1280x720\tAAC 192 KBps\t( BEST )"));
        QVERIFY(sniffer->uiOptions->btnDownloadVideo->isVisible());

        clickRow(list, list->row(best.first()));
        const QString target = work.filePath("out/My Clip.mp4");
        QVERIFY(QDir().mkpath(work.filePath("out")));
        answerSaveDialog(target);
        QTest::mouseClick(sniffer->uiOptions->btnDownloadVideo, Qt::LeftButton);
        QCOMPARE(sniffer->outputExtension, QString("mp4"));
        QVERIFY(onPage(sniffer->ui->widgetProgress));

        closeNextBox();
        QVERIFY(waitFor([this] { return !lastBoxText.isEmpty(); }));
        QCOMPARE(lastBoxTitle, QString("Processing state:"));
        QCOMPARE(lastBoxText, QString("Processing is completed"));
        QVERIFY(waitFor([this] { return onPage(sniffer->ui->widgetInsertURL); }));
        QCOMPARE(sniffer->progressBar->value(), sniffer->progressBar->maximum());

        const QStringList download = calls(log, "download").value(0);
        QCOMPARE(download,
                 (QStringList{"https://www.youtube.com/watch?v=BaW_jenozKc", "-o", target, "--format", "22"}));
        QVERIFY(QFile::exists(target));
        QVERIFY(!QFile::exists(target + ".part"));
        QCOMPARE(probeStreams(target), QString("video\naudio"));
    }

    void audioDownloadKeepsOnlyTheMp3()
    {
        useScenario("[download]\npart: 4096\nout-file: recorded/progress-middle.txt\nmedia: " + clip() + "\n");
        openOptions();
        // The default audio folder of the Settings page is where the dialog
        // opens, so a bare name lands there.
        const QString folder = work.filePath("audio");
        QVERIFY(QDir().mkpath(folder));
        sniffer->uiSettings->pathAudio->setText(folder);
        const QString base = folder + "/Tune";
        QString openedIn, preselected;
        answerNextModal([&](QWidget *w) {
            auto *dialog = qobject_cast<QFileDialog *>(w);
            openedIn = dialog->directory().absolutePath();
            preselected = dialog->selectedNameFilter();
            auto *name = dialog->findChild<QLineEdit *>("fileNameEdit");
            name->clear();
            QTest::keyClicks(name, "Tune");
            QTest::keyClick(name, Qt::Key_Return);
        });
        QTest::mouseClick(sniffer->uiOptions->btnDownloadAudio, Qt::LeftButton);
        QCOMPARE(openedIn, folder);
        QCOMPARE(preselected, QString("MP3 (*.mp3)"));
        QCOMPARE(sniffer->outputExtension, QString("mp3"));
        QCOMPARE(sniffer->uiOptions->selectPath->currentText(), folder);

        closeNextBox();
        QVERIFY(waitFor([this] { return lastBoxText == "Processing is completed"; }, 60000));
        QVERIFY(waitFor([this] { return onPage(sniffer->ui->widgetInsertURL); }));
        QCOMPARE(probeStreams(base + ".mp3"), QString("audio"));
        const QStringList left = QDir(work.filePath("audio")).entryList(QDir::Files);
        QCOMPARE(left, QStringList{"Tune.mp3"});
    }

    void singleAudioFormatOffersOnlyAudio()
    {
        useScenario("[formats]\nout: [generic] Extracting\\n0 mp3 audio only (best)\n");
        enterAddress(sniffer->uiNavigation->btnDownloaderOS, "http://127.0.0.1:9/song.mp3");
        QVERIFY(waitFor([this] { return onPage(sniffer->ui->widgetOptions); }));
        QCOMPARE(sniffer->uiOptions->listFormats->count(), 0);
        QVERIFY(sniffer->uiOptions->listFormats->isHidden());
        QVERIFY(!sniffer->uiOptions->btnDownloadVideo->isVisible());
        QVERIFY(sniffer->uiOptions->btnDownloadAudio->isVisible());

        // The next address with a real list brings the video button back.
        useScenario(QString());
        QTest::mouseClick(sniffer->uiNavigation->btnBack, Qt::LeftButton);
        QVERIFY(onPage(sniffer->ui->widgetInsertURL));
        QCOMPARE(sniffer->uiInsertURL->inputURL->text(), QString("http://127.0.0.1:9/song.mp3"));
        QTest::keyClick(sniffer->uiInsertURL->inputURL, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(sniffer->uiInsertURL->inputURL, "http://127.0.0.1:9/watch.html");
        QCOMPARE(sniffer->uiInsertURL->inputURL->text(), QString("http://127.0.0.1:9/watch.html"));
        QTest::mouseClick(sniffer->uiInsertURL->btnProcessURL, Qt::LeftButton);
        QVERIFY(waitFor([this] { return onPage(sniffer->ui->widgetOptions); }));
        QVERIFY(sniffer->uiOptions->btnDownloadVideo->isVisible());
        QVERIFY(sniffer->uiOptions->listFormats->count() > 1);
    }

    void unknownHostForTheVideoSite()
    {
        closeNextBox();
        enterAddress(sniffer->uiNavigation->btnDownloaderYT, "https://vimeo.com/12345");
        QVERIFY(waitFor([this] { return !lastBoxText.isEmpty(); }));
        QCOMPARE(lastBoxTitle, QString("Address not accepted"));
        QVERIFY(lastBoxText.startsWith("Not an address of the video site.<br><br><hr>"));
        QVERIFY(lastBoxText.contains("<b>error #2:"));
        QVERIFY(lastBoxText.contains("in 'processURL' : src/Sniffer/ProcessURL.cpp"));
        QVERIFY(onPage(sniffer->ui->widgetInsertURL));
        QCOMPARE(sniffer->uiInsertURL->inputURL->text(), QString("https://vimeo.com/12345"));

        // The other-sites button takes the same host; the tool is asked.
        const QString log = useScenario(QString());
        enterAddress(sniffer->uiNavigation->btnDownloaderOS, "https://vimeo.com/12345");
        QVERIFY(waitFor([this] { return onPage(sniffer->ui->widgetOptions); }));
        QCOMPARE(calls(log, "formats").value(0).last(), QString("https://vimeo.com/12345"));
    }

    void failingTitleQueryReturnsToTheAddress()
    {
        useScenario("[title]\nexit: 1\n");
        closeNextBox();
        enterAddress(sniffer->uiNavigation->btnDownloaderYT, "https://www.youtube.com/watch?v=BaW_jenozKc");
        QVERIFY(waitFor([this] { return !lastBoxText.isEmpty(); }));
        QCOMPARE(lastBoxTitle, QString("Video not read"));
        QVERIFY(lastBoxText.startsWith("Title and length could not be read."));
        QVERIFY(lastBoxText.contains("[DL] in 'onDownloaderError' : src/Sniffer/DownloadFile.cpp"));
        QVERIFY(onPage(sniffer->ui->widgetInsertURL));
        // The format listing that still succeeds does not open the Options page.
        QTest::qWait(800);
        QVERIFY(!onPage(sniffer->ui->widgetOptions));
    }

    void cancelDuringDownloadRemovesThePart()
    {
        useScenario("[download]\npart: 4096\nout-file: recorded/progress-middle.txt\nhang\n");
        openOptions();
        const QString target = work.filePath("cancel/Clip");
        QVERIFY(QDir().mkpath(work.filePath("cancel")));
        answerSaveDialog(target);
        QTest::mouseClick(sniffer->uiOptions->btnDownloadVideo, Qt::LeftButton);
        const QString part = sniffer->outputVideoFile + ".part";
        QVERIFY(waitFor([&] { return QFile::exists(part) && sniffer->progressBar->value() == 45; }));

        QTest::mouseClick(sniffer->uiProgress->btnCloseProgress, Qt::LeftButton);
        QVERIFY(!QFile::exists(part));
        QVERIFY(onPage(sniffer->ui->widgetNavigation));
        QVERIFY(!onPage(sniffer->ui->widgetProgress));
        QVERIFY(!onPage(sniffer->ui->widgetInsertURL));
        QCOMPARE(sniffer->progressBar->value(), sniffer->progressBar->maximum());
    }

    void vanishedFolderIsToldAtOnce()
    {
        const QString log = useScenario(QString());
        openOptions();
        const QString folder = work.filePath("gone");
        QVERIFY(QDir().mkpath(folder));
        // The folder disappears between the dialog and the download.
        answerSaveDialog(folder + "/Clip", QString(), [this, folder] {
            QDir(folder).removeRecursively();
            closeNextBox();
        });
        QTest::mouseClick(sniffer->uiOptions->btnDownloadVideo, Qt::LeftButton);
        QCOMPARE(lastBoxTitle, QString("Processing error:"));
        QVERIFY(lastBoxText.startsWith("<b>File</b> <i>" + folder + "/Clip."));
        QVERIFY(lastBoxText.endsWith("</i><br><b>cannot be created</b>"));
        QVERIFY(onPage(sniffer->ui->widgetOptions));
        QVERIFY(calls(log, "download").isEmpty());
    }

    void sniffedListSaveAsCleansTheName()
    {
        const QString folder = work.filePath("sniffed");
        QVERIFY(QDir().mkpath(folder));
        sniffer->uiSettings->pathAudio->setText(folder);
        sniffer->snifferSaveMode = DownloadRules::KindAudio;
        QString title;
        answerNextModal([&title](QWidget *w) {
            auto *dialog = qobject_cast<QFileDialog *>(w);
            title = dialog->windowTitle();
            auto *name = dialog->findChild<QLineEdit *>("fileNameEdit");
            QCOMPARE(name->text(), QString("untitled"));
            name->clear();
            QTest::keyClicks(name, "My_Clip - 2.mp3");
            QTest::keyClick(name, Qt::Key_Return);
        });
        QCOMPARE(sniffer->GetSaveAsFullPath("mp3"), folder + "/My.Clip.2.mp3");
        QCOMPARE(title, QString("Save File As..."));

        answerNextModal([](QWidget *w) { qobject_cast<QDialog *>(w)->reject(); });
        QCOMPARE(sniffer->GetSaveAsFullPath("mp3"), QString());
    }

    void folderChooserOfTheOptionsPage()
    {
        sniffer->setSaveFilePath();
        QComboBox *folders = sniffer->uiOptions->selectPath;
        const int before = folders->count();
        answerNextModal([](QWidget *w) { qobject_cast<QDialog *>(w)->reject(); });
        sniffer->selectSavePath();
        QCOMPARE(folders->count(), before);

        answerNextModal([this](QWidget *w) {
            auto *dialog = qobject_cast<QFileDialog *>(w);
            QCOMPARE(dialog->windowTitle(), QString("Save to Directory"));
            dialog->setDirectory(work.path());
            auto *buttons = dialog->findChild<QDialogButtonBox *>("buttonBox");
            QTest::mouseClick(buttons->button(QDialogButtonBox::Open), Qt::LeftButton);
        });
        sniffer->selectSavePath();
        QCOMPARE(folders->count(), before + 1);
        QCOMPARE(folders->currentIndex(), 0);
        QCOMPARE(folders->currentText(), work.path());
    }

    void saveFoldersOfTheOptionsPage()
    {
        const QString desktop = standard(QStandardPaths::DesktopLocation);
        sniffer->setSaveFilePath();
        QComboBox *folders = sniffer->uiOptions->selectPath;
        QStringList listed;
        for (int i = 0; i < folders->count(); ++i)
            listed << folders->itemText(i);
        QCOMPARE(listed,
                 (QStringList{desktop, standard(QStandardPaths::DocumentsLocation),
                              standard(QStandardPaths::MusicLocation), standard(QStandardPaths::MoviesLocation)}));
        QCOMPARE(folders->currentIndex(), 0);

        sniffer->appSettings.ini->setValue("savepath_video", work.path());
        sniffer->setSaveFilePath();
        QCOMPARE(folders->count(), 5);
        QCOMPARE(folders->itemText(0), work.path());
        QCOMPARE(folders->itemText(4), desktop);
    }

    void settingsPageDefaultFolders()
    {
        QTest::mouseClick(sniffer->uiNavigation->btnOptions, Qt::LeftButton);
        QVERIFY(onPage(sniffer->ui->widgetSettings));
        QVERIFY(sniffer->uiSettings->pathVideo->text().isEmpty());

        QString caption;
        answerNextModal([&caption](QWidget *w) {
            caption = w->windowTitle();
            qobject_cast<QDialog *>(w)->reject();
        });
        QTest::mouseClick(sniffer->uiSettings->btnSelectVideoPath, Qt::LeftButton);
        QCOMPARE(caption, QString("Select default file path for save video"));
        QCOMPARE(sniffer->uiSettings->pathVideo->text(), standard(QStandardPaths::DesktopLocation));

        QLineEdit *audio = sniffer->uiSettings->pathAudio;
        QTest::keyClicks(audio, "  /no such/place ");
        QTest::mouseClick(sniffer->uiSettings->btnSave, Qt::LeftButton);
        QVERIFY(onPage(sniffer->ui->widgetNavigation));
        QVERIFY(!onPage(sniffer->ui->widgetSettings));
        QSettings stored(dataFolder() + "/sniffer.ini", QSettings::IniFormat);
        QCOMPARE(stored.value("savepath_audio").toString(), QString("  /no such/place "));
        QCOMPARE(stored.value("savepath_video").toString(), standard(QStandardPaths::DesktopLocation));
    }
};

VIDORRA_TEST_MAIN(DownloadWindowTest)
#include "tst_download_window.moc"
