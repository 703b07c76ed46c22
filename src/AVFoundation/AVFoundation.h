#pragma once

#include <QString>
#include <QWidget>

class QProcess;

// Checks, each time the main window is shown, that the screen and the sound
// the computer plays can be captured. On macOS it reads ffmpeg's device list
// and offers to install the audio capture driver when it is missing; where
// the sound server provides the loopback itself, the capture counts as found
// at once. Never shown.
class AVFoundation : public QWidget
{
    Q_OBJECT

public:
    explicit AVFoundation(QWidget *parent = nullptr);
    ~AVFoundation() override;

    void check();
    void selectInputScreen(QString output);
    void selectAudioCapture(QString output);

    const QString &screenInput() const
    {
        return inputScreen;
    }
    bool hasAudioCapture() const
    {
        return audioCaptureFound;
    }

signals:
    void next();
    void progress();
    void finish();

public slots:
    void processOutput();
    void processAudioCapture(int exitCode);
    void postInstallAudioCapture(int exitCode);

private:
    QProcess *process = nullptr;
    QString inputScreen;
    bool oldOS;
    bool audioCaptureFound = false;
    int audioDriver; // 1 Soundflower, 0 iShowU Audio Capture
};
