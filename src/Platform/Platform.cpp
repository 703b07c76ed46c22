#include "Platform/Platform.h"

#include <QDir>
#include <QOperatingSystemVersion>
#include <QStandardPaths>

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

} // namespace Platform
