#include <QCoreApplication>
#include <QDate>
#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include "Platform/Platform.h"
#include "Sniffer/Sniffer.h"

namespace {
// "Vidorra 2": the product name and its major version name both the data
// folder and the documents folder.
QString productFolderName()
{
    return QStringLiteral("Vidorra") + QLatin1Char(' ') + QStringLiteral("2");
}

const QString stockSettingsName = QStringLiteral("sniffer.ini");
} // namespace

QString Sniffer::getApplicationDataFolder(QString sub)
{
    QString folder = Platform::applicationSupportFolder() + QDir::separator() + productFolderName();
    if (!sub.isEmpty())
        folder += QDir::separator() + sub;
    folder = QDir::toNativeSeparators(folder);
    QDir dir(folder);
    if (!dir.exists())
        dir.mkdir(folder); // one level only, on purpose
    return folder;
}

void Sniffer::setSettingsFile()
{
    appSettings.appDataFolder = getApplicationDataFolder(QString());
    appSettings.lockerFile = QDir::toNativeSeparators(appSettings.appDataFolder + QStringLiteral("/locker"));
    appSettings.settingsFile = QDir::toNativeSeparators(appSettings.appDataFolder + QStringLiteral("/sniffer.ini"));
}

void Sniffer::settingsInit()
{
    if (QFile::exists(appSettings.settingsFile))
        return;

    // The stock file is consumed: moved into the data folder once.
    const QString stock =
        QDir::toNativeSeparators(QCoreApplication::applicationDirPath() + QDir::separator() + stockSettingsName);
    if (!QFile::exists(stock) || !QFile::copy(stock, appSettings.settingsFile))
        return;
    QFile::remove(stock);

    appSettings.ini = new QSettings(appSettings.settingsFile, QSettings::IniFormat, this);
    // One below today, so the first start counts as not yet checked today.
    appSettings.ini->setValue(QStringLiteral("last_update"), QString::number(QDate::currentDate().dayOfYear() - 1));

    const QString documents =
        QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + QDir::separator() + productFolderName();
    if (!QDir(documents).exists())
        QDir().mkdir(documents);
    const QString video = documents + QDir::separator() + QStringLiteral("Video");
    if (!QDir(video).exists())
        QDir().mkdir(video);
    appSettings.ini->setValue(QStringLiteral("savepath_video"), video);
    const QString audio = documents + QDir::separator() + QStringLiteral("Audio");
    if (!QDir(audio).exists())
        QDir().mkdir(audio);
    appSettings.ini->setValue(QStringLiteral("savepath_audio"), audio);
    appSettings.ini->sync();
}

void Sniffer::settingsRead()
{
    appSettings.ini = new QSettings(appSettings.settingsFile, QSettings::IniFormat, this);
    const QStringList groups{QStringLiteral("error_titles"),
                             QStringLiteral("error_messages"),
                             QStringLiteral("error_messages_dl"),
                             QStringLiteral("warning_messages"),
                             QStringLiteral("yt_urls"),
                             QStringLiteral("os_urls"),
                             QStringLiteral("help"),
                             QStringLiteral("help_actions"),
                             QStringLiteral("mirel_test_urls"),
                             QStringLiteral("test_sniffer")};
    for (const QString &group : groups)
        settingsRead(group);
}

void Sniffer::settingsRead(QString group)
{
    QSettings *ini = appSettings.ini;
    ini->beginGroup(group);
    QHash<int, QString> table;
    const QStringList keys = ini->allKeys();
    for (const QString &key : keys) {
        const QVariant value = ini->value(key, QString());
        // An unquoted text with commas reads back as a list; keep it whole.
        const QString text =
            value.type() == QVariant::StringList ? value.toStringList().join(QStringLiteral(", ")) : value.toString();
        table.insert(key.toInt(nullptr, 10), text);
    }
    appSettings.tables.insert(group, table);
    ini->endGroup();
}

QString Sniffer::tableText(const QString &group, int key) const
{
    return appSettings.tables.value(group).value(key);
}
