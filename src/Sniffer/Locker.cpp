#include <QDebug>
#include <QFile>
#include <QTextStream>

#include <cstdlib>

#include "Sniffer/Sniffer.h"

// The lock marks a running instance. Start-up does not take it, so several
// instances may run side by side; the operations are here for a build that
// wants one instance only.

void Sniffer::checkLocker()
{
    const QString lockFile = appSettings.lockerFile;
    if (QFile::exists(lockFile)) {
        // The second instance leaves quietly.
        qCritical() << "!!! ERROR: "
                    << "src/Sniffer/Locker" << __LINE__ << "checkLocker"
                    << ":"
                    << "instance exists"
                    << ":" << lockFile;
        std::exit(0);
    }

    QFile file(lockFile);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text)) {
        qCritical() << "!!! ERROR: "
                    << "src/Sniffer/Locker" << __LINE__ << "checkLocker"
                    << ":"
                    << "cannot create"
                    << ":" << lockFile;
        appSettings.errorDetails = QStringList{QStringLiteral("src/Sniffer/Locker"), QString::number(__LINE__),
                                               QStringLiteral("checkLocker"), lockFile};
        showErrorMessage(static_cast<appFlag>(4));
        std::exit(0);
    }
    QTextStream(&file) << "1";
    file.close();
    qDebug() << "src/Sniffer/Locker" << __LINE__ << "checkLocker"
             << ":"
             << "locker"
             << ":"
             << "ok";
}

void Sniffer::removeLocker()
{
    const QString lockFile = appSettings.lockerFile;
    if (!QFile::remove(lockFile)) {
        qCritical() << "!!! ERROR: "
                    << "src/Sniffer/Locker" << __LINE__ << "removeLocker"
                    << ":"
                    << "cannot remove"
                    << ":" << lockFile;
        appSettings.errorDetails = QStringList{QStringLiteral("src/Sniffer/Locker"), QString::number(__LINE__),
                                               QStringLiteral("removeLocker"), lockFile};
        showErrorMessage(static_cast<appFlag>(6));
        std::exit(0);
    }
    if (!QFile::exists(lockFile)) {
        qDebug() << "src/Sniffer/Locker" << __LINE__ << "removeLocker"
                 << ":"
                 << "instance";
        return;
    }
    qCritical() << "!!! ERROR: "
                << "src/Sniffer/Locker" << __LINE__ << "removeLocker"
                << ":"
                << "still there"
                << ":" << lockFile;
    appSettings.errorDetails = QStringList{QStringLiteral("src/Sniffer/Locker"), QString::number(__LINE__),
                                           QStringLiteral("removeLocker"), lockFile};
    showErrorMessage(static_cast<appFlag>(5));
    std::exit(0);
}
