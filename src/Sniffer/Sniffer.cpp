#include "Sniffer/Sniffer.h"

#include <QDebug>
#include <QLineEdit>
#include <QMouseEvent>
#include <QTime>

#include "AVFoundation/AVFoundation.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_OldSniffer.h"
#include "ui_Options.h"
#include "ui_Progress.h"
#include "ui_Settings.h"
#include "ui_Sniffer.h"

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
    delete ui;
    delete uiInsertURL;
    delete uiNavigation;
    delete uiOldSniffer;
    delete uiOptions;
    delete uiProgress;
    delete uiSettings;
}

void Sniffer::start()
{
    initWidgets();
    initClickDownloadOS();
    initClickHelp();
    initDownloader();
    showMainDialog();
}

void Sniffer::showMainDialog()
{
    showLayer(LayerMain);
    show();
    if (checkLastUpdateDate())
        updateSniffer();
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
    if (!urlHintShown)
        return;
    // The hint picture is the last declaration; the stored entry keeps it so
    // the hint can come back.
    QStringList declarations = styles.value(uiInsertURL->inputURL);
    if (!declarations.isEmpty())
        declarations.removeLast();
    uiInsertURL->inputURL->setStyleSheet(declarations.join(QStringLiteral(";")));
}

void Sniffer::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::RightButton)
        return;
    emit customContextMenuRequested(event->localPos().toPoint());
}
