#include <QtTest>

#include "AVRecorder/NcFramelessHelper.h"

// A frameless window with the recorder's minimum size, at 100,100 (600 x 300 unless told), with its own helper.
struct Window
{
    explicit Window(const QRect &geometry = QRect(100, 100, 600, 300))
    {
        widget.setWindowFlags(Qt::FramelessWindowHint);
        widget.setMinimumSize(481, 179);
        widget.setGeometry(geometry);
        helper.activateOn(&widget);
        widget.show();
    }
    void mouse(QEvent::Type type, const QPoint &global, Qt::MouseButtons buttons)
    {
        const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent event(type, widget.mapFromGlobal(global), global, button, buttons, Qt::NoModifier);
        QApplication::sendEvent(&widget, &event);
    }
    void hover(const QPoint &global)
    {
        QHoverEvent event(QEvent::HoverMove, widget.mapFromGlobal(global), {});
        QApplication::sendEvent(&widget, &event);
    }
    QWidget widget;
    NcFramelessHelper helper;
};

class FramelessTest : public QObject
{
    Q_OBJECT

private slots:
    void hitTest_data()
    {
        QTest::addColumn<int>("x");
        QTest::addColumn<QString>("edges");
        // A frame from x 100 to 580, border width 5: each zone is 6 pixels wide, the right one
        // reaching one pixel past the frame.
        const int xs[] = {99, 100, 105, 106, 575, 576, 581, 582};
        const char *edges[] = {"", "L", "L", "", "", "R", "R", ""};
        for (int i = 0; i < 8; ++i)
            QTest::addRow("x %d", xs[i]) << xs[i] << edges[i];
    }
    void hitTest()
    {
        QFETCH(int, x);
        NcCursorPosCalculator at;
        const bool onEdges = at.recalculate({x, 250}, QRect(QPoint(100, 100), QPoint(580, 400)));
        QTEST(QString(at.onLeftEdge ? "L" : "") + (at.onRightEdge ? "R" : ""), "edges");
        QCOMPARE(onEdges, at.onLeftEdge || at.onRightEdge);
    }

    void dragOnTheBodyMoves()
    {
        Window w;
        w.mouse(QEvent::MouseButtonPress, {400, 250}, Qt::LeftButton);
        w.helper.activateOn(&w.widget); // taken on already: the drag goes on, and is followed once
        w.mouse(QEvent::MouseMove, {430, 270}, Qt::LeftButton);
        w.mouse(QEvent::MouseButtonRelease, {430, 270}, Qt::NoButton);
        QCOMPARE(w.widget.geometry(), QRect(130, 120, 600, 300));
    }

    void dragOnAnEdgeResizes_data()
    {
        QTest::addColumn<QRect>("start");
        QTest::addColumn<QPoint>("from");
        QTest::addColumn<QPoint>("to");
        QTest::addColumn<QRect>("expected");
        // The 600 x 300 window's last pixels are x 699 and y 399.
        const QRect start(100, 100, 600, 300);
        QTest::newRow("left") << start << QPoint(100, 250) << QPoint(80, 240) << QRect(80, 100, 620, 300);
        QTest::newRow("right") << start << QPoint(699, 250) << QPoint(679, 240) << QRect(100, 100, 580, 300);
        QTest::newRow("top") << start << QPoint(400, 100) << QPoint(380, 90) << QRect(100, 90, 600, 310);
        QTest::newRow("bottom") << start << QPoint(400, 399) << QPoint(380, 389) << QRect(100, 100, 600, 290);
        QTest::newRow("top-left") << start << QPoint(100, 100) << QPoint(80, 90) << QRect(80, 90, 620, 310);
        QTest::newRow("top-right") << start << QPoint(699, 100) << QPoint(679, 90) << QRect(100, 90, 580, 310);
        QTest::newRow("bottom-left") << start << QPoint(100, 399) << QPoint(80, 389) << QRect(80, 100, 620, 290);
        QTest::newRow("bottom-right") << start << QPoint(699, 399) << QPoint(679, 389) << QRect(100, 100, 580, 290);
        const QRect smallest(100, 100, 481, 179);
        QTest::newRow("left of the narrowest, inwards") << smallest << QPoint(100, 190) << QPoint(110, 190) << smallest;
        QTest::newRow("top of the lowest, inwards") << smallest << QPoint(300, 100) << QPoint(300, 110) << smallest;
        QTest::newRow("corner too narrow, tall enough")
            << start << QPoint(699, 399) << QPoint(400, 420) << QRect(100, 100, 600, 321);
    }
    void dragOnAnEdgeResizes()
    {
        QFETCH(QRect, start);
        QFETCH(QPoint, from);
        QFETCH(QPoint, to);
        Window w(start);
        w.mouse(QEvent::MouseButtonPress, from, Qt::LeftButton);
        w.mouse(QEvent::MouseMove, to, Qt::LeftButton);
        w.mouse(QEvent::MouseButtonRelease, to, Qt::NoButton);
        QTEST(w.widget.geometry(), "expected");
    }

    void hoverSetsTheCursor_data()
    {
        QTest::addColumn<QPoint>("point");
        QTest::addColumn<Qt::WindowState>("state");
        QTest::addColumn<Qt::CursorShape>("cursor");
        const Qt::WindowState normal = Qt::WindowNoState;
        QTest::newRow("left") << QPoint(101, 250) << normal << Qt::SizeHorCursor;
        QTest::newRow("right") << QPoint(698, 250) << normal << Qt::SizeHorCursor;
        QTest::newRow("top") << QPoint(400, 102) << normal << Qt::SizeVerCursor;
        QTest::newRow("bottom") << QPoint(400, 398) << normal << Qt::SizeVerCursor;
        QTest::newRow("top-left") << QPoint(101, 101) << normal << Qt::SizeFDiagCursor;
        QTest::newRow("bottom-right") << QPoint(698, 398) << normal << Qt::SizeFDiagCursor;
        QTest::newRow("top-right") << QPoint(698, 101) << normal << Qt::SizeBDiagCursor;
        QTest::newRow("bottom-left") << QPoint(101, 398) << normal << Qt::SizeBDiagCursor;
        // Off the edges the window's own cursor is taken back: a window then shows the arrow.
        QTest::newRow("body") << QPoint(400, 250) << normal << Qt::ArrowCursor;
        // Maximized or full screen (the whole offscreen screen), the cursor stays as it was.
        QTest::newRow("maximized, left") << QPoint(1, 250) << Qt::WindowMaximized << Qt::SizeVerCursor;
        QTest::newRow("maximized, body") << QPoint(400, 250) << Qt::WindowMaximized << Qt::SizeVerCursor;
        QTest::newRow("full screen, left") << QPoint(1, 250) << Qt::WindowFullScreen << Qt::SizeVerCursor;
    }
    void hoverSetsTheCursor()
    {
        QFETCH(QPoint, point);
        QFETCH(Qt::WindowState, state);
        Window w;
        // A plain move onto the top edge first, so leaving the edges has a shape to take back.
        w.mouse(QEvent::MouseMove, {400, 100}, Qt::NoButton);
        QCOMPARE(w.widget.cursor().shape(), Qt::SizeVerCursor);
        w.widget.setWindowState(state);
        QCoreApplication::processEvents(); // the new geometry comes back from the platform
        QVERIFY(state == Qt::WindowNoState || w.widget.frameGeometry().topLeft() == QPoint(0, 0));
        w.hover(point);
        QTEST(w.widget.cursor().shape(), "cursor");
    }
};

QTEST_MAIN(FramelessTest)
#include "tst_frameless.moc"
