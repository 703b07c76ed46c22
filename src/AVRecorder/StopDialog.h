#pragma once

#include <QDialog>
#include <QPixmap>

class QTimer;
class Ui_StopDialog;

// The small window that stays in the screen's top-right corner while a
// recording runs: a light running along five spheres and the Stop button.
class StopDialog : public QDialog
{
    Q_OBJECT

public:
    explicit StopDialog(QWidget *parent = nullptr);
    ~StopDialog() override;

    // The sphere that is lit, 0 to 4.
    int litSphere() const;

signals:
    void stop();
    void closeStop();

public slots:
    void update();
    void clickButtonStop();
    // Escape would only hide the window and leave the recording running
    // with nothing to stop it; the window's close button cancels instead.
    void reject() override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    Ui_StopDialog *ui;
    QPixmap sphere;
    QTimer *timer;
    double brightness[5] = {1.0, 0.0, 0.0, 0.0, 0.0};
};
