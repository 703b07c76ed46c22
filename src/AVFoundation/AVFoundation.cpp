#include "AVFoundation/AVFoundation.h"

#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QMessageBox>
#include <QProcess>

#include "AVRecorder/RecorderRules.h"
#include "Fiofostis/DownloaderRules.h"
#include "Platform/Platform.h"

AVFoundation::AVFoundation(QWidget *parent)
    : QWidget(parent)
    , oldOS(Platform::macOSOlderThan(10, 8))
    , audioDriver(Platform::macOSOlderThan(10, 12) ? 1 : 0)
{
}

AVFoundation::~AVFoundation()
{
    if (process) {
        process->disconnect(this);
        process->kill();
        process->waitForFinished(1000);
        delete process;
    }
}

void AVFoundation::check()
{
    inputScreen = QStringLiteral("0");
    audioCaptureFound = false;
    // The X display needs no device list, and the sound server's monitor
    // needs no driver.
    if (!Platform::screenDevicesListed()) {
        inputScreen = Platform::screenGrabDisplay();
        audioCaptureFound = true;
        processAudioCapture(0);
        return;
    }
    process = new QProcess;
    connect(process, &QProcess::readyReadStandardError, this, &AVFoundation::processOutput);
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this](int exitCode) { processAudioCapture(exitCode); });
    const QString program = QDir::toNativeSeparators(
        DownloaderRules::ffmpegPath(QCoreApplication::applicationDirPath(), Platform::ffmpegBuild()));
    process->start(program, RecorderRules::deviceListArguments(), QIODevice::ReadWrite);
}

void AVFoundation::processOutput()
{
    const QByteArray bytes = process->readAllStandardError();
    const int zero = bytes.indexOf('\0');
    const QString text = QString::fromLatin1(zero < 0 ? bytes : bytes.left(zero));
    selectInputScreen(text);
    selectAudioCapture(text);
}

void AVFoundation::selectInputScreen(QString output)
{
    if (!output.contains(QStringLiteral("Capture screen 0")))
        return;
    inputScreen = RecorderRules::inputScreen(output, inputScreen);
    qDebug() << "src/AVFoundation/AVFoundation.cpp" << __LINE__ << "selectInputScreen"
             << ":"
             << "found inputScreen"
             << ":" << inputScreen;
}

void AVFoundation::selectAudioCapture(QString output)
{
    const QString device =
        audioDriver == 1 ? QStringLiteral("Soundflower (2ch)") : QStringLiteral("iShowU Audio Capture");
    if (output.contains(device))
        audioCaptureFound = true;
}

void AVFoundation::processAudioCapture(int)
{
    const QString name = audioDriver == 1 ? QStringLiteral("SoundFlower") : QStringLiteral("iShowU");
    if (!audioCaptureFound) {
        const QString missing =
            QStringLiteral("your system is missing one of the utilities it requires to run correctly.");
        const int answer = QMessageBox::warning(
            this, missing,
            QStringLiteral("Vidorra has detected that ") + missing +
                QStringLiteral("<br><br> Please click the button below to install this utility, called ") + name +
                QStringLiteral(", on your computer"),
            QMessageBox::Apply | QMessageBox::Ignore, QMessageBox::Apply);
        if (answer == QMessageBox::Ignore)
            audioCaptureFound = true;
    }
    if (audioCaptureFound) {
        emit next();
        return;
    }

    const QString sep = QDir::separator();
    QString script = QCoreApplication::applicationDirPath() + sep + name + sep;
    if (audioDriver == 0)
        script += QStringLiteral("install");
    else
        script += QStringLiteral("sf") + (oldOS ? QStringLiteral("166b") : QStringLiteral("20b2"));
    script += QStringLiteral(".scpt");

    process->close();
    process->disconnect();
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            [this](int exitCode) { postInstallAudioCapture(exitCode); });
    process->start(QStringLiteral("/usr/bin/osascript"), {QStringLiteral("-l"), QStringLiteral("AppleScript"), script});
    emit progress();
}

void AVFoundation::postInstallAudioCapture(int)
{
    process->disconnect();
    if (audioDriver == 1) {
        // Soundflower needs the sound system restarted after installation.
        const QString sep = QDir::separator();
        QProcess::startDetached(QStringLiteral("/usr/bin/osascript"),
                                {QStringLiteral("-l"), QStringLiteral("AppleScript"),
                                 QCoreApplication::applicationDirPath() + sep + QStringLiteral("SoundFlower") + sep +
                                     QStringLiteral("sf_restart.scpt")});
    }
    emit finish();
}
