#include <QtTest>

#include "Sniffer/Log.h"
#include "Sniffer/WindowRules.h"
#include "TestSupport.h"

using namespace WindowRules;

class WindowRulesTest : public QObject
{
    Q_OBJECT

private slots:
    void logNamesAndLines()
    {
        // One file per day of the year.
        QCOMPARE(Log::fileName({2026, 1, 1}) + Log::fileName({2024, 12, 31}), QString("/log_1.txt/log_366.txt"));
        QCOMPARE(Log::line(QtDebugMsg, "a b"), QString("D: a b"));
        QCOMPARE(Log::line(QtWarningMsg, "x"), QString("W: x"));
        QCOMPARE(Log::line(QtCriticalMsg, "!!! ERROR:  y"), QString("C: !!! ERROR:  y"));
        QCOMPARE(Log::line(QtFatalMsg, "%1 z"), QString("F: %1 z"));
        QCOMPARE(Log::line(QtInfoMsg, "info"), QString());
    }

    void messages()
    {
        auto split = [](const char *row) {
            const MessageRow parts = splitMessageRow(row);
            return QString::number(parts.titleNumber) + "|" + parts.text;
        };
        QCOMPARE(split("3~Text with ~ more"), QString("3|Text with "));
        QCOMPARE(split("no separator at all"), QString("0|Indefinite Error"));
        QCOMPARE(split("12"), QString("12|Indefinite Error"));
        QCOMPARE(split("~"), QString("0|"));
        QCOMPARE(errorDetailsBlock(9, 1, {}), QString("<b>error #9:?</b><br>in '?' : ?<br>comment: ---"));
        QCOMPARE(errorDetailsBlock(1, 1, {"f", "7", "g"}), QString("<b>error #1:7</b><br>in 'g' : f<br>comment: ---"));
        QCOMPARE(errorDetailsBlock(4, 1, {"src/Sniffer/Locker", "31", "checkLocker", "/tmp/locker"}),
                 QString("<b>error #4:31</b><br>in 'checkLocker' : src/Sniffer/Locker<br>comment: /tmp/locker"));
        QCOMPARE(errorDetailsBlock(3, 2, {"f", "7", "g", "a", "b", "c"}),
                 QString("<b>error #3:7</b><br>[DL] in 'g' : f<br>comment: <ul><li>a</li><li>b</li><li>c</li></ul>"));
        QCOMPARE(messageBody("Text", "B"), QString("Text<br><br><hr><div style=\"font-size:10px\"><i>B</i></div>"));
    }

    void progressJumpsBackBeforeTheEnd()
    {
        QCOMPARE(progressNext(50, 0, 100, 12345), 51);
        // 97 would show 98: thrown back into 20 .. 98, whatever the draw.
        QSet<int> seen;
        for (quint32 r = 0; r < 200; ++r)
            seen.insert(progressNext(97, 0, 100, r * 7919u));
        QCOMPARE(*std::min_element(seen.begin(), seen.end()), 20);
        QCOMPARE(*std::max_element(seen.begin(), seen.end()), 98);
        QVERIFY(progressNext(98, 0, 100, 5) <= 98 && progressNext(99, 0, 100, 5) <= 98);
    }

    void dotsSwingBetweenElevenAndOne()
    {
        int count = 3;
        bool growing = true;
        QList<int> shown;
        for (int i = 0; i < 22; ++i) {
            dotsNext(count, growing);
            shown << count;
        }
        QCOMPARE(shown, (QList<int>{4, 5, 6, 7, 8, 9, 10, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 2, 3, 4, 5}));
    }
};

VIDORRA_TEST_MAIN(WindowRulesTest)
#include "tst_window_rules.moc"
