#include "Platform/Platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QOperatingSystemVersion>
#include <QSocketNotifier>
#include <QStandardPaths>

#ifdef Q_OS_UNIX
#include <atomic>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace {
#ifdef Q_OS_UNIX
// The signal handler only writes a byte; the event loop reads it and quits.
int signalSockets[2] = {-1, -1};
volatile sig_atomic_t signalled = 0;

// The process groups of the running children, for the last resort, which
// may touch nothing but these.
constexpr int maxGroups = 64;
std::atomic<pid_t> childGroups[maxGroups];
// Seconds from a termination signal to the last resort.
constexpr unsigned lastResortSeconds = 8;

void onTerminationSignal(int)
{
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = ::write(signalSockets[0], &byte, 1);
    if (!signalled)
        ::alarm(lastResortSeconds);
    signalled = 1;
}

// The wind-down hung: the children's groups end and the program with them.
void onLastResort(int)
{
    for (std::atomic<pid_t> &group : childGroups) {
        const pid_t id = group.load();
        if (id > 0)
            ::kill(-id, SIGKILL);
    }
    ::_exit(1);
}

void keepGroup(pid_t id, bool running)
{
    for (std::atomic<pid_t> &group : childGroups) {
        pid_t expected = running ? 0 : id;
        if (group.compare_exchange_strong(expected, running ? id : 0))
            return;
    }
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

void quitOnTerminationSignals(std::function<void()> beforeQuit)
{
#ifdef Q_OS_UNIX
    if (signalSockets[0] != -1 || ::socketpair(AF_UNIX, SOCK_STREAM, 0, signalSockets) != 0)
        return;
    auto *notifier = new QSocketNotifier(signalSockets[1], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [notifier, beforeQuit] {
        char byte;
        [[maybe_unused]] const ssize_t got = ::read(signalSockets[1], &byte, 1);
        notifier->setEnabled(false);
        // This may run inside a dialog's own loop or a wait of the recorder:
        // the work ends here, and leaving every loop unwinds them all.
        if (beforeQuit)
            beforeQuit();
        QCoreApplication::exit(0);
    });
    struct sigaction action = {};
    action.sa_handler = onTerminationSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (int signal : {SIGTERM, SIGINT, SIGHUP})
        ::sigaction(signal, &action, nullptr);
    action.sa_handler = onLastResort;
    ::sigaction(SIGALRM, &action, nullptr);
#else
    Q_UNUSED(beforeQuit)
#endif
}

bool terminationRequested()
{
#ifdef Q_OS_UNIX
    return signalled != 0;
#else
    return false;
#endif
}

void woundDown()
{
#ifdef Q_OS_UNIX
    ::alarm(0);
#endif
}

ChildProcess::ChildProcess(QObject *parent)
    : QProcess(parent)
{
    connect(this, &QProcess::started, this, [this] {
        group = processId();
#ifdef Q_OS_UNIX
        keepGroup(pid_t(group), true);
#endif
    });
    // A child that ended by itself takes its group along; only one that is
    // ended here is followed into its group.
    connect(this, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this, [this] {
#ifdef Q_OS_UNIX
        keepGroup(pid_t(group), false);
#endif
        group = 0;
    });
}

ChildProcess::~ChildProcess()
{
    endGroup(0);
}

void ChildProcess::endGroup(int graceMs)
{
#ifdef Q_OS_UNIX
    const pid_t id = pid_t(group ? group : processId());
    if (id <= 0 || state() == NotRunning)
        return;
    if (graceMs > 0) {
        ::kill(-id, SIGTERM);
        waitForFinished(graceMs);
    }
    ::kill(-id, SIGKILL);
    waitForFinished(5000);
    keepGroup(id, false);
    group = 0;
#else
    Q_UNUSED(graceMs)
    kill();
    waitForFinished(5000);
#endif
}

void ChildProcess::setupChildProcess()
{
#ifdef Q_OS_UNIX
    ::setpgid(0, 0);
#endif
}

} // namespace Platform
