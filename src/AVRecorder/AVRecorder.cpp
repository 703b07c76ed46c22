#include "AVRecorder/AVRecorder.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QGuiApplication>
#include <QKeySequence>
#include <QMessageBox>
#include <QPainter>
#include <QProcess>
#include <QScreen>
#include <QShortcut>
#include <QTimer>
#include <QWindow>

#include <memory>
#include <utility>

#include "AVRecorder/RecorderRules.h"
#include "AVRecorder/Spinner.h"
#include "AVRecorder/StopDialog.h"
#include "Fiofostis/DownloaderRules.h"
#include "Platform/Platform.h"
#include "Platform/PrivateFiles.h"
#include "ui_AVRecorder.h"

#ifndef Q_OS_MACOS
#include "Platform/ScreenCast.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>
#endif

namespace {
// ffmpeg is asked to finish its file and gets this long to do it.
constexpr int quitWaitMs = 30000;

// Output bytes up to the first zero byte, as Latin-1.
QString latin1Text(const QByteArray &bytes)
{
    const int zero = bytes.indexOf('\0');
    return QString::fromLatin1(zero < 0 ? bytes : bytes.left(zero));
}

// A WAV file that holds no sound beyond its header.
bool holdsSound(const QString &wavFile)
{
    return QFileInfo(wavFile).size() > 44;
}
} // namespace

AVRecorder::AVRecorder(QWidget *parent, QString appDir, QString tempDir)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
    , ui(new Ui_AVRecorder)
    , appDir(appDir)
    , tempDir(tempDir)
{
    ui->setupUi(this);
    QCoreApplication::addLibraryPath(appDir + QDir::separator() + QStringLiteral("plugins"));

    if (Platform::regionIsLayer()) {
        // The window covers the screen, so its coordinates are the
        // screen's; the region is a frame inside it, placed as the window
        // would be.
        area = new QWidget(this);
        area->setObjectName(QStringLiteral("recordingRegion"));
        area->setMinimumSize(minimumSize());
        for (QWidget *child : {static_cast<QWidget *>(ui->btnClose), static_cast<QWidget *>(ui->btnStart),
                               static_cast<QWidget *>(ui->textHint)})
            child->setParent(area);
        setAttribute(Qt::WA_TranslucentBackground);
        area->installEventFilter(this);
        winId(); // the window's handle, to hear the desktop's frame callbacks
        windowHandle()->installEventFilter(this);
    }
    framelessHelper.activateOn(area);
    area->resize(481, 179);
    if (area == this) // the layer draws its own half-transparent grey
        setWindowOpacity(0.53);
    setBackgroundColor(QStringLiteral("gray"));

    ui->btnClose->setFlat(true);
    ui->textHint->setAlignment(Qt::AlignCenter);
    // The hint is part of the layer the user grabs.
    ui->textHint->setAttribute(Qt::WA_TransparentForMouseEvents);
    moveButtons();
    framelessHelper.activateOn(area);

    if (const QScreen *screen = QGuiApplication::primaryScreen()) {
        screenWidth = screen->geometry().width();
        screenHeight = screen->geometry().height();
        if (area != this)
            setGeometry(screen->geometry());
        // A first recording opens in the middle of the screen.
        area->move(screen->geometry().center() - area->rect().center());
    }

    progName = DownloaderRules::ffmpegPath(QCoreApplication::applicationDirPath(), Platform::ffmpegBuild());
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "AVRecorder"
             << ":"
             << "progName"
             << ":" << progName;
    inputScreen = QStringLiteral("0");
    switchAudioCaptureDriver(true);
    const QString name = RecorderRules::workFileName(tempDir, QDateTime::currentDateTime());
    const QString base = tempDir + QDir::separator() + name;
    audioFile = base + QStringLiteral("_a.wav");
    videoFile = base + QStringLiteral("_v.mpg");
    resultFile = base + QStringLiteral("_res.mpg");

    stopDialog = new StopDialog(nullptr);
    stopDialog->hide();
    connect(stopDialog, &StopDialog::stop, this, &AVRecorder::stop);
    connect(stopDialog, &StopDialog::closeStop, this, &AVRecorder::cancel);
    connect(ui->btnStart, &QPushButton::clicked, this, &AVRecorder::clickButtonStart);
    connect(ui->btnClose, &QPushButton::clicked, this, &AVRecorder::clickButtonClose);

    const QKeySequence startKey(Qt::CTRL + Qt::Key_B);
    ui->btnStart->setToolTip(tr("Start recording (%1)").arg(startKey.toString(QKeySequence::NativeText)));
    connect(new QShortcut(startKey, this), &QShortcut::activated, this, &AVRecorder::clickButtonStart);
}

AVRecorder::~AVRecorder()
{
    // A recorder let go while it records takes its grabbers with it.
    endChildren();
    for (QProcess *process : {screenProcess, castProcess, videoProcess, audioProcess, mergeProcess})
        delete process;
    delete stopDialog;
    delete spinner;
    delete ui;
}

void AVRecorder::endChildren()
{
    for (QProcess *process : {screenProcess, castProcess, videoProcess, audioProcess, mergeProcess}) {
        if (process) {
            process->disconnect(this);
            static_cast<Platform::ChildProcess *>(process)->endGroup(0);
        }
    }
}

void AVRecorder::setBackgroundColor(QString color)
{
    if (area != this) {
        // The layer's own drawing: grey as half-transparent as the window
        // elsewhere, or nothing.
        layerColor = color == QLatin1String("none") ? QColor(Qt::transparent) : QColor(color);
        layerColor.setAlphaF(layerColor.alphaF() * 0.53);
        update();
        return;
    }
    setStyleSheet(QStringLiteral("* { background-color: ") + color + QStringLiteral("; }"));
}

void AVRecorder::moveButtons()
{
    const QSize size = area->size();
    ui->btnClose->move(RecorderRules::closeButtonPos(size));
    ui->btnStart->move(RecorderRules::startButtonPos(size, ui->btnStart->size()));
    ui->textHint->move(RecorderRules::hintPos(size, ui->textHint->size()));
}

void AVRecorder::paintEvent(QPaintEvent *event)
{
    if (area == this) {
        QWidget::paintEvent(event);
        return;
    }
    QPainter painter(this);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    if (layerEmptied) {
        painter.fillRect(rect(), Qt::transparent);
        return;
    }
    painter.fillRect(rect(), layerColor);
    const QRect region = area->geometry();
    painter.fillRect(region, Qt::transparent);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setPen(QPen(Qt::white, 2, Qt::DashLine));
    painter.drawRect(region.adjusted(1, 1, -1, -1));
}

bool AVRecorder::eventFilter(QObject *watched, QEvent *event)
{
    if (layerEmptied && watched == windowHandle() && event->type() == QEvent::UpdateRequest)
        QTimer::singleShot(0, this, [this] { beginGrab(layerPos); });
    if (watched == area && (event->type() == QEvent::Move || event->type() == QEvent::Resize)) {
        if (event->type() == QEvent::Resize)
            moveButtons();
        update();
    }
    return QWidget::eventFilter(watched, event);
}

void AVRecorder::showRegion()
{
    if (area != this)
        showFullScreen();
    else
        show();
}

QRect AVRecorder::regionGeometry() const
{
    return area->geometry();
}

void AVRecorder::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    moveButtons();
}

void AVRecorder::startRecorder(QRect rect)
{
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "startRecorder"
             << ":"
             << "orig geometry"
             << ":" << geometry();
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "startRecorder"
             << ":"
             << "new geometry"
             << ":" << rect;
    bool changed = false;
    if (area->size() != rect.size()) {
        area->resize(rect.size());
        changed = true;
    }
    if (area->pos() != rect.topLeft()) {
        area->move(rect.topLeft());
        changed = true;
    }
    if (changed)
        moveButtons();
    startRecorder();
}

void AVRecorder::startRecorder()
{
    onMultiDesktopScreens();
    selectInputScreen();
}

void AVRecorder::onMultiDesktopScreens()
{
    const int screens = QGuiApplication::screens().size();
    if (screens < 2)
        return;
    setBackgroundColor(QStringLiteral("none"));
    const int answer = QMessageBox::warning(
        this, QStringLiteral("Monitors number: ") + QString::number(screens),
        QStringLiteral("It appears you computer is connected to more than one monitor.<br>In order for the KV "
                       "Recorder to work correctly, you must have only one active monitor."),
        QMessageBox::Abort | QMessageBox::Ignore, QMessageBox::Abort);
    if (answer == QMessageBox::Ignore)
        setBackgroundColor(QStringLiteral("gray"));
    else
        clickButtonClose();
}

void AVRecorder::switchAudioCaptureDriver(bool enable)
{
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "switchAudioCaptureDriver"
             << ":"
             << "action"
             << ":" << (enable ? "true" : "false");
    if (!Platform::audioCaptureDriverScripts()) {
        Platform::switchSoundLoopback(enable);
        return;
    }
    const bool soundflower = Platform::macOSOlderThan(10, 12);
    const QString sep = QDir::separator();
    const QString script = appDir + sep + (soundflower ? QStringLiteral("SoundFlower") : QStringLiteral("iShowU")) +
                           sep + (soundflower ? QStringLiteral("sf") : QStringLiteral("su")) + QStringLiteral("_") +
                           (enable ? QStringLiteral("enable") : QStringLiteral("disable")) + QStringLiteral(".scpt");
    QProcess::startDetached(QStringLiteral("/usr/bin/osascript"),
                            {QStringLiteral("-l"), QStringLiteral("AppleScript"), script});
}

void AVRecorder::selectInputScreen()
{
    // The X display is the screen itself: there is no list to ask for.
    if (!Platform::screenDevicesListed()) {
        inputScreen = Platform::screenGrabDisplay();
        finishedReadInputScreen(0);
        return;
    }
    delete screenProcess;
    screenProcess = new Platform::ChildProcess;
    connect(screenProcess, &QProcess::readyReadStandardError, this, &AVRecorder::readInputScreenErr);
    connect(screenProcess, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this](int exitCode) { finishedReadInputScreen(exitCode); });
    screenProcess->start(progName, RecorderRules::deviceListArguments(), QIODevice::ReadWrite);
}

void AVRecorder::readInputScreenErr()
{
    parseInputScreen(latin1Text(screenProcess->readAllStandardError()));
}

void AVRecorder::parseInputScreen(QString output)
{
    if (!output.contains(QStringLiteral("Capture screen 0")))
        return;
    inputScreen = RecorderRules::inputScreen(output, inputScreen);
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "parseInputScreen"
             << ":"
             << "found inputScreen"
             << ":" << inputScreen;
}

void AVRecorder::finishedReadInputScreen(int)
{
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "finishedReadInputScreen"
             << ":"
             << "inputScreen set as:" << inputScreen;
    showRegion();
}

void AVRecorder::clickButtonStart()
{
    if (recording)
        return;
    outputGeometry = regionGeometry();
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "clickButtonStart"
             << ":"
             << "output.geometry"
             << ":" << outputGeometry;
    // ffmpeg can only cut what is on the screen: a window hanging over an
    // edge records the part that is on it.
    const QRect onScreen = RecorderRules::clippedRegion(outputGeometry, QSize(screenWidth, screenHeight));
    if (onScreen != outputGeometry && !onScreen.isEmpty()) {
        qCritical() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "clickButtonStart"
                    << ":"
                    << "output.geometry"
                    << ":" << outputGeometry;
        outputGeometry = onScreen;
        area->setGeometry(outputGeometry);
    }
    const QPoint pos = outputGeometry.topLeft();
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "clickButtonStart"
             << ":"
             << "pos"
             << ":" << pos;

    recording = true;
    if (area != this && isVisible() && windowHandle()) {
        // The layer goes in two steps, so that no frame of the recording
        // shows it: it is emptied, and once the desktop has shown it empty
        // (its next frame callback) it is hidden and the grab begins.
        layerEmptied = true;
        area->hide();
        repaint();
        QTimer::singleShot(1000, this, [this, pos] { beginGrab(pos); }); // should no frame callback come
        windowHandle()->requestUpdate();
        layerPos = pos;
        return;
    }
    beginGrab(pos);
}

void AVRecorder::beginGrab(QPoint pos)
{
    if (!recording || (area != this && !layerEmptied))
        return;
    hide();
    if (layerEmptied) {
        layerEmptied = false;
        area->show();
    }

    stopDialog->setWindowFlags(stopDialog->windowFlags() | Qt::WindowStaysOnTopHint);
    stopDialog->show();
    stopDialog->move(RecorderRules::stopDialogPos(screenWidth, stopDialog->width()));

    grabVideo(pos);
    grabAudio();
}

void AVRecorder::clickButtonClose()
{
    if (recording)
        endGrabbers();
    switchAudioCaptureDriver(false);
    emit close();
    hide();
}

QProcess *AVRecorder::startGrabber(const QString &program, const QStringList &arguments, void (AVRecorder::*output)(),
                                   void (AVRecorder::*error)(), const QProcessEnvironment &environment,
                                   QProcess *source)
{
    auto *process = new Platform::ChildProcess;
    if (source)
        source->setStandardOutputProcess(process);
    process->setProcessEnvironment(environment);
    connect(process, &QProcess::readyReadStandardOutput, this, output);
    connect(process, &QProcess::readyReadStandardError, this, error);
    process->setProcessChannelMode(QProcess::MergedChannels);
    process->start(program, arguments, QIODevice::ReadWrite);
    return process;
}

void AVRecorder::grabVideo(QPoint pos)
{
    stopSomeProcess(stopVideo);
    QFile::remove(videoFile);
    videoStarted = 0;
    videoOutput.clear();

    const QRect region(pos, outputGeometry.isValid() ? outputGeometry.size() : area->size());
    if (Platform::screenGrabFormat() == QLatin1String("pipewire")) {
        grabScreenCast(region);
        return;
    }
    const QStringList arguments = RecorderRules::grabVideoArguments(
        Platform::screenGrabFormat(), inputScreen, RecorderRules::grabFilter(QSize(screenWidth, screenHeight), region),
        videoFile);
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "grabVideo"
             << ":"
             << "arguments"
             << ":" << arguments;
    videoProcess = startGrabber(progName, arguments, &AVRecorder::printVideoOutput, &AVRecorder::printVideoError);
    watchVideoGrabber();
}

void AVRecorder::watchVideoGrabber()
{
    // ffmpeg ends only when asked to; ending by itself, or not starting at
    // all, it cannot grab this screen.
    connect(videoProcess, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &AVRecorder::videoGrabberFailed);
    // Queued: QProcess goes on using itself after telling it did not start,
    // and ending the recording deletes it.
    connect(
        videoProcess, &QProcess::errorOccurred, this,
        [this](QProcess::ProcessError error) {
            if (error == QProcess::FailedToStart)
                videoGrabberFailed();
        },
        Qt::QueuedConnection);
}

void AVRecorder::grabScreenCast(const QRect &region)
{
#ifndef Q_OS_MACOS
    delete screenCast;
    screenCast = new Platform::ScreenCast(this);
    connect(screenCast, &Platform::ScreenCast::failed, this, &AVRecorder::endRecording);
    connect(screenCast, &Platform::ScreenCast::ready, this,
            [this, region](int descriptor, quint32 node, QSize size, QString token) {
                if (!token.isEmpty() && token != screenCastToken) {
                    screenCastToken = token;
                    emit screenCastTokenChanged(token);
                }
                if (!recording) {
                    ::close(descriptor);
                    return;
                }
                // The region lies on this screen; another one shared (of
                // several) would give another picture, stretched.
                if (size.isValid() && qAbs(qint64(size.width()) * screenHeight - qint64(size.height()) * screenWidth) >
                                          qint64(size.height()) * screenWidth / 50) {
                    ::close(descriptor);
                    screenCastToken.clear(); // the next recording asks again
                    emit screenCastTokenChanged(QString());
                    endRecording(QStringLiteral("The desktop shared another screen than the one the region is on. "
                                                "Share that screen when the desktop asks."));
                    return;
                }
                const QStringList cast = RecorderRules::screenCastArguments(
                    descriptor, node, QSize(screenWidth, screenHeight), region);
                const QStringList encode = RecorderRules::screenCastEncodeArguments(
                    RecorderRules::clippedRegion(region, QSize(screenWidth, screenHeight)).size(), videoFile);
                qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "grabVideo"
                         << ":"
                         << "arguments"
                         << ":" << cast << "|" << encode;
                // GStreamer reads the stream and hands ffmpeg the frames.
                castSaid.clear();
                castProcess = new Platform::ChildProcess;
                connect(castProcess, &QProcess::readyReadStandardError, this, [this] {
                    const QString text = latin1Text(castProcess->readAllStandardError()).trimmed();
                    if (!text.isEmpty())
                        castSaid = text.section(QLatin1Char('\n'), 0, 0);
                    qCritical() << "!!! ERROR: "
                                << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "grabVideo"
                                << ":" << text;
                });
                videoProcess = startGrabber(progName, encode, &AVRecorder::printVideoOutput,
                                            &AVRecorder::printVideoError,
                                            QProcessEnvironment::systemEnvironment(), castProcess);
                // GStreamer starts once ffmpeg runs (it says so at once), so
                // that the first frame is read when it comes: ffmpeg's word
                // of it tells when the picture began.
                auto pending = std::make_shared<bool>(true);
                connect(videoProcess, &QProcess::readyReadStandardOutput, castProcess,
                        [this, cast, descriptor, pending] {
                            if (!std::exchange(*pending, false))
                                return;
                            ::fcntl(descriptor, F_SETFD, 0); // this child, and only it, inherits it
                            castProcess->start(QStringLiteral("gst-launch-1.0"), cast, QIODevice::ReadOnly);
                            // The child has its copy of the stream's connection.
                            ::close(descriptor);
                        });
                connect(videoProcess, &QProcess::errorOccurred, castProcess, [descriptor, pending] {
                    if (std::exchange(*pending, false))
                        ::close(descriptor);
                });
                // Queued, as for ffmpeg (watchVideoGrabber).
                connect(
                    castProcess, &QProcess::errorOccurred, this,
                    [this](QProcess::ProcessError error) {
                        if (error == QProcess::FailedToStart && castProcess) {
                            castSaid = castProcess->errorString();
                            videoGrabberFailed();
                        }
                    },
                    Qt::QueuedConnection);
                watchVideoGrabber();
            });
    screenCast->open(screenCastToken);
#else
    Q_UNUSED(region)
#endif
}

void AVRecorder::finishVideo()
{
    if (!videoProcess)
        return;
#ifndef Q_OS_MACOS
    // gst-launch, run with "-e", ends its stream cleanly on an interrupt;
    // ffmpeg then finishes the file at the stream's end.
    // Once only: a second interrupt ends gst-launch before its stream has.
    // Not started yet, there is no stream to end: ffmpeg goes at once.
    if (castProcess) {
        if (castProcess->property("interrupted").toBool())
            return;
        castProcess->setProperty("interrupted", true);
        if (castProcess->processId() > 0)
            ::kill(pid_t(castProcess->processId()), SIGINT);
        else
            videoProcess->terminate();
        return;
    }
#endif
    // "q" is ffmpeg's own quit key: it finishes the file properly.
    videoProcess->write("q");
}

void AVRecorder::videoGrabberFailed()
{
    if (!recording || !videoProcess)
        return;
    videoProcess->disconnect(this);
    printVideoOutput();
    endRecording(!castSaid.isEmpty()                             ? castSaid
                 : videoProcess->error() == QProcess::FailedToStart ? videoProcess->errorString()
                                                                    : videoSaid);
}

void AVRecorder::endRecording(const QString &said)
{
    if (!recording)
        return;
    endGrabbers();
    for (const QString &file : {videoFile, audioFile, resultFile})
        QFile::remove(file);
    recording = false;
    switchAudioCaptureDriver(false);
    stopDialog->hide();
    qCritical() << "!!! ERROR: "
                << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "videoGrabberFailed"
                << ":" << said;
    emit error(1, QStringLiteral("The screen could not be recorded:<br><i>") + said.toHtmlEscaped() +
                      QStringLiteral("</i>"));
}

void AVRecorder::grabAudio()
{
    stopSomeProcess(stopAudio);
    QFile::remove(audioFile);
    audioStarted = 0;

    const QString sox = appDir + QDir::separator() + QStringLiteral("sox") + QDir::separator() + QStringLiteral("sox");
    const QStringList arguments{QStringLiteral("-d"), audioFile};
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "grabAudio"
             << ":"
             << "externalApp"
             << ":" << sox;
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "grabAudio"
             << ":"
             << "arguments"
             << ":" << arguments;
    // A sound server hands a recording its sound in blocks as long as it
    // likes (up to seconds); short ones tell when the sound began.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PULSE_LATENCY_MSEC"), QStringLiteral("30"));
    audioProcess =
        startGrabber(sox, arguments, &AVRecorder::printAudioOutput, &AVRecorder::printAudioError, environment);
}

void AVRecorder::stopSomeProcess(AVRecorder::stopProcessType type)
{
    if (type == stopVideo && videoProcess) {
        videoProcess->disconnect(this); // its end is wanted now
        finishVideo();
        videoProcess->waitForFinished(quitWaitMs);
        printVideoOutput();
        videoProcess->close();
        delete videoProcess;
        videoProcess = nullptr;
        if (castProcess) {
            castProcess->disconnect(this);
            static_cast<Platform::ChildProcess *>(castProcess)->endGroup(quitWaitMs);
            delete castProcess;
            castProcess = nullptr;
        }
#ifndef Q_OS_MACOS
        if (screenCast)
            screenCast->close();
#endif
    } else if (type == stopAudio && audioProcess) {
        // sox ends cleanly on a termination request and writes the length
        // into the file's header.
        audioProcess->terminate();
        audioProcess->waitForFinished(quitWaitMs);
        audioProcess->close();
        delete audioProcess;
        audioProcess = nullptr;
    }
}

void AVRecorder::endGrabbers()
{
#ifndef Q_OS_MACOS
    // Still waiting for the desktop: nothing is to come.
    if (screenCast && !videoProcess)
        screenCast->close();
#endif
    // Both are told at once and finish their files side by side.
    finishVideo();
    if (audioProcess)
        audioProcess->terminate();
    stopSomeProcess(stopVideo);
    stopSomeProcess(stopAudio);
}

void AVRecorder::stop()
{
    if (!recording)
        return;
    // The merge keeps the window alive for a while: a second Stop must not
    // come in the middle of it.
    stopDialog->hide();
    endGrabbers();
    mergeAudioVideo();
    switchAudioCaptureDriver(false);
    sendDoneSignal();
}

void AVRecorder::mergeAudioVideo()
{
    stopSomeProcess(stopNone);
    QFile::remove(resultFile);

    mergeProcess = new Platform::ChildProcess;
    connect(mergeProcess, &QProcess::readyReadStandardOutput, this, &AVRecorder::printAudioVideoOutput);
    connect(mergeProcess, &QProcess::readyReadStandardError, this, &AVRecorder::printAudioVideoError);

    if (!spinner)
        spinner = new Spinner;
    spinner->show();

    // The grabbers' files are given a moment to be closed.
    const QDateTime until = QDateTime::currentDateTime().addSecs(2);
    while (QDateTime::currentDateTime() < until)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
    // The program is ending: no merge is started any more.
    if (Platform::terminationRequested()) {
        delete mergeProcess;
        mergeProcess = nullptr;
        recording = false;
        spinner->hide();
        return;
    }

    // A machine without sound still gets its picture.
    const QString sound = holdsSound(audioFile) ? audioFile : QString();
    const qint64 shift = RecorderRules::audioShift(videoStarted, audioStarted);
    const QStringList arguments = RecorderRules::mergeArguments(videoFile, sound, resultFile, shift);
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "mergeAudioVideo"
             << ":"
             << "arguments"
             << ":" << arguments << "picture started" << videoStarted << "sound started" << audioStarted;

    mergeProcess->setProcessChannelMode(QProcess::MergedChannels);
    mergeProcess->start(progName, arguments, QIODevice::ReadWrite);
    mergeProcess->waitForFinished(quitWaitMs);
    printAudioVideoOutput();
    mergeProcess->close();
    delete mergeProcess;
    mergeProcess = nullptr;
    // The grabbers wrote with the umask's modes; a recording is the user's alone.
    for (const QString &file : {videoFile, audioFile, resultFile})
        Platform::makePrivate(file);

    recording = false;
    spinner->hide();
}

void AVRecorder::sendDoneSignal()
{
    result.audioFile = audioFile;
    result.videoFile = videoFile;
    result.resultFile = resultFile;
    result.geometry = outputGeometry;
    emit done(result);
    stopDialog->hide();
    hide();
}

void AVRecorder::cancel()
{
    if (recording) {
        endGrabbers();
        for (const QString &file : {videoFile, audioFile, resultFile})
            QFile::remove(file);
        switchAudioCaptureDriver(false);
    }
    emit close();
    stopDialog->hide();
}

void AVRecorder::printVideoOutput()
{
    if (!videoProcess)
        return;
    const QString text = latin1Text(videoProcess->readAllStandardOutput());
    if (text.trimmed().isEmpty())
        return;
    videoSaid = text.trimmed().section(QLatin1Char('\n'), -1);
    if (videoStarted == 0) {
        // The description ffmpeg prints first, not the progress after it;
        // GStreamer tells when its first picture reaches the file.
        videoOutput = (videoOutput + text).right(4096);
        if (screenCast)
            videoStarted = RecorderRules::screenCastStarted(videoOutput) ? QDateTime::currentMSecsSinceEpoch() : 0;
        else
            videoStarted = RecorderRules::videoStartMs(videoOutput);
    }
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "printVideoOutput"
             << ":" << text;
}

void AVRecorder::printVideoError()
{
    qCritical() << "!!! ERROR: "
                << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "printVideoError"
                << ":" << latin1Text(videoProcess->readAllStandardError());
}

void AVRecorder::printAudioOutput()
{
    if (!audioProcess)
        return;
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    const QString text = latin1Text(audioProcess->readAllStandardOutput());
    // sox writes each progress line at once, as soon as it has read from
    // the device: the time it arrives tells when the sound began.
    audioStarted = RecorderRules::audioStartMs(text, now, audioStarted);
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "printAudioOutput"
             << ":" << text;
}

void AVRecorder::printAudioError()
{
    qCritical() << "!!! ERROR: "
                << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "printAudioError"
                << ":" << latin1Text(audioProcess->readAllStandardError());
    stopDialog->hide();
}

void AVRecorder::printAudioVideoOutput()
{
    if (!mergeProcess)
        return;
    qDebug() << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "printAudioVideoOutput"
             << ":" << latin1Text(mergeProcess->readAllStandardOutput());
}

void AVRecorder::printAudioVideoError()
{
    qCritical() << "!!! ERROR: "
                << "src/AVRecorder/AVRecorder.cpp" << __LINE__ << "printAudioVideoError"
                << ":" << latin1Text(mergeProcess->readAllStandardError());
    stopDialog->hide();
}
