#include "Platform/Log.h"

#include <QDir>
#include <QFile>
#include <QTextStream>

#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

#include "Platform/Platform.h"
#include "Platform/PrivateFiles.h"

namespace Log {

QString fileName(const QDate &day)
{
    return QStringLiteral("/log_") + QString::number(day.dayOfYear()) + QStringLiteral(".txt");
}

QString line(QtMsgType type, const QString &message)
{
    switch (type) {
    case QtDebugMsg:
        return QStringLiteral("D: %1").arg(message);
    case QtWarningMsg:
        return QStringLiteral("W: %1").arg(message);
    case QtCriticalMsg:
        return QStringLiteral("C: %1").arg(message);
    case QtFatalMsg:
        return QStringLiteral("F: %1").arg(message);
    default:
        return QString();
    }
}

QString dataFolder()
{
    const QString folder = QDir::toNativeSeparators(Platform::programDataFolder());
    if (!QDir(folder).exists())
        Platform::makePrivateFolder(folder);
    return folder;
}

void append(QtMsgType type, const QString &message)
{
    // Opened and closed for every message, so a crash loses nothing that
    // was already logged. The log holds every typed address: it is the
    // user's alone from its first byte.
    const QString name = QDir::toNativeSeparators(dataFolder() + fileName(QDate::currentDate()));
    const int descriptor = ::open(QFile::encodeName(name).constData(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return;
    QFile file;
    if (!file.open(descriptor, QIODevice::Append | QIODevice::WriteOnly, QFileDevice::AutoCloseHandle)) {
        ::close(descriptor);
        return;
    }
    QTextStream out(&file);
    out << line(type, message) << '\n';
}

} // namespace Log

void myMessageHandler(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    const QByteArray raw = message.toLocal8Bit();
    FILE *console = (type == QtCriticalMsg || type == QtFatalMsg) ? stderr : stdout;
    std::fprintf(console, "%s\n", raw.constData());
    std::fflush(console);
    Log::append(type, message);
}
