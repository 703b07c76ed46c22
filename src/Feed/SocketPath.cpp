#include "Feed/SocketPath.h"

#include "Platform/Platform.h"
#include "Platform/PrivateFiles.h"

#include <QDir>
#include <QFile>
#include <QStringList>

namespace Feed {

namespace {
// A socket address holds 104 (macOS) or 108 (Linux) bytes with its final 0.
constexpr int longestSocketPath = 100;
// Folder names tried in the temporary folder, which every user may write.
constexpr int sharedFolderNames = 10;
} // namespace

QString socketPath()
{
    QStringList folders;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (QDir::isAbsolutePath(runtime) && Platform::isPrivateFolder(runtime))
        folders << runtime + QStringLiteral("/vidorra2");
    const QString shared = QDir::tempPath() + QStringLiteral("/vidorra2-") + Platform::userId();
    folders << shared;
    for (int i = 1; i < sharedFolderNames; ++i)
        folders << shared + QLatin1Char('-') + QString::number(i);
    for (const QString &folder : folders) {
        const QString path = folder + QStringLiteral("/sniffer.socket");
        if (QFile::encodeName(path).size() <= longestSocketPath && Platform::makePrivateFolder(folder))
            return path;
    }
    return QString();
}

} // namespace Feed
