#include "Sniffer/Sniffer.h"

#include <QApplication>
#include <QDebug>
#include <QDir>
#include <QLineEdit>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QTime>

#include "AVFoundation/AVFoundation.h"
#include "Platform/Platform.h"
#include "Fiofostis/SniffedDownload.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_OldSniffer.h"
#include "ui_Options.h"
#include "ui_Progress.h"
#include "ui_Settings.h"
#include "ui_Sniffer.h"
#include "ui_Update.h"

Sniffer::Sniffer(QWidget *parent)
    : QDialog(parent)
    , ui(new Ui_Sniffer)
{
    ui->setupUi(this);
    qDebug() << "----->>>>> " << QTime::currentTime().toString(QStringLiteral("HH:mm:ss")) << " <<<<<-----";
    setSettingsFile();
    settingsInit();
    settingsRead();
}

Sniffer::~Sniffer()
{
    // Hiding and deleting the pages below moves the focus; by then this is no
    // longer a Sniffer to tell.
    disconnect(qApp, &QApplication::focusChanged, this, &Sniffer::focusChanged);
    endWork();
    qDeleteAll(sniffedDownloads);
    delete recorder;
    // The sound input the recorder switched comes back.
    Platform::switchSoundLoopback(false);
    delete downloader;
    delete avFoundation;
    delete ui;
    delete uiInsertURL;
    delete uiNavigation;
    delete uiOldSniffer;
    delete uiOptions;
    delete uiProgress;
    delete uiSettings;
    delete uiUpdate;
}

void Sniffer::endWork()
{
    // Whatever still runs ends as on Cancel: no child outlives the window and
    // no partial file stays behind.
    if (downloader)
        downloader->stop();
    discardSave();
    for (SniffedDownload *transfer : qAsConst(sniffedDownloads))
        transfer->stop(); // each removes what it had written
    // A recorder still open ends its grabbers; no work file outlives the run.
    if (recorder)
        recorder->endChildren();
    if (!appSettings.appDataFolder.isEmpty())
        clearDir(appSettings.appDataFolder + QDir::separator() + QStringLiteral("temp"));
}

int Sniffer::runProgram(const std::function<void(Sniffer &)> &started)
{
    int code = 0;
    {
        Sniffer sniffer(nullptr);
        // A termination signal ends the work at once, whatever window is
        // open, and the program as closing its window does.
        Platform::quitOnTerminationSignals([&sniffer] { sniffer.endWork(); });
        sniffer.start();
        if (started)
            started(sniffer);
        code = QCoreApplication::exec();
    }
    Platform::woundDown();
    return code;
}

void Sniffer::start()
{
    initWidgets();
    initClickDownloadOS();
    initClickHelp();
    initDownloader();
    connect(qApp, &QApplication::focusChanged, this, &Sniffer::focusChanged, Qt::UniqueConnection);
    showMainDialog();
}

void Sniffer::showMainDialog()
{
    showLayer(LayerMain);
    show();
    if (checkLastUpdateDate())
        updateSniffer();
    delete avFoundation;
    avFoundation = new AVFoundation(nullptr);
    avFoundation->check();
}

void Sniffer::focusChanged(QWidget *old, QWidget *now)
{
    // The address field is checked first: going from the title field
    // straight to the address field does not take the typed title.
    if (!uiInsertURL || now != uiInsertURL->inputURL) {
        if (uiOptions && old == uiOptions->inputTitle)
            uiOptions->lblTitle->setText(uiOptions->inputTitle->text());
        return;
    }
    focusOnInputURL();
}

void Sniffer::focusOnInputURL()
{
    updateURLHint();
}

void Sniffer::updateURLHint()
{
    if (!urlHintShown)
        return;
    // The hint picture is the last declaration; the stored entry keeps it so
    // the hint can come back. It shows while the field is empty.
    QLineEdit *field = uiInsertURL->inputURL;
    QStringList declarations = styles.value(field);
    if (!field->text().isEmpty() && !declarations.isEmpty())
        declarations.removeLast();
    const QString style = declarations.join(QStringLiteral(";"));
    if (field->styleSheet() != style)
        field->setStyleSheet(style);
}

void Sniffer::keyPressEvent(QKeyEvent *event)
{
    // Escape would close the dialog, and with it the program and any
    // download under way; the window is closed on purpose only.
    if (event->key() == Qt::Key_Escape && event->modifiers() == Qt::NoModifier)
        return;
    QDialog::keyPressEvent(event);
}

void Sniffer::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::RightButton)
        return;
    emit customContextMenuRequested(event->localPos().toPoint());
}
