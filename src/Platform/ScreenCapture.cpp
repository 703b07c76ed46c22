#include "Platform/Platform.h"

#include <QDebug>
#include <QProcess>

#ifndef Q_OS_MACOS
#include "Platform/ScreenCast.h"
#endif

namespace {
// The input that was the default before the loopback was switched on;
// empty while it is off.
QString inputBeforeLoopback;

// Runs the sound server's control tool; false when it could not run or
// failed. What it printed goes to `output`.
bool pactl(const QStringList &arguments, QString *output = nullptr)
{
    QProcess process;
    process.start(QStringLiteral("pactl"), arguments, QIODevice::ReadOnly);
    if (!process.waitForFinished(5000) || process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        qWarning() << "src/Platform/ScreenCapture.cpp" << __LINE__ << "pactl"
                   << ":" << arguments << ":" << process.errorString()
                   << QString::fromLocal8Bit(process.readAllStandardError()).trimmed();
        process.kill();
        process.waitForFinished(1000);
        return false;
    }
    if (output)
        *output = QString::fromLocal8Bit(process.readAllStandardOutput()).trimmed();
    return true;
}
} // namespace

namespace Platform {

bool waylandSession()
{
#ifdef Q_OS_MACOS
    return false;
#else
    return !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") ||
           qEnvironmentVariable("XDG_SESSION_TYPE") == QLatin1String("wayland");
#endif
}

QString screenGrabFormat()
{
#ifdef Q_OS_MACOS
    return QStringLiteral("avfoundation");
#else
    return waylandSession() ? QStringLiteral("pipewire") : QStringLiteral("x11grab");
#endif
}

bool regionIsLayer()
{
    return waylandSession();
}

bool screenDevicesListed()
{
#ifdef Q_OS_MACOS
    return true;
#else
    return false;
#endif
}

QString screenGrabDisplay()
{
#ifdef Q_OS_MACOS
    return QString();
#else
    return qEnvironmentVariable("DISPLAY");
#endif
}

QString screenCaptureProblem(const QString &platformName)
{
#ifdef Q_OS_MACOS
    Q_UNUSED(platformName)
    return QString();
#else
    if (waylandSession()) {
        if (ScreenCast::available())
            return QString();
        return QStringLiteral("Vidorra 2 records a Wayland desktop through the desktop's screen sharing portal, and "
                              "this session has none.<br><br>Install xdg-desktop-portal with the portal of your "
                              "desktop (xdg-desktop-portal-gnome, xdg-desktop-portal-kde or "
                              "xdg-desktop-portal-wlr), pipewire and gstreamer1.0-pipewire, then log in again.");
    }
    if (screenGrabDisplay().isEmpty() || platformName == QLatin1String("wayland"))
        return QStringLiteral("Vidorra 2 records the screen through the X window system, and this session has no X "
                              "display.<br><br>Log in to an X11 session (on the login screen, choose a session "
                              "\"on Xorg\") to record the screen.");
    return QString();
#endif
}

bool audioCaptureDriverScripts()
{
#ifdef Q_OS_MACOS
    return true;
#else
    return false;
#endif
}

void switchSoundLoopback(bool enable)
{
    if (enable) {
        if (!inputBeforeLoopback.isEmpty())
            return; // already on; the input to come back to is kept
        QString input, output;
        if (!pactl({QStringLiteral("get-default-source")}, &input) ||
            !pactl({QStringLiteral("get-default-sink")}, &output) || input.isEmpty() || output.isEmpty())
            return;
        const QString monitor = output + QStringLiteral(".monitor");
        if (!pactl({QStringLiteral("set-default-source"), monitor}))
            return;
        inputBeforeLoopback = input;
        qDebug() << "src/Platform/ScreenCapture.cpp" << __LINE__ << "switchSoundLoopback"
                 << ":" << input << "->" << monitor;
        return;
    }
    if (inputBeforeLoopback.isEmpty())
        return;
    pactl({QStringLiteral("set-default-source"), inputBeforeLoopback});
    qDebug() << "src/Platform/ScreenCapture.cpp" << __LINE__ << "switchSoundLoopback"
             << ":"
             << "back to" << inputBeforeLoopback;
    inputBeforeLoopback.clear();
}

} // namespace Platform
