#include "Platform/Platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QOperatingSystemVersion>
#include <QSocketNotifier>
#include <QStandardPaths>

#ifdef Q_OS_UNIX
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace {
#ifdef Q_OS_UNIX
// The signal handler only writes a byte; the event loop reads it and quits.
int signalSockets[2] = {-1, -1};

void onTerminationSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalSockets[0], &byte, 1);
}
#endif
} // namespace

namespace Platform {

bool macOSOlderThan(int major, int minor)
{
    const QOperatingSystemVersion current = QOperatingSystemVersion::current();
    if (current.type() != QOperatingSystemVersion::MacOS)
        return false;
    return current < QOperatingSystemVersion(QOperatingSystemVersion::MacOS, major, minor);
}

int ffmpegBuild()
{
    return macOSOlderThan(10, 8) ? 7 : 9;
}

QString applicationSupportFolder()
{
#ifdef Q_OS_MACOS
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::HomeLocation) + QDir::separator() +
                           QStringLiteral("Library") + QDir::separator() + QStringLiteral("Application Support");
#else
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
#endif
    QDir().mkpath(folder);
    return QDir::toNativeSeparators(folder);
}

QString programDataFolder()
{
    return applicationSupportFolder() + QDir::separator() + QStringLiteral("Vidorra 2");
}

QString userId()
{
#ifdef Q_OS_UNIX
    return QString::number(::getuid());
#else
    return qEnvironmentVariable("USERNAME");
#endif
}

QString programExecutable(const QString &folder)
{
    const QString beside = folder + QStringLiteral("/vidorra2");
#ifdef Q_OS_MACOS
    // A helper kept in Contents/Helpers or Contents/Resources of the bundle.
    if (!QFileInfo::exists(beside) && folder.contains(QStringLiteral(".app/Contents/")))
        return QDir::cleanPath(folder + QStringLiteral("/../MacOS/vidorra2"));
#endif
    return beside;
}

namespace {
QString home()
{
    return QStandardPaths::writableLocation(QStandardPaths::HomeLocation);
}
} // namespace

QStringList chromiumHostManifestFolders()
{
#ifdef Q_OS_MACOS
    const QString support = home() + QStringLiteral("/Library/Application Support/");
    return {support + QStringLiteral("Chromium/NativeMessagingHosts"),
            support + QStringLiteral("Google/Chrome/NativeMessagingHosts")};
#else
    // Both browsers keep their profiles under XDG_CONFIG_HOME (~/.config).
    const QString config = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation);
    return {config + QStringLiteral("/chromium/NativeMessagingHosts"),
            config + QStringLiteral("/google-chrome/NativeMessagingHosts")};
#endif
}

QString firefoxHostManifestFolder()
{
#ifdef Q_OS_MACOS
    return home() + QStringLiteral("/Library/Application Support/Mozilla/NativeMessagingHosts");
#else
    return home() + QStringLiteral("/.mozilla/native-messaging-hosts");
#endif
}

void quitOnTerminationSignals()
{
#ifdef Q_OS_UNIX
    if (signalSockets[0] != -1 || ::socketpair(AF_UNIX, SOCK_STREAM, 0, signalSockets) != 0)
        return;
    auto *notifier = new QSocketNotifier(signalSockets[1], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [notifier] {
        char byte;
        [[maybe_unused]] const ssize_t got = ::read(signalSockets[1], &byte, 1);
        notifier->setEnabled(false);
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGTERM, SIGINT, SIGHUP})
        ::sigaction(signal, &action, nullptr);
#endif
}

} // namespace Platform
