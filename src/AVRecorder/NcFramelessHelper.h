#pragma once

#include <QHash>
#include <QObject>
#include <QPoint>
#include <QRect>
#include <QScopedPointer>

class QEvent;
class QHoverEvent;
class QMouseEvent;
class QRubberBand;
class QWidget;
class NcFramelessHelperPrivate;

// Which border zone of a window a point lies in. Each zone is mBorderWidth + 1
// pixels wide and the right and bottom zones reach one pixel past the frame,
// so a thin border is still easy to catch.
class NcCursorPosCalculator
{
public:
    NcCursorPosCalculator();
    void reset();
    // `globalMousePos` against the frame in global coordinates; true when on any edge.
    bool recalculate(const QPoint &globalMousePos, const QRect &frameRect);

    static int mBorderWidth;

    bool onEdges;
    bool onLeftEdge;
    bool onRightEdge;
    bool onTopEdge;
    bool onBottomEdge;
    bool onTopLeftEdge;
    bool onBottomLeftEdge;
    bool onTopRightEdge;
    bool onBottomRightEdge;
};

// The move and resize state of one window managed by NcFramelessHelper.
class NcWidgetData
{
public:
    NcWidgetData(NcFramelessHelperPrivate *d, QWidget *topLevelWidget);
    ~NcWidgetData();

    // Returns whether to swallow the event: never, the window's own handlers still see it.
    bool handleWidgetEvent(QEvent *event);
    // Creates or drops the rubber band as the helper's flags ask.
    void updateRubberBandStatus();

private:
    Q_DISABLE_COPY(NcWidgetData)

    void updateCursorShape(const QPoint &gMousePos);
    void resizeWidget(const QPoint &gMousePos);
    void moveWidget(const QPoint &gMousePos);
    void handleMousePressEvent(QMouseEvent *event);
    void handleMouseReleaseEvent(QMouseEvent *event);
    void handleMouseMoveEvent(QMouseEvent *event);
    void handleLeaveEvent(QEvent *event);
    void handleHoverMoveEvent(QHoverEvent *event);

    NcFramelessHelperPrivate *d;
    QWidget *mWidget;
    QRubberBand *mRubberBand = nullptr;
    bool mLeftButtonPressed = false;
    QPoint mDragPos; // press position minus the frame's top-left
    NcCursorPosCalculator mPressedMousePos;
    NcCursorPosCalculator mMoveMousePos;
    bool mCursorShapeChanged = false;
    Qt::WindowFlags mWindowFlags; // as they were when the helper took the window on
};

// Lets a window without title bar or frame be moved by dragging its body and
// resized by dragging its edges and corners. It only watches the window's
// events: the window still receives all of them.
class NcFramelessHelper : public QObject
{
    Q_OBJECT

public:
    explicit NcFramelessHelper(QObject *parent = nullptr);
    ~NcFramelessHelper() override;

    // A window already taken on is left as it is.
    void activateOn(QWidget *topLevelWidget);
    void removeFrom(QWidget *topLevelWidget);

    void setWidgetMovable(bool movable);
    bool isWidgetMovable() const;
    void setWidgetResizable(bool resizable);
    bool isWidgetResizable() const;
    void useRubberBandOnMove(bool use);
    bool isUsingRubberBandOnMove() const;
    void useRubberBandOnResize(bool use);
    bool isUsingRubberBandOnResisze() const;
    // Shared by every window of every helper.
    void setBorderWidth(int width);
    int borderWidth() const;

protected:
    bool eventFilter(QObject *obj, QEvent *event) override;

private:
    QScopedPointer<NcFramelessHelperPrivate> d;
};
