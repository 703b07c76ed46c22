#include <QPushButton>

#include "Sniffer/Sniffer.h"
#include "ui_About.h"

namespace {
const QString versionText = QStringLiteral("2.0.0.327");
}

void Sniffer::showAboutDialog()
{
    if (aboutDialog) {
        aboutDialog->raise();
        aboutDialog->activateWindow();
        return;
    }
    auto *dialog = new QDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    Ui_About form;
    form.setupUi(dialog);
    form.lblVersion->setText(QStringLiteral("Version ") + versionText);
    dialog->setWindowTitle(QStringLiteral("About Vidorra 2"));
    connect(form.btnClose, &QPushButton::clicked, this, &Sniffer::closeAboutDialog);
    aboutDialog = dialog;
    dialog->show();
}

void Sniffer::closeAboutDialog()
{
    if (aboutDialog)
        aboutDialog->close();
}

void Sniffer::setVDWindowTitle(QString text)
{
    const QString tool = appSettings.ini->value(QStringLiteral("last_update_v"), QStringLiteral("last")).toString();
    QString title = QStringLiteral("Vidorra 2  %1  (downloader %2)").arg(versionText, tool);
    if (!text.isEmpty() && text != tool)
        title += QStringLiteral("  –  ") + text;
    setWindowTitle(title);
}
