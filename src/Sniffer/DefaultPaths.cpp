#include <QComboBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QStandardPaths>

#include "Sniffer/Sniffer.h"
#include "ui_Settings.h"

void Sniffer::selectDefaultFilePath()
{
    const bool audio = sender() == uiSettings->btnSelectAudioPath;
    QLineEdit *target = audio ? uiSettings->pathAudio : uiSettings->pathVideo;
    const QString caption = QStringLiteral("Select default file path for save ") +
                            (audio ? QStringLiteral("audio") : QStringLiteral("video"));

    QString start = target->text();
    if (start.isEmpty())
        start = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    QString folder = QFileDialog::getExistingDirectory(this, caption, start,
                                                       QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
    // A cancelled chooser still leaves a usable folder in an empty field.
    if (folder.isEmpty())
        folder = start;
    target->setText(folder);
}

void Sniffer::saveDefaultFilePath()
{
    appSettings.ini->setValue(QStringLiteral("savepath_video"), uiSettings->pathVideo->text());
    appSettings.ini->setValue(QStringLiteral("savepath_audio"), uiSettings->pathAudio->text());
    // The launcher reads the browser from here itself; "none" is no browser.
    QString browser = uiSettings->cookiesBrowser->currentText().trimmed();
    if (browser.compare(QLatin1String("none"), Qt::CaseInsensitive) == 0)
        browser.clear();
    appSettings.ini->setValue(QStringLiteral("cookies_from_browser"), browser);
    syncSettings();
    showLayer(LayerMain);
}

void Sniffer::showCookiesSetting()
{
    const QString browser = appSettings.ini->value(QStringLiteral("cookies_from_browser"), QString()).toString();
    uiSettings->cookiesBrowser->setCurrentText(browser.isEmpty() ? QStringLiteral("none") : browser);
}
