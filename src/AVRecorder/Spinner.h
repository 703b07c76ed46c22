#pragma once

#include <QWidget>

class QTimer;

// A busy indicator in a small window of its own: twelve dots, one of them
// bright, turning while the recording is put together.
class Spinner : public QWidget
{
    Q_OBJECT

public:
    explicit Spinner(QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;
    void showEvent(QShowEvent *event) override;
    void hideEvent(QHideEvent *event) override;

private:
    QTimer *timer;
    int head = 0;
};
