#include "AVRecorder/AVRecorder.h"
#include "AVRecorder/StopDialog.h"
#include "Sniffer/Sniffer.h"
#include "TestSupport.h"
#include "ui_Navigation.h"
#include "ui_Sniffer.h"

#include <csignal>

// The recorder in a Wayland desktop of the test's own (wayland-test.sh
// starts it: sway, PipeWire, the desktop portal): the region is a frame in a
// full-screen layer, the desktop shares the screen through its portal, and
// GStreamer writes the picture. A window changes colour every 100 ms under
// the region while a tone plays.
class RecorderWaylandTest : public QObject
{
    Q_OBJECT

    QTemporaryDir runtime;
    QProcess soundServer, tone;
    std::unique_ptr<Sniffer> sniffer;
    QWidget colours;
    const QList<QColor> cycle{Qt::red, Qt::green, Qt::blue, Qt::yellow, Qt::magenta, Qt::cyan};
    const QRect coloursPlace{40, 40, 600, 350};

    static QString pactl(const QStringList &arguments)
    {
        return runTool("pactl", arguments).trimmed();
    }

    // A mouse event as the window system would deliver it to the region.
    static void mouse(QWidget *widget, QEvent::Type type, const QPoint &global, Qt::MouseButtons buttons)
    {
        const QPoint local = widget->mapFromGlobal(global);
        QMouseEvent event(type, local, local, global, type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton,
                          buttons, Qt::NoModifier);
        QCoreApplication::sendEvent(widget, &event);
    }
    static void drag(QWidget *widget, const QPoint &from, const QPoint &to)
    {
        mouse(widget, QEvent::MouseButtonPress, from, Qt::LeftButton);
        mouse(widget, QEvent::MouseMove, (from + to) / 2, Qt::LeftButton);
        mouse(widget, QEvent::MouseMove, to, Qt::LeftButton);
        mouse(widget, QEvent::MouseButtonRelease, to, Qt::NoButton);
    }

    // The index in `cycle` of a colour, -1 for none near it.
    int colourIndex(const uchar *rgb) const
    {
        for (int i = 0; i < cycle.size(); ++i)
            if (qAbs(rgb[0] - cycle[i].red()) < 60 && qAbs(rgb[1] - cycle[i].green()) < 60 &&
                qAbs(rgb[2] - cycle[i].blue()) < 60)
                return i;
        return -1;
    }

private slots:
    void initTestCase()
    {
        QVERIFY2(qEnvironmentVariableIsSet("WAYLAND_DISPLAY"), "run through wayland-test.sh");
        QCOMPARE(QGuiApplication::platformName(), QString("wayland"));
        QVERIFY(writeSettings(qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2", QString()));
        qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
        soundServer.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        soundServer.start("pulseaudio", {"-n", "--daemonize=no", "--exit-idle-time=-1", "--disable-shm=yes", "-L",
                                         "module-native-protocol-unix", "-L", "module-null-sink sink_name=speakers",
                                         "-L", "module-null-source source_name=quiet"});
        QVERIFY(waitFor([] { return pactl({"info"}).contains("Default Sink: speakers"); }, 30000));
        pactl({"set-default-source", "quiet"});

        colours.setWindowTitle("colours");
        colours.setFixedSize(coloursPlace.size());
        auto *timer = new QTimer(&colours);
        QObject::connect(timer, &QTimer::timeout, &colours, [this] {
            static int step = 0;
            colours.setStyleSheet(QString("background: %1").arg(cycle[++step % cycle.size()].name()));
        });
        timer->start(100);
        colours.show();
        QVERIFY(QTest::qWaitForWindowExposed(&colours));
        // Wayland windows are placed by the desktop: sway is asked to.
        QVERIFY(waitFor([] {
            runTool("swaymsg", {"[title=\"^colours$\"] floating enable, move absolute position 40 40"});
            return runTool("swaymsg", {"-t", "get_tree"})
                .contains(QRegularExpression("\"x\": 40,\\s*\"y\": 40,\\s*\"width\": 600,\\s*\"height\": 350"));
        }));

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("PULSE_LATENCY_MSEC", "20");
        tone.setProcessEnvironment(environment);
        tone.start("sox", {"-q", "-n", "-t", "pulseaudio", "speakers", "synth", "600", "sine", "440", "vol", "0.5"});
        QVERIFY(tone.waitForStarted());
    }

    void cleanupTestCase()
    {
        sniffer.reset();
        tone.kill();
        tone.waitForFinished();
        soundServer.terminate();
        soundServer.waitForFinished(10000);
    }

    void recordThroughThePortal()
    {
        sniffer = std::make_unique<Sniffer>(nullptr);
        sniffer->start();
        QVERIFY(QTest::qWaitForWindowExposed(sniffer.get()));
        QTest::mouseClick(sniffer->uiNavigation->btnRecorderVC, Qt::LeftButton);
        QVERIFY(sniffer->recorder && waitFor([&] { return sniffer->recorder->isVisible(); }));
        AVRecorder *recorder = sniffer->recorder;
        QVERIFY(QTest::qWaitForWindowExposed(recorder));
        // The layer covers the screen; the region opens in its middle.
        QVERIFY(waitFor([&] { return recorder->geometry() == QRect(0, 0, 1440, 900); }));
        QWidget *region = recorder->regionWidget();
        QVERIFY(region != recorder);
        QCOMPARE(region->geometry(), QRect(479, 360, 481, 179));

        // Dragged by its body onto the coloured window, stretched by its
        // bottom-right corner, then too small by its left edge: the
        // minimum size holds. (sway puts the stop dialog in the middle of
        // the screen, away from the region.)
        drag(region, {720, 400}, {321, 120});
        QCOMPARE(region->geometry(), QRect(80, 80, 481, 179));
        drag(region, region->geometry().bottomRight() + QPoint(1, 1), {579, 379});
        QCOMPARE(region->geometry(), QRect(80, 80, 500, 300));
        drag(region, {82, 200}, {400, 200});
        QCOMPARE(region->geometry(), QRect(80, 80, 500, 300));

        if (qEnvironmentVariableIsSet("VIDORRA_LAYER_SCREENSHOT")) { // for the README, asserts nothing
            QTest::qWait(1000);
            runTool("grim", {qEnvironmentVariable("VIDORRA_LAYER_SCREENSHOT")});
        }
        QTest::mouseClick(region->findChild<QPushButton *>("btnStart"), Qt::LeftButton);
        QVERIFY(recorder->isRecording() && waitFor([&] { return !recorder->isVisible(); }));
        StopDialog *stopDialog = recorder->stopWindow();
        QVERIFY(stopDialog->isVisible());
        QVERIFY(waitFor([&] { return recorder->pictureStartedMs() > 0; }, 60000));
        QVERIFY(waitFor([&] { return QDateTime::currentMSecsSinceEpoch() >= recorder->pictureStartedMs() + 3000; }));
        const QString audio = recorder->audioWorkFile(), video = recorder->videoWorkFile();
        const QString result = recorder->resultWorkFile();
        QTest::mouseClick(stopDialog->findChild<QPushButton *>("btnStop"), Qt::LeftButton);
        QVERIFY(waitFor([&] { return sniffer->isVisible() && sniffer->ui->widgetOptions->isVisible(); }, 60000));
        QVERIFY(sniffer->fromRecorder && sniffer->recordingMode);
        QCOMPARE(sniffer->recordedRegion, QRect(80, 80, 500, 300));
        QCOMPARE(sniffer->recordedResult, result);

        const QString info = runTool("ffprobe", {"-v", "error", "-count_frames", "-select_streams", "v",
                                                 "-show_entries", "stream=width,height,r_frame_rate,nb_read_frames",
                                                 "-of", "default=noprint_wrappers=1", result});
        QVERIFY2(info.contains("width=500\nheight=300\nr_frame_rate=30/1"), qPrintable(info));
        const int frames = QRegularExpression("nb_read_frames=(\\d+)").match(info).captured(1).toInt();
        QVERIFY2(qAbs(frames / 30.0 - 3.0) <= 0.5, qPrintable(info));
        const QString level = runTool("ffmpeg", {"-i", result, "-vn", "-af", "volumedetect", "-f", "null", "-"});
        const double mean = QRegularExpression("mean_volume: (-?[\\d.]+) dB").match(level).captured(1).toDouble();
        QVERIFY2(mean > -20.0 && mean < -3.0, qPrintable(level));

        // Every frame is one of the window's colours, the same at points
        // inside its edges, and the colours follow the window's order.
        QProcess decode;
        decode.start("ffmpeg", {"-v", "error", "-i", result, "-f", "rawvideo", "-pix_fmt", "rgb24", "-"});
        QVERIFY(decode.waitForFinished(120000));
        const QByteArray pixels = decode.readAllStandardOutput();
        const int frameBytes = 500 * 300 * 3;
        QCOMPARE(pixels.size(), frames * frameBytes);
        int last = -1, changes = 0;
        for (int f = 0; f < frames; ++f) {
            const uchar *frame = reinterpret_cast<const uchar *>(pixels.constData()) + f * frameBytes;
            const int index = colourIndex(frame + (150 * 500 + 250) * 3);
            QVERIFY2(index >= 0, qPrintable(QString("frame %1 has none of the colours").arg(f)));
            for (const QPoint &p : {QPoint(12, 12), QPoint(487, 12), QPoint(12, 287), QPoint(487, 287)})
                QVERIFY2(colourIndex(frame + (p.y() * 500 + p.x()) * 3) == index, qPrintable(QString::number(f)));
            // The first frame may be one the desktop took before the stream ran.
            if (f > 1 && index != last) {
                ++changes;
                const int step = (index - last + cycle.size()) % cycle.size();
                QVERIFY2(step <= 3, qPrintable(QString("frame %1 goes back in the colours").arg(f)));
            }
            last = index;
        }
        QVERIFY2(changes >= 10, qPrintable(QString::number(changes)));
        qInfo("Wayland recording: %d frames for 3 s, %d colour changes (the window changed every 100 ms)", frames,
              changes);
        for (const QString &work : {audio, video})
            QVERIFY2(QFile::exists(work), qPrintable(work));
    }

    void refusedByTheDesktop()
    {
        // The backend is gone; the bus starts it again, set to share an
        // output there is not (or it fails to start): either way the desktop
        // refuses, the recording ends with a message, nothing is left.
        const QString config = qEnvironmentVariable("SESSION_DIR") + "/config/xdg-desktop-portal-wlr/config";
        QVERIFY(writeFile(config, "[screencast]\noutput_name=NOWHERE-1\nchooser_type=none\n"));
        const QString owner = runTool("busctl", {"--user", "--json=short", "call", "org.freedesktop.DBus",
                                                 "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                                 "GetConnectionUnixProcessID", "s",
                                                 "org.freedesktop.impl.portal.desktop.wlr"});
        const qint64 backend = QRegularExpression("\\[(\\d+)\\]").match(owner).captured(1).toLongLong();
        QVERIFY2(backend > 0, qPrintable(owner));
        ::kill(pid_t(backend), SIGTERM);
        QVERIFY(waitFor([&] { return !alive(backend); }));

        sniffer->postRecorderAV();
        sniffer->show();
        QTest::mouseClick(sniffer->uiNavigation->btnRecorderVC, Qt::LeftButton);
        QVERIFY(sniffer->recorder && waitFor([&] { return sniffer->recorder->isVisible(); }));
        AVRecorder *recorder = sniffer->recorder;
        const QString video = recorder->videoWorkFile(), audio = recorder->audioWorkFile();
        QString title, text;
        closeNextMessage(&title, &text, 60000);
        QTest::mouseClick(recorder->regionWidget()->findChild<QPushButton *>("btnStart"), Qt::LeftButton);
        QVERIFY(waitFor([&] { return !text.isEmpty(); }, 60000));
        QCOMPARE(title, QString("AV Recorder"));
        QVERIFY2(text.contains("The screen could not be recorded") && text.contains("share the screen"), qPrintable(text));
        QVERIFY(waitFor([&] { return !sniffer->recorder && sniffer->isVisible(); }));
        QVERIFY(!QFile::exists(video) && !QFile::exists(audio));
    }
};

VIDORRA_TEST_MAIN(RecorderWaylandTest)
#include "tst_recorder_wayland.moc"
