#include "AVRecorder/NcFramelessHelper.h"

#include <QEvent>
#include <QHoverEvent>
#include <QMouseEvent>
#include <QRubberBand>
#include <QWidget>

class NcFramelessHelperPrivate
{
public:
    QHash<QWidget *, NcWidgetData *> mHashWidgetData;
    bool mWidgetMovable = true;
    bool mWidgetResizable = true;
    bool mUseRubberBandOnMove = false;
    bool mUseRubberBandOnResize = false;
};

int NcCursorPosCalculator::mBorderWidth = 5;

NcCursorPosCalculator::NcCursorPosCalculator()
{
    reset();
}

void NcCursorPosCalculator::reset()
{
    onEdges = onLeftEdge = onRightEdge = onTopEdge = onBottomEdge = false;
    onTopLeftEdge = onBottomLeftEdge = onTopRightEdge = onBottomRightEdge = false;
}

bool NcCursorPosCalculator::recalculate(const QPoint &globalMousePos, const QRect &frameRect)
{
    const int x = globalMousePos.x();
    const int y = globalMousePos.y();
    const int left = frameRect.left();
    const int top = frameRect.top();
    const int right = frameRect.left() + frameRect.width();
    const int bottom = frameRect.top() + frameRect.height();

    onLeftEdge = x >= left && x <= left + mBorderWidth;
    onRightEdge = x >= right - mBorderWidth && x <= right;
    onTopEdge = y >= top && y <= top + mBorderWidth;
    onBottomEdge = y >= bottom - mBorderWidth && y <= bottom;
    onTopLeftEdge = onTopEdge && onLeftEdge;
    onBottomLeftEdge = onBottomEdge && onLeftEdge;
    onTopRightEdge = onTopEdge && onRightEdge;
    onBottomRightEdge = onBottomEdge && onRightEdge;
    onEdges = onLeftEdge || onRightEdge || onTopEdge || onBottomEdge;
    return onEdges;
}

NcWidgetData::NcWidgetData(NcFramelessHelperPrivate *d, QWidget *topLevelWidget)
    : d(d)
    , mWidget(topLevelWidget)
    , mWindowFlags(topLevelWidget->windowFlags())
{
    // Without hover events the resize cursors would only show once a button is down.
    mWidget->setAttribute(Qt::WA_Hover);
    updateRubberBandStatus();
}

NcWidgetData::~NcWidgetData()
{
    delete mRubberBand;
}

bool NcWidgetData::handleWidgetEvent(QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        handleMousePressEvent(static_cast<QMouseEvent *>(event));
        break;
    case QEvent::MouseButtonRelease:
        handleMouseReleaseEvent(static_cast<QMouseEvent *>(event));
        break;
    case QEvent::MouseMove:
        handleMouseMoveEvent(static_cast<QMouseEvent *>(event));
        break;
    case QEvent::Leave:
        handleLeaveEvent(event);
        break;
    case QEvent::HoverMove:
        handleHoverMoveEvent(static_cast<QHoverEvent *>(event));
        break;
    default:
        break;
    }
    return false;
}

void NcWidgetData::updateRubberBandStatus()
{
    if (d->mUseRubberBandOnMove || d->mUseRubberBandOnResize) {
        if (!mRubberBand)
            mRubberBand = new QRubberBand(QRubberBand::Rectangle);
    } else {
        delete mRubberBand;
        mRubberBand = nullptr;
    }
}

void NcWidgetData::updateCursorShape(const QPoint &gMousePos)
{
    if (mWidget->isFullScreen() || mWidget->isMaximized())
        return;

    const NcCursorPosCalculator &at = mMoveMousePos;
    if (!mMoveMousePos.recalculate(gMousePos, mWidget->frameGeometry())) {
        if (mCursorShapeChanged) {
            mWidget->unsetCursor();
            mCursorShapeChanged = false;
        }
        return;
    }
    if (at.onTopLeftEdge || at.onBottomRightEdge)
        mWidget->setCursor(Qt::SizeFDiagCursor);
    else if (at.onTopRightEdge || at.onBottomLeftEdge)
        mWidget->setCursor(Qt::SizeBDiagCursor);
    else if (at.onLeftEdge || at.onRightEdge)
        mWidget->setCursor(Qt::SizeHorCursor);
    else
        mWidget->setCursor(Qt::SizeVerCursor);
    mCursorShapeChanged = true;
}

void NcWidgetData::resizeWidget(const QPoint &gMousePos)
{
    // A rubber band only counts once a drag has shown it; before that it holds no useful geometry.
    const bool onRubberBand = d->mUseRubberBandOnResize && mRubberBand && mRubberBand->isVisible();
    const QRect origin = onRubberBand ? mRubberBand->geometry() : mWidget->frameGeometry();
    const NcCursorPosCalculator &pressed = mPressedMousePos;

    QRect rect = origin;
    if (pressed.onLeftEdge)
        rect.setLeft(gMousePos.x());
    if (pressed.onRightEdge)
        rect.setRight(gMousePos.x());
    if (pressed.onTopEdge)
        rect.setTop(gMousePos.y());
    if (pressed.onBottomEdge)
        rect.setBottom(gMousePos.y());
    if (!rect.isValid())
        return;

    // Below the minimum the edge being dragged stays where it was; the other axis still follows.
    if (rect.width() < mWidget->minimumWidth()) {
        if (pressed.onLeftEdge)
            rect.setLeft(origin.left());
        else
            rect.setRight(origin.right());
    }
    if (rect.height() < mWidget->minimumHeight()) {
        if (pressed.onTopEdge)
            rect.setTop(origin.top());
        else
            rect.setBottom(origin.bottom());
    }

    if (d->mUseRubberBandOnResize && mRubberBand) {
        mRubberBand->setGeometry(rect);
        mRubberBand->show();
    } else {
        mWidget->setGeometry(rect);
    }
}

void NcWidgetData::moveWidget(const QPoint &gMousePos)
{
    const QPoint topLeft = gMousePos - mDragPos;
    if (d->mUseRubberBandOnMove && mRubberBand) {
        mRubberBand->setGeometry(QRect(topLeft, mWidget->frameGeometry().size()));
        mRubberBand->show();
    } else {
        mWidget->move(topLeft);
    }
}

void NcWidgetData::handleMousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    mLeftButtonPressed = true;
    const QRect frame = mWidget->frameGeometry();
    mPressedMousePos.recalculate(event->globalPos(), frame);
    mDragPos = event->globalPos() - frame.topLeft();
}

void NcWidgetData::handleMouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    mLeftButtonPressed = false;
    mPressedMousePos.reset();
    if (mRubberBand && mRubberBand->isVisible()) {
        mRubberBand->hide();
        mWidget->setGeometry(mRubberBand->geometry());
    }
}

void NcWidgetData::handleMouseMoveEvent(QMouseEvent *event)
{
    if (mLeftButtonPressed) {
        if (d->mWidgetResizable && mPressedMousePos.onEdges)
            resizeWidget(event->globalPos());
        else if (d->mWidgetMovable)
            moveWidget(event->globalPos());
    } else if (d->mWidgetResizable) {
        updateCursorShape(event->globalPos());
    }
}

void NcWidgetData::handleLeaveEvent(QEvent *)
{
    if (!mLeftButtonPressed)
        mWidget->unsetCursor();
}

void NcWidgetData::handleHoverMoveEvent(QHoverEvent *event)
{
    if (!mLeftButtonPressed && d->mWidgetResizable)
        updateCursorShape(mWidget->mapToGlobal(event->pos()));
}

NcFramelessHelper::NcFramelessHelper(QObject *parent)
    : QObject(parent)
    , d(new NcFramelessHelperPrivate)
{
}

NcFramelessHelper::~NcFramelessHelper()
{
    qDeleteAll(d->mHashWidgetData);
    d->mHashWidgetData.clear();
}

void NcFramelessHelper::activateOn(QWidget *topLevelWidget)
{
    if (d->mHashWidgetData.contains(topLevelWidget))
        return;
    d->mHashWidgetData.insert(topLevelWidget, new NcWidgetData(d.data(), topLevelWidget));
    topLevelWidget->installEventFilter(this);
}

void NcFramelessHelper::removeFrom(QWidget *topLevelWidget)
{
    delete d->mHashWidgetData.take(topLevelWidget);
    topLevelWidget->removeEventFilter(this);
}

void NcFramelessHelper::setWidgetMovable(bool movable)
{
    d->mWidgetMovable = movable;
}

bool NcFramelessHelper::isWidgetMovable() const
{
    return d->mWidgetMovable;
}

void NcFramelessHelper::setWidgetResizable(bool resizable)
{
    d->mWidgetResizable = resizable;
}

bool NcFramelessHelper::isWidgetResizable() const
{
    return d->mWidgetResizable;
}

void NcFramelessHelper::useRubberBandOnMove(bool use)
{
    d->mUseRubberBandOnMove = use;
    for (NcWidgetData *data : qAsConst(d->mHashWidgetData))
        data->updateRubberBandStatus();
}

bool NcFramelessHelper::isUsingRubberBandOnMove() const
{
    return d->mUseRubberBandOnMove;
}

void NcFramelessHelper::useRubberBandOnResize(bool use)
{
    d->mUseRubberBandOnResize = use;
    for (NcWidgetData *data : qAsConst(d->mHashWidgetData))
        data->updateRubberBandStatus();
}

bool NcFramelessHelper::isUsingRubberBandOnResisze() const
{
    return d->mUseRubberBandOnResize;
}

void NcFramelessHelper::setBorderWidth(int width)
{
    NcCursorPosCalculator::mBorderWidth = width;
}

int NcFramelessHelper::borderWidth() const
{
    return NcCursorPosCalculator::mBorderWidth;
}

bool NcFramelessHelper::eventFilter(QObject *obj, QEvent *event)
{
    switch (event->type()) {
    case QEvent::MouseButtonPress:
    case QEvent::MouseButtonRelease:
    case QEvent::MouseMove:
    case QEvent::Leave:
    case QEvent::HoverMove:
        if (NcWidgetData *data = d->mHashWidgetData.value(qobject_cast<QWidget *>(obj)))
            return data->handleWidgetEvent(event);
        break;
    default:
        break;
    }
    return false;
}
