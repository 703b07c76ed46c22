#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

#include <functional>

// Everything that differs between macOS and the other desktops is answered
// here, so the rest of the program never tests the platform itself.
namespace Platform {

// True when the program runs on macOS older than major.minor. Off macOS the
// answer is that of the newest macOS: never older.
bool macOSOlderThan(int major, int minor);

// The ffmpeg build shipped for this system: 7 before macOS 10.8, else 9.
int ffmpegBuild();

// The folder that holds per-user application data ("Library/Application
// Support" on macOS, the XDG data home elsewhere). Created if missing, as
// the system would have it.
QString applicationSupportFolder();

// The program's own data folder inside it ("Vidorra 2"); not created here.
QString programDataFolder();

// The current user's numeric id, for names in folders that users share.
QString userId();

// The program's executable, as found by a helper program that lives in
// `folder` (beside it, or in the bundle a helper sits in on macOS).
QString programExecutable(const QString &folder);

// The current user's folders where Chromium and Google Chrome, and where
// Firefox, look for native messaging host manifests.
QStringList chromiumHostManifestFolders();
QString firefoxHostManifestFolder();

// Screen capture runs through ffmpeg's input device for this system:
// "avfoundation" on macOS, whose screens are numbered in ffmpeg's device
// list, and "x11grab" on X11, whose screen is the X display itself. A
// Wayland session ("pipewire") has the desktop share the screen through its
// ScreenCast portal (ScreenCast.h) and a GStreamer child read the stream.
QString screenGrabFormat();
// Whether this is a Wayland session (WAYLAND_DISPLAY set, or
// XDG_SESSION_TYPE "wayland").
bool waylandSession();
// Whether the region window is a layer over the whole screen with the
// region a frame inside it: a window system that neither tells a window
// where it is nor lets it move itself (Wayland).
bool regionIsLayer();
bool screenDevicesListed();
// The X display the program runs on (":0", ":99"); empty on macOS.
QString screenGrabDisplay();
// Why the screen cannot be recorded in this session (the window system
// `platformName` is the one Qt runs on), or empty when it can.
QString screenCaptureProblem(const QString &platformName);

// The sound the computer plays reaches the recorder through a virtual
// capture device. On macOS that is a driver the AppleScript files beside the
// program install and switch; elsewhere it is the sound server's monitor of
// the default output, needing no installation.
bool audioCaptureDriverScripts();
// Makes the monitor of the default output the default input (enable), or
// brings back the input that was the default before (disable). Without a
// sound server this logs and does nothing.
void switchSoundLoopback(bool enable);

// SIGTERM, SIGINT and SIGHUP end the program: `beforeQuit` ends its work
// (children and partial files), then every event loop is left, the dialogs'
// too, and the program winds down as when its window is closed. Should the
// wind-down hang, the program is ended a few seconds later, its children's
// process groups first. Call once, after the application object exists.
void quitOnTerminationSignals(std::function<void()> beforeQuit = {});
// A termination signal came: nothing new is to be started.
bool terminationRequested();
// The program has wound down (its window and children are gone): no last
// resort is needed any more.
void woundDown();

// A child process that leads a process group of its own, so that ending it
// ends whatever it started too (a launcher's tool, a helper's worker).
class ChildProcess : public QProcess
{
public:
    explicit ChildProcess(QObject *parent = nullptr);
    ~ChildProcess() override;
    // Asks the whole group to end, then kills it when the child has not
    // ended within `graceMs`; returns once the child is gone.
    void endGroup(int graceMs = 1000);

protected:
    void setupChildProcess() override;

private:
    qint64 group = 0; // the running child's group, 0 once it is ended
};

} // namespace Platform
