#include <QtTest>

#include "Sniffer/Log.h"
#include "Sniffer/WindowRules.h"
#include "TestSupport.h"

class WindowRulesTest : public QObject
{
    Q_OBJECT

private slots:
    void logFileNameFollowsTheDayOfTheYear_data()
    {
        QTest::addColumn<QDate>("day");
        QTest::addColumn<QString>("name");
        QTest::newRow("1 January") << QDate(2026, 1, 1) << "/log_1.txt";
        QTest::newRow("1 February") << QDate(2026, 2, 1) << "/log_32.txt";
        QTest::newRow("31 December, leap year") << QDate(2024, 12, 31) << "/log_366.txt";
        QTest::newRow("31 December") << QDate(2025, 12, 31) << "/log_365.txt";
    }
    void logFileNameFollowsTheDayOfTheYear()
    {
        QFETCH(QDate, day);
        QFETCH(QString, name);
        QCOMPARE(Log::fileName(day), name);
    }

    void logLinesCarryTheirLevel()
    {
        QCOMPARE(Log::line(QtDebugMsg, "a b"), QString("D: a b"));
        QCOMPARE(Log::line(QtWarningMsg, "x"), QString("W: x"));
        QCOMPARE(Log::line(QtCriticalMsg, "!!! ERROR:  y"), QString("C: !!! ERROR:  y"));
        QCOMPARE(Log::line(QtFatalMsg, "%1 z"), QString("F: %1 z"));
        QCOMPARE(Log::line(QtInfoMsg, "info"), QString());
    }

    void messageRowsSplitIntoTitleAndText()
    {
        auto row = WindowRules::splitMessageRow("3~Text with ~ more");
        QCOMPARE(row.titleNumber, 3);
        QCOMPARE(row.text, QString("Text with "));
        row = WindowRules::splitMessageRow("no separator at all");
        QCOMPARE(row.titleNumber, 0);
        QCOMPARE(row.text, QString("Indefinite Error"));
        row = WindowRules::splitMessageRow("12");
        QCOMPARE(row.titleNumber, 12);
        QCOMPARE(row.text, QString("Indefinite Error"));
        row = WindowRules::splitMessageRow("~");
        QCOMPARE(row.titleNumber, 0);
        QCOMPARE(row.text, QString());
    }

    void detailsBlockFallsBackAndListsComments()
    {
        QCOMPARE(WindowRules::errorDetailsBlock(9, 1, {}),
                 QString("<b>error #9:?</b><br>in '?' : ?<br>comment: ---"));
        QCOMPARE(WindowRules::errorDetailsBlock(4, 1, {"src/Sniffer/Locker", "31", "checkLocker", "/tmp/locker"}),
                 QString("<b>error #4:31</b><br>in 'checkLocker' : src/Sniffer/Locker<br>comment: /tmp/locker"));
        QCOMPARE(WindowRules::errorDetailsBlock(3, 2, {"f", "7", "g", "a", "b", "c"}),
                 QString("<b>error #3:7</b><br>[DL] in 'g' : f<br>comment: <ul><li>a</li><li>b</li><li>c</li></ul>"));
        // Three entries: no comment yet.
        QCOMPARE(WindowRules::errorDetailsBlock(1, 1, {"f", "7", "g"}),
                 QString("<b>error #1:7</b><br>in 'g' : f<br>comment: ---"));
    }

    void bodyPutsTheBlockUnderARule()
    {
        QCOMPARE(WindowRules::messageBody("Text", "B"),
                 QString("Text<br><br><hr><div style=\"font-size:10px\"><i>B</i></div>"));
    }

    void progressJumpsBackBeforeTheEnd()
    {
        QCOMPARE(WindowRules::progressNext(50, 0, 100, 12345), 51);
        // 97 -> would show 98: thrown back into 20..98, whatever the draw.
        QSet<int> seen;
        for (quint32 r = 0; r < 200; ++r) {
            const int next = WindowRules::progressNext(97, 0, 100, r * 7919u);
            QVERIFY2(next >= 20 && next <= 98, qPrintable(QString::number(next)));
            seen.insert(next);
        }
        QVERIFY(seen.contains(20));
        QVERIFY(seen.contains(98));
        QCOMPARE(WindowRules::progressNext(97, 0, 100, 0), 20);
        QCOMPARE(WindowRules::progressNext(97, 0, 100, 78), 98);
        // From a real percentage near the end the bar is thrown back too.
        QVERIFY(WindowRules::progressNext(98, 0, 100, 5) <= 98);
        QVERIFY(WindowRules::progressNext(99, 0, 100, 5) <= 98);
    }

    void dotsSwingBetweenElevenAndOne()
    {
        int count = 3;
        bool growing = true;
        QList<int> shown;
        for (int i = 0; i < 22; ++i) {
            WindowRules::dotsNext(count, growing);
            shown << count;
        }
        const QList<int> expected{4, 5, 6, 7, 8, 9, 10, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 2, 3, 4, 5};
        QCOMPARE(shown, expected);
    }

    void layerHeightsAddUp()
    {
        const WindowRules::OptionsRows rows{true, 100, true};
        QCOMPARE(WindowRules::layerHeight({60}, false, rows), 60);
        QCOMPARE(WindowRules::layerHeight({60, 116}, false, rows), 176);
        QCOMPARE(WindowRules::layerHeight({60, 130}, false, rows), 190);
        QCOMPARE(WindowRules::layerHeight({60, 170}, false, rows), 230);
        QCOMPARE(WindowRules::layerHeight({120}, false, rows), 120);
        QCOMPARE(WindowRules::layerHeight({60, 270}, true, rows), 355);
        QCOMPARE(WindowRules::layerHeight({60, 270}, true, {false, 100, false}), 165);
    }

};

VIDORRA_TEST_MAIN(WindowRulesTest)
#include "tst_window_rules.moc"
