#include <QtTest>

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
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

    static bool ffmpeg(const QStringList &args)
    {
        QProcess run;
        run.start("ffmpeg", QStringList{"-nostdin", "-hide_banner", "-loglevel", "error", "-y"} + args);
        return run.waitForFinished(60000) && run.exitCode() == 0;
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
        QVERIFY(media.isValid() && out.isValid());
        QProcess make;
        make.start("/bin/sh", {VIDORRA_FIXTURES_DIR "/make_media.sh", media.path()});
        QVERIFY(make.waitForFinished(120000) && make.exitCode() == 0);

        // A page with three sources, so the Options page has a list to show.
        QVERIFY(ffmpeg(
            {"-i", media.filePath("clip.mp4"), "-vf", "scale=160:120", "-c:a", "copy", media.filePath("small.mp4")}));
        QVERIFY(ffmpeg({"-i", media.filePath("clip.mp4"), "-t", "2", "-vf", "scale=160:120", "-c:v", "libvpx", "-c:a",
                        "libvorbis", media.filePath("small.webm")}));
        QFile page(media.filePath("three.html"));
        QVERIFY(page.open(QIODevice::WriteOnly));
        page.write("<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\">"
                   "<title>Local Test Clip - Three Sizes</title></head>\n<body><video controls>\n"
                   "<source src=\"clip.mp4\" type=\"video/mp4\">\n"
                   "<source src=\"small.mp4\" type=\"video/mp4\">\n"
                   "<source src=\"small.webm\" type=\"video/webm\">\n</video></body></html>\n");
        page.close();

        server.start("/usr/bin/python3", {VIDORRA_FIXTURES_DIR "/media_server.py", media.path(), "0"});
        QVERIFY(server.waitForStarted(10000));
        QVERIFY(server.waitForReadyRead(10000));
        const QString first = QString::fromLatin1(server.readLine()).trimmed();
        QVERIFY2(first.startsWith("PORT "), qPrintable(first));
        base = "http://127.0.0.1:" + first.mid(5);

        const QString data = qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2";
        QVERIFY(QDir().mkpath(data));
        QFile ini(data + "/sniffer.ini");
        QVERIFY(ini.open(QIODevice::WriteOnly | QIODevice::Text));
        ini.write(QString("[General]\nlast_update=%1\n[os_urls]\n1=vimeo.com\n2=127.0.0.1\n")
                      .arg(QDate::currentDate().dayOfYear())
                      .toUtf8());
    }

    void cleanupTestCase()
    {
        server.closeWriteChannel();
        if (!server.waitForFinished(5000)) {
            server.terminate();
            server.waitForFinished(5000);
        }
    }

    void pageToMp3ThroughTheWindow()
    {
        auto sniffer = std::make_unique<Sniffer>(nullptr);
        sniffer->start();
        QVERIFY(QTest::qWaitForWindowExposed(sniffer.get()));

        QTest::mouseClick(sniffer->uiNavigation->btnDownloaderOS, Qt::LeftButton);
        QLineEdit *field = sniffer->uiInsertURL->inputURL;
        QTest::keyClicks(field, "the clip: " + base + "/three.html");
        QTest::keyClick(field, Qt::Key_Return);
        QVERIFY(waitFor([&] { return sniffer->ui->widgetOptions->isVisible(); }, 60000));

        QListWidget *list = sniffer->uiOptions->listFormats;
        QVERIFY(list->isVisible());
        QCOMPARE(list->count(), 3);
        QCOMPARE(list->findItems("( BEST )", Qt::MatchContains).size(), 1);
        QVERIFY(sniffer->uiOptions->lblTitle->text().startsWith("Local Test Clip Three Sizes"));

        QString shots = qEnvironmentVariable("VIDORRA_SHOTS_DIR");
        if (shots.isEmpty())
            shots = QCoreApplication::applicationDirPath();
        QDir().mkpath(shots);
        QTest::qWait(200); // let the window settle at its new height
        const QString shot = shots + "/download-options.png";
        QVERIFY(sniffer->grab().save(shot));
        qInfo() << "Options page:" << shot;

        // Audio from the best source.
        const QList<QListWidgetItem *> best = list->findItems("( BEST )", Qt::MatchContains);
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(best.first()).center());
        const QString target = out.filePath("Sunrise Tone");
        answerNextModal([target](QWidget *w) {
            auto *dialog = qobject_cast<QFileDialog *>(w);
            if (!dialog) {
                w->close();
                return;
            }
            auto *name = dialog->findChild<QLineEdit *>("fileNameEdit");
            name->clear();
            QTest::keyClicks(name, target);
            auto *buttons = dialog->findChild<QDialogButtonBox *>("buttonBox");
            QTest::mouseClick(buttons->button(QDialogButtonBox::Save), Qt::LeftButton);
        });
        QTest::mouseClick(sniffer->uiOptions->btnDownloadAudio, Qt::LeftButton);
        QCOMPARE(sniffer->outputExtension, QString("mp3"));

        QString done;
        answerNextModal(
            [&done](QWidget *w) {
                if (auto *box = qobject_cast<QMessageBox *>(w))
                    done = box->text();
                w->close();
            },
            120000);
        QVERIFY(waitFor([&] { return !done.isEmpty(); }, 120000));
        QCOMPARE(done, QString("Processing is completed"));
        QVERIFY(waitFor([&] { return sniffer->ui->widgetInsertURL->isVisible(); }));

        QCOMPARE(probeStreams(target + ".mp3"), QString("audio"));
        QCOMPARE(QDir(out.path()).entryList(QDir::Files), QStringList{"Sunrise Tone.mp3"});
    }
};

VIDORRA_TEST_MAIN(DownloadRealTest)
#include "tst_download_real.moc"
