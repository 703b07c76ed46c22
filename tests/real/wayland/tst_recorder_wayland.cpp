#include "AVRecorder/AVRecorder.h"
#include "AVRecorder/StopDialog.h"
#include "Sniffer/Sniffer.h"
#include "TestSupport.h"
#include "ui_Navigation.h"
#include "ui_Sniffer.h"

// The recorder in a Wayland desktop of the test's own (scripts/wayland-session/wayland-run.sh
// starts it: sway, PipeWire, the desktop portal): the region is a frame in a
// full-screen layer, the desktop shares the screen through its portal, and
// GStreamer writes the picture. A window changes colour every 100 ms under
// the region while a tone plays.
class RecorderWaylandTest : public QObject
{
    Q_OBJECT

    SoundServer sound;
    std::unique_ptr<Sniffer> sniffer;
    QWidget colours;
    const QList<QColor> cycle{Qt::red, Qt::green, Qt::blue, Qt::yellow, Qt::magenta, Qt::cyan};
    const QRect coloursPlace{40, 40, 600, 350};

    // Pressed at `from`, moved, let go at `to` (screen coordinates), as the window system would tell the region.
    static void drag(QWidget *region, const QPoint &from, const QPoint &to)
    {
        for (const auto &[type, at] : {std::pair{QEvent::MouseButtonPress, from}, {QEvent::MouseMove, to},
                                       {QEvent::MouseButtonRelease, to}}) {
            QMouseEvent event(type, region->mapFromGlobal(at), at, type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton,
                              type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton, Qt::NoModifier);
            QCoreApplication::sendEvent(region, &event);
        }
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
        QVERIFY2(qEnvironmentVariableIsSet("WAYLAND_DISPLAY"), "run through scripts/wayland-session/wayland-run.sh");
        QCOMPARE(QGuiApplication::platformName(), QString("wayland"));
        QVERIFY(writeSettings(qEnvironmentVariable("XDG_DATA_HOME") + "/Vidorra 2", QString()));
        QVERIFY(sound.start());

        colours.setWindowTitle("colours");
        colours.setFixedSize(coloursPlace.size());
        auto *timer = new QTimer(&colours);
        QObject::connect(timer, &QTimer::timeout, &colours, [this, step = 0]() mutable {
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
    }

    void cleanupTestCase()
    {
        sniffer.reset();
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
        QCOMPARE(region->geometry(), QRect(479, 360, 481, 179));

        // Dragged by its body onto the coloured window, stretched by its bottom-right corner (sway puts the stop
        // dialog in the middle of the screen, away from the region).
        drag(region, {720, 400}, {321, 120});
        QCOMPARE(region->geometry(), QRect(80, 80, 481, 179));
        drag(region, region->geometry().bottomRight() + QPoint(1, 1), {579, 379});
        QCOMPARE(region->geometry(), QRect(80, 80, 500, 300));

        if (qEnvironmentVariableIsSet("VIDORRA_LAYER_SCREENSHOT")) { // for the README, asserts nothing
            QTest::qWait(1000);
            runTool("grim", {qEnvironmentVariable("VIDORRA_LAYER_SCREENSHOT")});
        }
        QTest::mouseClick(region->findChild<QPushButton *>("btnStart"), Qt::LeftButton);
        StopDialog *stopDialog = recorder->stopWindow();
        QVERIFY(recorder->isRecording() && waitFor([&] { return !recorder->isVisible() && stopDialog->isVisible(); }));
        QVERIFY(waitFor([&] { return recorder->pictureStartedMs() > 0; }, 60000));
        QVERIFY(waitFor([&] { return QDateTime::currentMSecsSinceEpoch() >= recorder->pictureStartedMs() + 3000; }));
        const QString result = recorder->resultWorkFile();
        QTest::mouseClick(stopDialog->findChild<QPushButton *>("btnStop"), Qt::LeftButton);
        QVERIFY(waitFor([&] { return sniffer->isVisible() && sniffer->ui->widgetOptions->isVisible(); }, 60000));
        QVERIFY(sniffer->fromRecorder && sniffer->recordedRegion == QRect(80, 80, 500, 300));

        int frames = 0;
        bool toneHeard = false;
        const QString info = recordedPicture(result, &frames, &toneHeard);
        QVERIFY2(info.contains("width=500\nheight=300\nr_frame_rate=30/1") && toneHeard, qPrintable(info));
        QVERIFY2(qAbs(frames / 30.0 - 3.0) <= 0.5, qPrintable(info));

        // Every frame is one of the window's colours, the same at points inside its edges, following the window's order.
        runTool("ffmpeg", {"-v", "error", "-i", result, "-f", "rawvideo", "-pix_fmt", "rgb24", "-y", result + ".rgb"});
        const QByteArray pixels = readFile(result + ".rgb");
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
    }
};

VIDORRA_TEST_MAIN(RecorderWaylandTest)
#include "tst_recorder_wayland.moc"
