#pragma once

#include <QString>
#include <QStringList>

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

// SIGTERM, SIGINT and SIGHUP make the running application leave its event
// loop, so the program winds down as when its window is closed. Call once,
// after the application object exists.
void quitOnTerminationSignals();

} // namespace Platform
