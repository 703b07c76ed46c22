#pragma once

#include <QObject>

// Finds the capture devices for the screen recorder in the background.
class AVFoundation : public QObject
{
    Q_OBJECT

public:
    explicit AVFoundation(QObject *parent = nullptr);
    void check();
};
