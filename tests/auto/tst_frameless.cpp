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
    void hitTest()
    {
        // A frame from x 100 to 580, border width 5: each zone is 6 pixels wide, the right one
        // reaching one pixel past the frame.
        const QList<QPair<int, QString>> rows{{99, ""},  {100, "L"}, {105, "L"}, {106, ""},
                                              {575, ""}, {576, "R"}, {581, "R"}, {582, ""}};
        for (const auto &[x, edges] : rows) {
            NcCursorPosCalculator at;
            const bool onEdges = at.recalculate({x, 250}, QRect(QPoint(100, 100), QPoint(580, 400)));
            QCOMPARE(QString(at.onLeftEdge ? "L" : "") + (at.onRightEdge ? "R" : ""), edges);
            QCOMPARE(onEdges, !edges.isEmpty());
        }
    }

    void dragsMoveAndResize()
    {
        // The 600 x 300 window's last pixels are x 699 and y 399.
        const QRect start(100, 100, 600, 300), smallest(100, 100, 481, 179);
        const struct
        {
            QRect start;
            QPoint from, to;
            QRect expected;
        } rows[] = {
            {start, {400, 250}, {430, 270}, {130, 120, 600, 300}}, // the body moves the window
            {start, {100, 250}, {80, 240}, {80, 100, 620, 300}},   // left
            {start, {699, 250}, {679, 240}, {100, 100, 580, 300}}, // right
            {start, {400, 100}, {380, 90}, {100, 90, 600, 310}},   // top
            {start, {400, 399}, {380, 389}, {100, 100, 600, 290}}, // bottom
            {start, {100, 100}, {80, 90}, {80, 90, 620, 310}},     // top-left
            {start, {699, 100}, {679, 90}, {100, 90, 580, 310}},   // top-right
            {start, {100, 399}, {80, 389}, {80, 100, 620, 290}},   // bottom-left
            {start, {699, 399}, {679, 389}, {100, 100, 580, 290}}, // bottom-right
            {smallest, {100, 190}, {110, 190}, smallest},          // the narrowest, left edge inwards
            {smallest, {300, 100}, {300, 110}, smallest},          // the lowest, top edge inwards
            {start, {699, 399}, {400, 420}, {100, 100, 600, 321}}, // a corner too narrow, tall enough
        };
        for (const auto &row : rows) {
            Window w(row.start);
            w.mouse(QEvent::MouseButtonPress, row.from, Qt::LeftButton);
            w.helper.activateOn(&w.widget); // taken on already: the drag goes on, and is followed once
            w.mouse(QEvent::MouseMove, row.to, Qt::LeftButton);
            w.mouse(QEvent::MouseButtonRelease, row.to, Qt::NoButton);
            QCOMPARE(w.widget.geometry(), row.expected);
        }
    }

    void hoverSetsTheCursor()
    {
        const Qt::WindowState normal = Qt::WindowNoState;
        const struct
        {
            QPoint point;
            Qt::WindowState state;
            Qt::CursorShape cursor;
        } rows[] = {
            {{101, 250}, normal, Qt::SizeHorCursor},
            {{698, 250}, normal, Qt::SizeHorCursor},
            {{400, 102}, normal, Qt::SizeVerCursor},
            {{400, 398}, normal, Qt::SizeVerCursor},
            {{101, 101}, normal, Qt::SizeFDiagCursor},
            {{698, 398}, normal, Qt::SizeFDiagCursor},
            {{698, 101}, normal, Qt::SizeBDiagCursor},
            {{101, 398}, normal, Qt::SizeBDiagCursor},
            // Off the edges the window's own cursor is taken back: a window then shows the arrow.
            {{400, 250}, normal, Qt::ArrowCursor},
            // Maximized or full screen (the whole offscreen screen), the cursor stays as it was.
            {{1, 250}, Qt::WindowMaximized, Qt::SizeVerCursor},
            {{1, 250}, Qt::WindowFullScreen, Qt::SizeVerCursor},
        };
        for (const auto &row : rows) {
            Window w;
            // A plain move onto the top edge first, so leaving the edges has a shape to take back.
            w.mouse(QEvent::MouseMove, {400, 100}, Qt::NoButton);
            QCOMPARE(w.widget.cursor().shape(), Qt::SizeVerCursor);
            w.widget.setWindowState(row.state);
            QCoreApplication::processEvents(); // the new geometry comes back from the platform
            QVERIFY(row.state == normal || w.widget.frameGeometry().topLeft() == QPoint(0, 0));
            w.hover(row.point);
            QCOMPARE(w.widget.cursor().shape(), row.cursor);
        }
    }
};

QTEST_MAIN(FramelessTest)
#include "tst_frameless.moc"
