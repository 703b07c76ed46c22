#include "Feed/SocketPath.h"

#include "Platform/Platform.h"

#include <QDir>
#include <QFile>

namespace Feed {

namespace {
// A socket address holds 104 (macOS) or 108 (Linux) bytes with its final 0.
constexpr int longestSocketPath = 100;
} // namespace

QString socketPath()
{
    const QString path = Platform::programDataFolder() + QStringLiteral("/sniffer.socket");
    if (QFile::encodeName(path).size() <= longestSocketPath)
        return path;
    return QDir::tempPath() + QStringLiteral("/vidorra2-%1-sniffer.socket").arg(Platform::userId());
}

} // namespace Feed
