#include "Platform/PrivateFiles.h"

#include <QDir>
#include <QFile>

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Platform {

bool isPrivateFolder(const QString &folder)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(folder).constData(), &info) == 0 && S_ISDIR(info.st_mode) &&
           info.st_uid == ::geteuid() && (info.st_mode & 077) == 0;
}

bool makePrivateFolder(const QString &folder)
{
    const QByteArray name = QFile::encodeName(folder);
    ::mkdir(name.constData(), 0700);
    struct stat info = {};
    // The owner's own bits too: a umask may have taken some.
    if (::lstat(name.constData(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == ::geteuid() &&
        (info.st_mode & 0777) != 0700)
        ::chmod(name.constData(), 0700);
    return isPrivateFolder(folder);
}

void makePrivate(const QString &path, bool contents)
{
    const QByteArray name = QFile::encodeName(path);
    struct stat info = {};
    if (::lstat(name.constData(), &info) != 0 || S_ISLNK(info.st_mode) || info.st_uid != ::geteuid())
        return;
    if (info.st_mode & 077)
        ::chmod(name.constData(), info.st_mode & 0700);
    if (!contents || !S_ISDIR(info.st_mode))
        return;
    const QStringList entries =
        QDir(path).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QString &entry : entries)
        makePrivate(path + QLatin1Char('/') + entry, true);
}

bool peerIsThisUser(qintptr socket)
{
#ifdef Q_OS_LINUX
    struct ucred peer = {};
    socklen_t size = sizeof peer;
    return ::getsockopt(int(socket), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::geteuid();
#else
    uid_t uid = 0;
    gid_t gid = 0;
    return ::getpeereid(int(socket), &uid, &gid) == 0 && uid == ::geteuid();
#endif
}

} // namespace Platform
