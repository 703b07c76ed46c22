#include "AVRecorder/StopDialog.h"

#include <QCloseEvent>
#include <QKeySequence>
#include <QPainter>
#include <QShortcut>
#include <QTimer>

#include "ui_StopDialog.h"

namespace {
constexpr int sphereCount = 5;
constexpr int sphereGap = 10;
constexpr int sphereTop = 38;
} // namespace

StopDialog::StopDialog(QWidget *parent)
    : QDialog(parent)
    , ui(new Ui_StopDialog)
    , sphere(QStringLiteral(":/resources/resources/sphere.png"))
    , timer(new QTimer(this))
{
    ui->setupUi(this);
    const QKeySequence stopKey(Qt::CTRL + Qt::Key_E);
    ui->btnStop->setToolTip(tr("Stop recording (%1)").arg(stopKey.toString(QKeySequence::NativeText)));
    connect(ui->btnStop, &QPushButton::clicked, this, &StopDialog::clickButtonStop);
    connect(new QShortcut(stopKey, this), &QShortcut::activated, this, &StopDialog::clickButtonStop);
    connect(timer, &QTimer::timeout, this, &StopDialog::update);
    timer->start(200);
}

StopDialog::~StopDialog()
{
    delete ui;
}

int StopDialog::litSphere() const
{
    for (int i = 0; i < sphereCount; ++i) {
        if (brightness[i] == 1.0)
            return i;
    }
    return -1;
}

void StopDialog::update()
{
    const int lit = litSphere();
    if (lit >= 0) {
        brightness[lit] = 0.0;
        brightness[(lit + 1) % sphereCount] = 1.0;
    }
    QDialog::update();
}

void StopDialog::clickButtonStop()
{
    emit stop();
}

void StopDialog::reject() {}

void StopDialog::paintEvent(QPaintEvent *event)
{
    QDialog::paintEvent(event);
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const int step = sphere.width() + sphereGap;
    int x = (width() - (sphereCount * step - sphereGap)) / 2;
    for (double value : brightness) {
        // A dim sphere still shows where the light will run.
        painter.setOpacity(value == 1.0 ? 1.0 : 0.22);
        painter.drawPixmap(x, sphereTop, sphere);
        x += step;
    }
}

void StopDialog::closeEvent(QCloseEvent *event)
{
    emit closeStop();
    event->accept();
}
