#include "AVRecorder/Spinner.h"

#include <QGuiApplication>
#include <QPainter>
#include <QScreen>
#include <QStyle>
#include <QTimer>

namespace {
constexpr int dots = 12;
}

Spinner::Spinner(QWidget *parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
    , timer(new QTimer(this))
{
    setAttribute(Qt::WA_TranslucentBackground);
    setFixedSize(96, 96);
    setWindowTitle(tr("Preparing the recording"));
    connect(timer, &QTimer::timeout, this, [this] {
        head = (head + 1) % dots;
        update();
    });
}

void Spinner::showEvent(QShowEvent *event)
{
    if (const QScreen *screen = QGuiApplication::primaryScreen())
        setGeometry(QStyle::alignedRect(Qt::LeftToRight, Qt::AlignCenter, size(), screen->availableGeometry()));
    timer->start(80);
    QWidget::showEvent(event);
}

void Spinner::hideEvent(QHideEvent *event)
{
    timer->stop();
    QWidget::hideEvent(event);
}

void Spinner::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(0x1d, 0x1d, 0x1e, 220));
    painter.drawRoundedRect(rect(), 14, 14);
    painter.translate(width() / 2.0, height() / 2.0);
    for (int i = 0; i < dots; ++i) {
        // The dots behind the bright one fade out.
        const int age = (head - i + dots) % dots;
        painter.setBrush(QColor(255, 255, 255, 255 - age * 18));
        painter.drawEllipse(QPointF(0, -28), 5, 5);
        painter.rotate(360.0 / dots);
    }
}
