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
    appSettings.ini->sync();
    showLayer(LayerMain);
}
