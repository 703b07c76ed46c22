#include <QtTest>

#include "AVRecorder/AVRecorder.h"
#include "AVRecorder/RecorderRules.h"
#include "AVRecorder/StopDialog.h"
#include "Platform/Platform.h"
#include "TestSupport.h"

using namespace RecorderRules;

class RecorderRulesTest : public QObject
{
    Q_OBJECT

private slots:
    void placesAndRegions()
    {
        // Close button, Start button (100 x 28) and hint (300 x 72) of the region window.
        QCOMPARE(closeButtonPos({481, 179}), QPoint(457, 0));
        QCOMPARE(startButtonPos({481, 179}, {100, 28}), QPoint(190, 140));
        QCOMPARE(hintPos({481, 179}, {300, 72}), QPoint(90, 54));
        QCOMPARE(startButtonPos({640, 361}, {101, 28}), QPoint(270, 231));
        QCOMPARE(stopDialogPos(1440, 321), QPoint(1099, 10));

        const QSize screen(1440, 900);
        const struct
        {
            QRect window;
            const char *filter;
        } regions[] = {
            {{100, 50, 640, 480}, "scale=1440:900,crop=640:480:100:50:keep_aspect=1"},
            {{-30, 40, 600, 300}, "scale=1440:900,crop=570:300:0:40:keep_aspect=1"},       // over the left edge
            {{1000, 700, 600, 300}, "scale=1440:900,crop=440:200:1000:700:keep_aspect=1"}, // over right and bottom
            {{0, 0, 1440, 900}, "scale=1440:900,crop=1440:900:0:0:keep_aspect=1"},
        };
        for (const auto &r : regions)
            QCOMPARE(grabFilter(screen, clippedRegion(r.window, screen)), QString(r.filter));
    }

    void deviceListAndWorkFiles()
    {
        QCOMPARE(inputScreen("[AVFoundation input device @ 0x7f8] [2] Capture screen 0\n", "0"), QString("2"));
        QCOMPARE(inputScreen("[AVFoundation input device @ 0x7f8] [10] Capture screen 0", "0"), QString("1"));
        QCOMPARE(inputScreen("[0] FaceTime HD Camera\n[1] Capture camera 0", "0"), QString("0"));
        QCOMPARE(inputScreen("Capture screen 0", "0"), QString()); // not after "] ": nothing before it to read
        // No X display to grab: the recorder says so instead of recording black.
        QVERIFY(Platform::screenCaptureProblem("wayland").contains("no X display"));
        const QDateTime when({2026, 11, 23}, {3, 0});
        QCOMPARE(workFileName("/tmp/a", when), workFileName("/tmp/a", when));
        QVERIFY(workFileName("/tmp/a", when) != workFileName("/tmp/b", when));
        QVERIFY(QRegularExpression("^[0-9a-f]{32}$").match(workFileName("/tmp/a", when)).hasMatch());
    }

    void mergeLinesSoundUpWithPicture()
    {
        const QString picture = "Input #0, x11grab, from ':99':\n  Duration: N/A, start: 1795401922.529454, bitrate:";
        QCOMPARE(videoStartMs(picture), Q_INT64_C(1795401922529) - 67);
        QCOMPARE(videoStartMs("Input #0, x11grab, from ':99':\n"), Q_INT64_C(0));
        // The earliest arrival less the length recorded; a line cut short is ignored.
        const QString sound = "\rIn:0.00% 00:00:01.37 [00:00:00.00] Out:8.19k\rIn:0.00% 00:00:01.50 [0";
        QCOMPARE(audioStartMs(sound, 10000, 0), Q_INT64_C(8500));
        QCOMPARE(audioStartMs(sound, 10000, 8000), Q_INT64_C(8000));
        QCOMPARE(audioStartMs("Clip:0 \nAborted.\n", 10000, 0), Q_INT64_C(0));

        QCOMPARE(audioShift(1000, 1030), Q_INT64_C(0)); // within 40 ms
        QCOMPARE(audioShift(1000, 1120), Q_INT64_C(120));
        QCOMPARE(audioShift(1000, 900), Q_INT64_C(-100));
        QCOMPARE(audioShift(0, 900), Q_INT64_C(0));
        QCOMPARE(audioShift(1795401922529, 12000), Q_INT64_C(0)); // not one clock
        QCOMPARE(mergeArguments("v.mpg", "a.wav", "r.mpg", 120).join(' '),
                 QString("-i v.mpg -itsoffset 0.120 -i a.wav -vcodec copy -y r.mpg"));
        QCOMPARE(mergeArguments("v.mpg", "a.wav", "r.mpg", -80).join(' '),
                 QString("-i v.mpg -ss 0.080 -i a.wav -vcodec copy -y r.mpg"));
        QCOMPARE(mergeArguments("v.mpg", "a.wav", "r.mpg", 0).join(' '),
                 QString("-i v.mpg -i a.wav -vcodec copy -y r.mpg"));
        QCOMPARE(mergeArguments("v.mpg", QString(), "r.mpg", 300).join(' '), QString("-i v.mpg -vcodec copy -y r.mpg"));
        QCOMPARE(grabVideoArguments("x11grab", ":99", "F", "v.mpg").join(' '),
                 QString("-rtbufsize 2000M -f x11grab -i :99 -r 30 -vf F -b:v 20M v.mpg"));
    }

    void windowsWithoutARecording()
    {
        QTemporaryDir temp;
        AVRecorder recorder(nullptr, QCoreApplication::applicationDirPath(), temp.path());
        QCOMPARE(recorder.minimumSize(), QSize(481, 179));
        QVERIFY(qAbs(recorder.windowOpacity() - 0.53) < 0.01);
        QSignalSpy closed(&recorder, &AVRecorder::close);
        QSignalSpy done(&recorder, QOverload<AVRecorder::ResultingData>::of(&AVRecorder::done));
        recorder.stop(); // nothing to stop
        QVERIFY(done.isEmpty() && closed.isEmpty());
        recorder.stopWindow()->close(); // the stop dialog's own close button cancels
        QCOMPARE(closed.size(), 1);
        QVERIFY(QFileInfo(recorder.resultWorkFile()).fileName().endsWith("_res.mpg"));

        // A display ffmpeg cannot open ends the recording with a message, nothing left behind.
        QSignalSpy failed(&recorder, &AVRecorder::error);
        const QByteArray display = qgetenv("DISPLAY");
        qputenv("DISPLAY", ":999");
        recorder.startRecorder();
        recorder.clickButtonStart();
        qputenv("DISPLAY", display);
        QVERIFY(waitFor([&] { return !failed.isEmpty(); }, 60000));
        QVERIFY2(failed.first().at(1).toString().contains(":999"), qPrintable(failed.first().at(1).toString()));
        QVERIFY(!recorder.isRecording() && !recorder.stopWindow()->isVisible());
        QVERIFY(!QFile::exists(recorder.videoWorkFile()) && !QFile::exists(recorder.audioWorkFile()));

        // The light runs along the five spheres, one step at a time.
        StopDialog dialog;
        QCOMPARE(dialog.size(), QSize(321, 115));
        QList<int> lit;
        for (int i = 0; i < 6; ++i, dialog.update())
            lit << dialog.litSphere();
        QCOMPARE(lit, (QList<int>{0, 1, 2, 3, 4, 0}));
        QSignalSpy stop(&dialog, &StopDialog::stop);
        dialog.show();
        QVERIFY(QTest::qWaitForWindowActive(&dialog));
        QTest::keyClick(&dialog, Qt::Key_E, Qt::ControlModifier);
        QTest::keyClick(&dialog, Qt::Key_Escape); // neither stops nor hides
        QVERIFY(stop.size() == 1 && dialog.isVisible());
    }
};

VIDORRA_TEST_MAIN(RecorderRulesTest)
#include "tst_recorder_rules.moc"
