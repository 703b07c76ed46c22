#include "AVFoundation/AVFoundation.h"

AVFoundation::AVFoundation(QObject *parent)
    : QObject(parent)
{
}

// The device query arrives with the screen recorder.
void AVFoundation::check() {}
