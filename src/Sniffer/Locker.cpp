#include <QDebug>
#include <QFile>
#include <QTextStream>

#include <cstdlib>

#include "Sniffer/Sniffer.h"

namespace {

// Every failure of the lock is logged, told with its details and ends the
// process, always with status 0.
[[noreturn]] void lockFailure(Sniffer &sniffer, int line, const char *function, const char *what, int number)
{
    const QString lockFile = sniffer.appSettings.lockerFile;
    qCritical() << "!!! ERROR: "
                << "src/Sniffer/Locker" << line << function << ":" << what << ":" << lockFile;
    sniffer.appSettings.errorDetails = QStringList{QStringLiteral("src/Sniffer/Locker"), QString::number(line),
                                                   QString::fromLatin1(function), lockFile};
    sniffer.showErrorMessage(static_cast<Sniffer::appFlag>(number));
    std::exit(0);
}

} // namespace

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
    if (!file.open(QIODevice::WriteOnly | QIODevice::Text))
        lockFailure(*this, __LINE__, "checkLocker", "cannot create", 4);
    file.setPermissions(QFile::ReadOwner | QFile::WriteOwner);
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
    if (!QFile::remove(lockFile))
        lockFailure(*this, __LINE__, "removeLocker", "cannot remove", 6);
    if (!QFile::exists(lockFile)) {
        qDebug() << "src/Sniffer/Locker" << __LINE__ << "removeLocker"
                 << ":"
                 << "instance";
        return;
    }
    lockFailure(*this, __LINE__, "removeLocker", "still there", 5);
}
