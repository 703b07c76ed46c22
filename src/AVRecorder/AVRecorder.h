#pragma once

#include <QColor>
#include <QMetaType>
#include <QProcessEnvironment>
#include <QRect>
#include <QString>
#include <QWidget>

#include "AVRecorder/NcFramelessHelper.h"

class QProcess;
class Spinner;
namespace Platform {
class ScreenCast;
}
class StopDialog;
class Ui_AVRecorder;

// The recorder: a half-transparent, frameless window the user places over
// the part of the screen to record, and the grabbers that record it. ffmpeg
// grabs the picture, sox the sound, and a last ffmpeg run puts both into one
// MPEG file, handed over with `done`.
class AVRecorder : public QWidget
{
    Q_OBJECT

public:
    struct ResultingData
    {
        QString audioFile;
        QString videoFile;
        QString resultFile;
        QRect geometry;
    };

    enum stopProcessType { stopNone = 0, stopVideo = 1, stopAudio = 2 };

    AVRecorder(QWidget *parent, QString appDir, QString tempDir);
    ~AVRecorder() override;

    void setBackgroundColor(QString color);
    void moveButtons();
    void startRecorder(QRect rect);
    void startRecorder();
    void onMultiDesktopScreens();
    void switchAudioCaptureDriver(bool enable);

    void grabVideo(QPoint pos);
    void grabAudio();
    void mergeAudioVideo();
    void stopSomeProcess(AVRecorder::stopProcessType type);
    // Ends every child at once (the recording is lost); the recorder stays.
    void endChildren();
    void sendDoneSignal();
    // Stops the video grabber and the audio grabber (types 1 and 2).
    void endGrabbers();

    // For the tests and the benchmark: the work files and the state.
    const QString &audioWorkFile() const
    {
        return audioFile;
    }
    const QString &videoWorkFile() const
    {
        return videoFile;
    }
    const QString &resultWorkFile() const
    {
        return resultFile;
    }
    bool isRecording() const
    {
        return recording;
    }
    StopDialog *stopWindow() const
    {
        return stopDialog;
    }
    QRect recordedGeometry() const
    {
        return outputGeometry;
    }
    const QString &screenInput() const
    {
        return inputScreen;
    }
    // The widget the user places: the window itself, or the frame inside
    // the full-screen layer where windows cannot be placed (Wayland).
    QWidget *regionWidget() const
    {
        return area;
    }
    // The desktop's token for the screen chosen in its sharing dialog, so
    // that the next recording does not ask again (Wayland).
    void setScreenCastToken(const QString &token)
    {
        screenCastToken = token;
    }
    qint64 pictureStartedMs() const
    {
        return videoStarted;
    }
    qint64 soundStartedMs() const
    {
        return audioStarted;
    }

signals:
    void done(AVRecorder::ResultingData);
    void done(QString);
    void error(int, QString);
    void close();
    // The desktop gave a new token for the shared screen: worth keeping.
    void screenCastTokenChanged(QString token);

public slots:
    void selectInputScreen();
    void readInputScreenErr();
    void finishedReadInputScreen(int exitCode);
    void parseInputScreen(QString output);
    void clickButtonStart();
    void clickButtonClose();
    void stop();
    void cancel();
    void printVideoOutput();
    void printVideoError();
    void printAudioOutput();
    void printAudioError();
    void printAudioVideoOutput();
    void printAudioVideoError();
    // The video grabber ended without being asked to: the recording ends
    // with `error`.
    void videoGrabberFailed();
    void watchVideoGrabber();

protected:
    // The buttons and the hint keep their places as the user stretches the window.
    void resizeEvent(QResizeEvent *event) override;
    // The layer: half-transparent grey with the region clear inside a frame.
    void paintEvent(QPaintEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    // Shows the window: as it is, or the layer over the whole screen.
    void showRegion();
    // Hides the region window and starts the grabbers.
    void beginGrab(QPoint pos);
    QRect regionGeometry() const;
    // The grab through the desktop's ScreenCast portal; the child starts
    // once the desktop has shared the screen.
    void grabScreenCast(const QRect &region);
    // The recording ends with `error`, its files removed.
    void endRecording(const QString &why);
    // Asks the video grabber to finish its file.
    void finishVideo();

    QProcess *startGrabber(const QString &program, const QStringList &arguments, void (AVRecorder::*output)(),
                           void (AVRecorder::*error)(),
                           const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment(),
                           QProcess *source = nullptr);

    Ui_AVRecorder *ui;
    QWidget *area = this;
    QColor layerColor;
    bool layerEmptied = false; // the layer is drawn empty before it goes
    QPoint layerPos;
    Platform::ScreenCast *screenCast = nullptr;
    QString screenCastToken;
    NcFramelessHelper framelessHelper;
    StopDialog *stopDialog = nullptr;
    Spinner *spinner = nullptr;
    int screenWidth = 0;
    int screenHeight = 0;

    QString appDir;
    QString tempDir;
    QString progName;
    QString inputScreen;
    QString audioFile;
    QString videoFile;
    QString resultFile;
    QProcess *screenProcess = nullptr;
    QProcess *videoProcess = nullptr;
    QProcess *castProcess = nullptr; // GStreamer feeding videoProcess (Wayland)
    QString castSaid;                // its last error
    QProcess *audioProcess = nullptr;
    QProcess *mergeProcess = nullptr;
    QRect outputGeometry;
    bool recording = false;
    ResultingData result;

    // When picture and sound began, in milliseconds since the epoch, as
    // ffmpeg and sox report it (0 until known): the merge lines them up.
    qint64 videoStarted = 0;
    qint64 audioStarted = 0;
    QString videoOutput; // ffmpeg's output until it has named its start
    QString videoSaid;   // the last line ffmpeg printed
};

Q_DECLARE_METATYPE(AVRecorder::ResultingData)
