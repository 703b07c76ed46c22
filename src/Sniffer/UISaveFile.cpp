#include <QDebug>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QStandardPaths>

#include "Sniffer/DownloadRules.h"
#include "Sniffer/Sniffer.h"
#include "ui_Options.h"
#include "ui_Settings.h"

namespace {

QString standardFolder(QStandardPaths::StandardLocation location)
{
    return QStandardPaths::writableLocation(location);
}

} // namespace

bool Sniffer::selectSaveFile()
{
    const QString name = uiOptions->inputTitle->text();
    QString folder = uiOptions->selectPath->currentText();
    if (folder.isEmpty())
        folder = standardFolder(QStandardPaths::DocumentsLocation);
    folder = QDir::toNativeSeparators(folder);
    if (!folder.endsWith(QDir::separator()))
        folder += QDir::separator();

    const QStringList filters = DownloadRules::saveFilters(saveMode, fromRecorder);
    setStyleSheet(QString());

    QFileDialog dialog(this, QString(), QString(), QString());
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setViewMode(QFileDialog::Detail);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setDirectory(folder);
    dialog.selectFile(name);
    dialog.setNameFilter(filters.join(QStringLiteral(";;")));
    dialog.setWindowFlags(dialog.windowFlags() | Qt::WindowStaysOnTopHint);
    for (;;) {
        // Cancelling keeps the suggested name and goes on like an accepted
        // dialog: the Options page has already committed to a download.
        const bool accepted = dialog.exec() == QDialog::Accepted;

        QString chosen = dialog.selectedFiles().value(0);
        if (chosen.isEmpty())
            chosen = folder + name;
        chosen = chosen.trimmed();

        const QFileInfo info(chosen);
        outputExtension = DownloadRules::extensionFromFilter(dialog.selectedNameFilter());
        uiOptions->selectPath->insertItem(0, QIcon(), info.path());
        uiOptions->selectPath->setCurrentIndex(0);
        uiOptions->inputTitle->setText(info.completeBaseName());

        // The dialog asked about the name as typed; the file written is the
        // cleaned name with the filter's extension, asked about here when it
        // is another file that exists. No: back to the dialog, or no save
        // when the dialog was cancelled.
        setOutputVideoFile();
        const QFileInfo target(outputVideoFile + QLatin1Char('.') + outputExtension);
        if (!target.exists() || (accepted && target.absoluteFilePath() == info.absoluteFilePath()) ||
            confirmReplace(target.filePath()))
            return true;
        if (!accepted)
            return false;
    }
}

QString Sniffer::GetSaveAsFullPath(QString extension)
{
    QFileDialog dialog(parentWidget(), QString(), QString(), QString());
    QString folder = uiSettings->pathVideo->text();
    if (snifferSaveMode == DownloadRules::KindAudio) {
        // A bare word, not a pattern: the dialog lists every file.
        dialog.setNameFilters(QStringList{QStringLiteral("mp3")});
        folder = uiSettings->pathAudio->text();
    }
    // Without a default folder the name would land at the top of the disk.
    if (folder.isEmpty())
        folder = standardFolder(QStandardPaths::DesktopLocation);
    dialog.setWindowTitle(tr("Save File As..."));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.selectFile(QDir::fromNativeSeparators(folder + QDir::separator() + QStringLiteral("untitled")));
    connect(&dialog, &QFileDialog::filterSelected, this, &Sniffer::onSaveFilterSelected);

    for (;;) {
        if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
            return QString();
        // The dialog confirmed replacing the typed name; the clean-up may
        // make another name of it, asked about here when it exists.
        const QString typed = dialog.selectedFiles().first();
        const QString result = DownloadRules::withFilterPattern(DownloadRules::cleanSaveAsPath(typed, extension),
                                                                dialog.selectedNameFilter());
        if (result == typed || !QFileInfo::exists(result) || confirmReplace(result))
            return result;
    }
}

bool Sniffer::confirmReplace(const QString &path)
{
    QMessageBox box(QMessageBox::Question, tr("Save File As..."),
                    tr("%1 already exists.\nDo you want to replace it?").arg(QDir::toNativeSeparators(path)),
                    QMessageBox::Yes | QMessageBox::No, this);
    box.setTextFormat(Qt::PlainText);
    box.setDefaultButton(QMessageBox::No);
    return box.exec() == QMessageBox::Yes;
}

void Sniffer::onSaveFilterSelected(const QString &filter)
{
    auto *dialog = qobject_cast<QFileDialog *>(sender());
    if (!dialog)
        return;
    const QString current = dialog->selectedFiles().value(0);
    if (current.isEmpty())
        return;
    const QString extension = DownloadRules::filterPattern(filter);
    if (extension.isEmpty())
        return;
    const QFileInfo info(current);
    dialog->selectFile(info.absolutePath() + QDir::separator() + info.completeBaseName() + extension);
}

void Sniffer::setSaveFilePath()
{
    const QString key =
        uiOptions->btnDownloadAudio->isHidden() ? QStringLiteral("savepath_audio") : QStringLiteral("savepath_video");
    const QString desktop = standardFolder(QStandardPaths::DesktopLocation);
    const QString saved = appSettings.ini ? appSettings.ini->value(key, desktop).toString() : desktop;

    QStringList folders{saved, standardFolder(QStandardPaths::DocumentsLocation),
                        standardFolder(QStandardPaths::MusicLocation), standardFolder(QStandardPaths::MoviesLocation)};
    if (saved != desktop)
        folders << desktop;

    uiOptions->selectPath->clear();
    uiOptions->selectPath->insertItems(0, folders);
    uiOptions->selectPath->setCurrentIndex(0);
}

void Sniffer::selectSavePath()
{
    QString start = uiOptions->selectPath->currentText();
    if (start.isEmpty())
        start = standardFolder(QStandardPaths::DocumentsLocation);
    const QString folder = QFileDialog::getExistingDirectory(
        this, tr("Save to Directory"), start, QFileDialog::ShowDirsOnly | QFileDialog::DontResolveSymlinks);
    qDebug() << "src/Sniffer/UISaveFile" << 66 << "selectSavePath"
             << ":"
             << "Add new path" << folder;
    if (folder.isEmpty())
        return;
    uiOptions->selectPath->insertItem(0, folder);
    uiOptions->selectPath->setCurrentIndex(0);
}

QString Sniffer::fixExtension(const QString &name, const QString &extension)
{
    return DownloadRules::fixExtension(name, extension);
}
