#include "Feed/HostManifests.h"

#include "Platform/Platform.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

namespace Feed {

QString hostExecutable()
{
    return QCoreApplication::applicationDirPath() + QStringLiteral("/vidorra2-sniffer-host");
}

QByteArray hostManifest(const QString &hostPath, bool forFirefox)
{
    QJsonObject manifest{{QStringLiteral("name"), hostName},
                         {QStringLiteral("description"), QStringLiteral("Hands sniffed media addresses to Vidorra 2")},
                         {QStringLiteral("path"), QFileInfo(hostPath).absoluteFilePath()},
                         {QStringLiteral("type"), QStringLiteral("stdio")}};
    if (forFirefox)
        manifest.insert(QStringLiteral("allowed_extensions"), QJsonArray{firefoxExtensionId});
    else
        manifest.insert(QStringLiteral("allowed_origins"),
                        QJsonArray{QStringLiteral("chrome-extension://%1/").arg(chromiumExtensionId)});
    return QJsonDocument(manifest).toJson();
}

QStringList installHostManifests(const QString &hostPath, QString *error)
{
    QList<QPair<QString, bool>> folders;
    for (const QString &folder : Platform::chromiumHostManifestFolders())
        folders.append({folder, false});
    folders.append({Platform::firefoxHostManifestFolder(), true});

    const QString home = QDir::cleanPath(QDir::homePath()) + QLatin1Char('/');
    QStringList written;
    error->clear();
    for (const auto &[folder, forFirefox] : folders) {
        const QString file = QDir::cleanPath(folder + QLatin1Char('/') + hostName + QStringLiteral(".json"));
        QSaveFile out(file);
        if (!file.startsWith(home)) {
            *error = QStringLiteral("%1 is outside the home folder").arg(file);
        } else if (!QDir().mkpath(folder) || !out.open(QIODevice::WriteOnly) ||
                   out.write(hostManifest(hostPath, forFirefox)) < 0 || !out.commit()) {
            *error = QStringLiteral("cannot write %1: %2").arg(file, out.errorString());
        } else {
            written << file;
        }
    }
    return written;
}

} // namespace Feed
