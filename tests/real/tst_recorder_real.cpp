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

    QTemporaryDir runtime, out;
    QProcess soundServer, tone;
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
        // A sound server of the test's own: a silent output whose monitor the
        // recorder is to switch to, and a quiet input that is the default
        // until then.
        qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
        soundServer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        soundServer.start("pulseaudio", {"-n", "--daemonize=no", "--exit-idle-time=-1", "--disable-shm=yes", "-L",
                                         "module-native-protocol-unix", "-L", "module-null-sink sink_name=speakers",
                                         "-L", "module-null-source source_name=quiet"});
        QVERIFY(waitFor([] { return pactl({"info"}).contains("Default Sink: speakers"); }, 30000));
        pactl({"set-default-source", "quiet"});

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
        // Played with short blocks, as a sound card takes them.
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PULSE_LATENCY_MSEC", "20");
        tone.setProcessEnvironment(environment);
        tone.start("sox", {"-q", "-n", "-t", "pulseaudio", "speakers", "synth", "600", "sine", "440", "vol", "0.5"});
        QVERIFY(tone.waitForStarted());
    }

    void cleanupTestCase()
    {
        sniffer.reset();
        const QString input = pactl({"get-default-source"});
        tone.kill();
        tone.waitForFinished();
        soundServer.terminate();
        soundServer.waitForFinished(10000);
        QCOMPARE(input, QString("quiet")); // the user's input is back
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
        // MPEG's stream length is only estimated: the frames, at the stream's 30 a second, tell the time.
        const QString info = runTool("ffprobe", {"-v", "error", "-count_frames", "-select_streams", "v",
                                                 "-show_entries", "stream=width,height,r_frame_rate,nb_read_frames",
                                                 "-of", "default=noprint_wrappers=1", result});
        QVERIFY2(info.contains("width=640\nheight=360\nr_frame_rate=30/1"), qPrintable(info));
        const double frames = QRegularExpression("nb_read_frames=(\\d+)").match(info).captured(1).toDouble();
        QVERIFY2(qAbs(frames / 30.0 - 3.0) <= 0.5, qPrintable(info));
        const QString level = runTool("ffmpeg", {"-i", result, "-vn", "-af", "volumedetect", "-f", "null", "-"});
        const double mean = QRegularExpression("mean_volume: (-?[\\d.]+) dB").match(level).captured(1).toDouble();
        QVERIFY2(mean > -20.0 && mean < -3.0, qPrintable(level));

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
