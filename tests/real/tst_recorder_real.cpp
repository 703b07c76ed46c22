#include "AVRecorder/AVRecorder.h"
#include "AVRecorder/StopDialog.h"
#include "Sniffer/Sniffer.h"
#include "TestSupport.h"
#include "ui_Navigation.h"
#include "ui_Options.h"
#include "ui_Sniffer.h"
#include "ui_StopDialog.h"

static QString pactl(const QStringList &arguments)
{
    return runTool("pactl", arguments).trimmed();
}

// The real recorder under the X server the suite runs on: ffmpeg grabs the
// screen, sox records a private sound server's output while a tone plays.
class RecorderRealTest : public QObject
{
    Q_OBJECT

    QTemporaryDir out;
    SoundServer sound;
    std::unique_ptr<Sniffer> sniffer;
    QWidget flicker; // a window that changes every frame, under the region

    bool save(QPushButton *button, const QString &name, const QString &filter)
    {
        // A copy ends before the click returns, a conversion after it.
        QString title, text;
        answerSaveDialog(out.filePath(name), filter, [&] { closeNextMessage(&title, &text, 120000); });
        QTest::mouseClick(button, Qt::LeftButton);
        return waitFor([&] { return !text.isEmpty(); }, 120000) && text == "Processing is completed" &&
               waitFor([&] { return sniffer->ui->widgetNavigation->isVisible() && !sniffer->fromRecorder; });
    }

private slots:
    void initTestCase()
    {
        QVERIFY(writeSettings(qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2", QString()));
        QVERIFY(sound.start());

        flicker.setWindowFlags(Qt::FramelessWindowHint);
        flicker.setGeometry(0, 0, 1440, 900);
        auto *frames = new QTimer(&flicker);
        QObject::connect(frames, &QTimer::timeout, &flicker, [this] {
            static int hue = 0;
            flicker.setStyleSheet(QString("background: %1").arg(QColor::fromHsv((hue += 37) % 360, 255, 255).name()));
        });
        frames->start(15);
        flicker.show();
        QVERIFY(QTest::qWaitForWindowExposed(&flicker));
    }

    void cleanupTestCase()
    {
        sniffer.reset();
        QCOMPARE(pactl({"get-default-source"}), QString("quiet")); // the user's input is back
    }

    void recordAndSaveThroughTheOptionsPage()
    {
        sniffer = std::make_unique<Sniffer>(nullptr);
        sniffer->start();
        QVERIFY(QTest::qWaitForWindowExposed(sniffer.get()));
        // The region of an earlier recording is where the window opens.
        const QRect region(200, 150, 640, 360);
        sniffer->haveRecordedRegion = true;
        sniffer->recordedRegion = region;
        QTest::mouseClick(sniffer->uiNavigation->btnRecorderVC, Qt::LeftButton);
        QVERIFY(sniffer->recorder && waitFor([&] { return sniffer->recorder->isVisible(); }));
        AVRecorder *recorder = sniffer->recorder;
        QVERIFY(!sniffer->isVisible());
        QCOMPARE(recorder->geometry(), region);
        QCOMPARE(pactl({"get-default-source"}), QString("speakers.monitor"));

        recorder->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(recorder));
        QTest::keyClick(recorder, Qt::Key_B, Qt::ControlModifier);
        StopDialog *stopDialog = recorder->stopWindow();
        QVERIFY(recorder->isRecording() && !recorder->isVisible() && stopDialog->isVisible());
        QCOMPARE(stopDialog->pos(), QPoint(1440 - 321 - 20, 10));
        // Three seconds from the first frame ffmpeg grabs.
        QVERIFY(waitFor([&] { return recorder->pictureStartedMs() > 0; }, 60000));
        QVERIFY(waitFor([&] { return QDateTime::currentMSecsSinceEpoch() >= recorder->pictureStartedMs() + 3000; }));
        const QString audio = recorder->audioWorkFile(), video = recorder->videoWorkFile();
        const QString result = recorder->resultWorkFile();
        QTest::mouseClick(stopDialog->findChild<QPushButton *>("btnStop"), Qt::LeftButton);
        QVERIFY(waitFor([&] { return sniffer->isVisible() && sniffer->ui->widgetOptions->isVisible(); }, 60000));
        QVERIFY(sniffer->fromRecorder && sniffer->recordingMode);
        QVERIFY(waitFor([&] { return !sniffer->recorder; }));
        QCOMPARE(sniffer->recordedResult, result);
        QCOMPARE(pactl({"get-default-source"}), QString("quiet"));

        // The picture is the region at 30 frames a second, the tone is heard.
        int frames = 0;
        bool toneHeard = false;
        const QString info = recordedPicture(result, &frames, &toneHeard);
        QVERIFY2(info.contains("width=640\nheight=360\nr_frame_rate=30/1") && toneHeard, qPrintable(info));
        QVERIFY2(qAbs(frames / 30.0 - 3.0) <= 0.5, qPrintable(info));

        // Saved as MP4: converted, the recording kept for another save.
        QCOMPARE(sniffer->uiOptions->inputTitle->text(), QString("Screen_Capture_1"));
        QVERIFY(save(sniffer->uiOptions->btnDownloadVideo, "Capture", "MPEG-4 (*.mp4)"));
        QCOMPARE(runTool("ffprobe", {"-v", "error", "-show_entries", "stream=codec_name,width", "-of", "csv=p=0",
                                     out.filePath("Capture.mp4")}),
                 QString("mpeg4,640\naac\n"));
        // Saved as MPEG: the very bytes, and the work files are gone.
        sniffer->postRecorderAV();
        const QByteArray recorded = readFile(result);
        QVERIFY(!recorded.isEmpty() && save(sniffer->uiOptions->btnDownloadVideo, "Capture", "MPEG (*.mpg)"));
        QVERIFY(readFile(out.filePath("Capture.mpg")) == recorded);
        for (const QString &work : {audio, video, result})
            QVERIFY2(!QFile::exists(work), qPrintable(work));
    }
};

VIDORRA_TEST_MAIN(RecorderRealTest)
#include "tst_recorder_real.moc"
