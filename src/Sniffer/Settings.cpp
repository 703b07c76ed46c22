#include <QCoreApplication>
#include <QDebug>
#include <QDate>
#include <QDir>
#include <QFile>
#include <QStandardPaths>

#include "Platform/Platform.h"
#include "Platform/PrivateFiles.h"
#include "Sniffer/Sniffer.h"

namespace {
// "Vidorra 2": the product name and its major version name the documents
// folder, as they name the data folder.
QString productFolderName()
{
    return QStringLiteral("Vidorra") + QLatin1Char(' ') + QStringLiteral("2");
}

const QString stockSettingsName = QStringLiteral("sniffer.ini");

// The string tables of the settings file, in the order they are loaded.
const QStringList tableGroups{QStringLiteral("error_titles"),    QStringLiteral("error_messages"),
                              QStringLiteral("error_messages_dl"), QStringLiteral("warning_messages"),
                              QStringLiteral("yt_urls"),         QStringLiteral("os_urls"),
                              QStringLiteral("help"),            QStringLiteral("help_actions"),
                              QStringLiteral("mirel_test_urls"), QStringLiteral("test_sniffer")};
} // namespace

QString Sniffer::getApplicationDataFolder(QString sub)
{
    QString folder = Platform::programDataFolder();
    if (!sub.isEmpty())
        folder += QDir::separator() + sub;
    folder = QDir::toNativeSeparators(folder);
    if (!QDir(folder).exists())
        Platform::makePrivateFolder(folder); // one level only, on purpose
    return folder;
}

void Sniffer::setSettingsFile()
{
    appSettings.appDataFolder = getApplicationDataFolder(QString());
    // What an earlier run or another program left open to others is closed.
    Platform::makePrivate(appSettings.appDataFolder, true);
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

    // The whole path, Documents included: a fresh account may not have it,
    // and the save dialogs open in these folders.
    const QString documents =
        QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + QDir::separator() + productFolderName();
    const QString video = documents + QDir::separator() + QStringLiteral("Video");
    QDir().mkpath(video);
    appSettings.ini->setValue(QStringLiteral("savepath_video"), video);
    const QString audio = documents + QDir::separator() + QStringLiteral("Audio");
    QDir().mkpath(audio);
    appSettings.ini->setValue(QStringLiteral("savepath_audio"), audio);
    syncSettings();
}

void Sniffer::settingsRead()
{
    appSettings.ini = new QSettings(appSettings.settingsFile, QSettings::IniFormat, this);
    restoreMissingTables();
    for (const QString &group : tableGroups)
        settingsRead(group);
    Platform::makePrivate(appSettings.settingsFile); // the stock file's copy, or a file written afresh
}

void Sniffer::syncSettings()
{
    appSettings.ini->sync();
    // A data folder deleted meanwhile comes back with the file: both the user's alone.
    Platform::makePrivate(appSettings.appDataFolder);
    Platform::makePrivate(appSettings.settingsFile);
}

void Sniffer::restoreMissingTables()
{
    // A settings file rewritten without its tables (the data folder deleted
    // while the program ran, a damaged file, a first start that could not
    // write) would leave every message and address list empty: such a table
    // comes from the stock file built into the program. A file written by an
    // earlier version lacks the messages added since: they come from there
    // too. The user's own keys stay. QSettings writes a new file and renames
    // it over the old one, so a failed write leaves the old file whole, and
    // the restored rows are still used from memory.
    QSettings stock(QStringLiteral(":/stock-settings"), QSettings::IniFormat);
    QSettings *ini = appSettings.ini;
    QStringList restored;
    for (const QString &group : tableGroups) {
        ini->beginGroup(group);
        const bool present = !ini->childKeys().isEmpty();
        ini->endGroup();
        const bool messages = group.contains(QLatin1String("_messages"));
        stock.beginGroup(group);
        const QStringList keys = stock.childKeys();
        for (const QString &key : keys) {
            const QString name = group + QLatin1Char('/') + key;
            if (present && (!messages || ini->contains(name)))
                continue;
            ini->setValue(name, stock.value(key));
            restored << name;
        }
        stock.endGroup();
    }
    if (restored.isEmpty())
        return;
    syncSettings();
    qWarning() << "src/Sniffer/Settings" << __LINE__ << "restoreMissingTables"
               << ":"
               << "tables from the stock settings"
               << ":" << restored << ini->status();
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
