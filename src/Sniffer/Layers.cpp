#include <QGuiApplication>
#include <QPushButton>
#include <QScreen>
#include <QStyle>
#include <QTimer>

#include <algorithm>

#include "Sniffer/Sniffer.h"
#include "Sniffer/WindowRules.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_OldSniffer.h"
#include "ui_Options.h"
#include "ui_Progress.h"
#include "ui_Settings.h"
#include "ui_Sniffer.h"
#include "ui_Update.h"

void Sniffer::initWidgets()
{
    uiNavigation = new Ui_Navigation;
    uiNavigation->setupUi(ui->widgetNavigation);
    pageHeights.insert(ui->widgetNavigation, 60);
    connect(uiNavigation->btnDownloaderYT, &QPushButton::clicked, this, &Sniffer::showURLField);
    connect(uiNavigation->btnDownloaderOS, &QPushButton::clicked, this, &Sniffer::showURLField);
    connect(uiNavigation->btnSniffer, &QPushButton::clicked, this, &Sniffer::runOldSniffer);
    connect(uiNavigation->btnRecorderVC, &QPushButton::clicked, this, &Sniffer::runRecorderAV);
    connect(uiNavigation->btnBack, &QPushButton::clicked, this, &Sniffer::showPreviousPage);
    connect(uiNavigation->btnOptions, &QPushButton::clicked, this, &Sniffer::showOptions);
    connect(uiNavigation->btnOptions_2, &QPushButton::clicked, this, &Sniffer::showOptions);
    connect(uiNavigation->btnHelp, &QPushButton::clicked, this, &Sniffer::onClickHelp);
    connect(uiNavigation->btnHelp_2, &QPushButton::clicked, this, &Sniffer::onClickHelp);

    uiOldSniffer = new Ui_OldSniffer;
    uiOldSniffer->setupUi(ui->widgetOldSniffer);
    pageHeights.insert(ui->widgetOldSniffer, 170);
    initSniffedList();

    uiInsertURL = new Ui_InsertURL;
    uiInsertURL->setupUi(ui->widgetInsertURL);
    pageHeights.insert(ui->widgetInsertURL, 116);
    connect(uiInsertURL->btnProcessURL, &QPushButton::clicked, this, &Sniffer::processURL);
    connect(uiInsertURL->inputURL, &QLineEdit::returnPressed, this, &Sniffer::processURL);

    uiOptions = new Ui_Options;
    uiOptions->setupUi(ui->widgetOptions);
    pageHeights.insert(ui->widgetOptions, 270);
    connect(uiOptions->btnDownloadVideo, &QPushButton::clicked, this, &Sniffer::downloadVideo);
    connect(uiOptions->btnDownloadAudio, &QPushButton::clicked, this, &Sniffer::downloadAudio);

    uiProgress = new Ui_Progress;
    uiProgress->setupUi(ui->widgetProgress);
    pageHeights.insert(ui->widgetProgress, 120);
    progressTimer = new QTimer(this);
    progressBar = uiProgress->progressBar;
    connect(progressTimer, &QTimer::timeout, this, &Sniffer::progressBarIteration);
    connect(uiProgress->btnCloseProgress, &QPushButton::clicked, this, &Sniffer::stopLastProcess);

    uiSettings = new Ui_Settings;
    uiSettings->setupUi(ui->widgetSettings);
    pageHeights.insert(ui->widgetSettings, 162);
    connect(uiSettings->btnSave, &QPushButton::clicked, this, &Sniffer::saveDefaultFilePath);
    connect(uiSettings->btnSelectVideoPath, &QPushButton::clicked, this, &Sniffer::selectDefaultFilePath);
    connect(uiSettings->btnSelectAudioPath, &QPushButton::clicked, this, &Sniffer::selectDefaultFilePath);

    uiUpdate = new Ui_Update;
    uiUpdate->setupUi(ui->widgetUpdate);
    pageHeights.insert(ui->widgetUpdate, 70);

    QWidget *const pages[] = {ui->widgetNavigation, ui->widgetInsertURL, ui->widgetOptions,   ui->widgetProgress,
                              ui->widgetSettings,   ui->widgetUpdate,    ui->widgetOldSniffer};
    // Every page but Options has one height; Options is fitted to its rows.
    for (QWidget *page : pages)
        if (page != ui->widgetOptions)
            page->setFixedHeight(pageHeights.value(page));
    auto layer = [&pages](std::initializer_list<QWidget *> shown) {
        QHash<QWidget *, bool> visible;
        for (QWidget *page : pages)
            visible.insert(page, std::find(shown.begin(), shown.end(), page) != shown.end());
        return visible;
    };
    layers.insert(LayerMain, layer({ui->widgetNavigation}));
    layers.insert(LayerProgress, layer({ui->widgetProgress}));
    layers.insert(LayerInsertURL, layer({ui->widgetNavigation, ui->widgetInsertURL}));
    layers.insert(LayerOptions, layer({ui->widgetNavigation, ui->widgetOptions}));
    layers.insert(LayerSettings, layer({ui->widgetNavigation, ui->widgetSettings}));
    layers.insert(LayerUpdate, layer({ui->widgetNavigation, ui->widgetUpdate}));
    layers.insert(LayerOldSniffer, layer({ui->widgetNavigation, ui->widgetOldSniffer}));

    // The hint picture is the last declaration: the address field drops it
    // while it holds text.
    styles.insert(uiInsertURL->inputURL,
                  QStringList{QStringLiteral("background-color: white"), QStringLiteral("color: black"),
                              QStringLiteral("background-position: center"),
                              QStringLiteral("background-repeat: no-repeat"), QStringLiteral("border: 2px solid gray"),
                              QStringLiteral("padding: 0 8px"), QStringLiteral("background-image: url(:/bgURL)")});
    connect(uiInsertURL->inputURL, &QLineEdit::textChanged, this, &Sniffer::updateURLHint);
    styles.insert(ui->widgetNavigation, QStringList{QStringLiteral("background-color:#1d1d1e")});
    uiInsertURL->inputURL->setStyleSheet(styles.value(uiInsertURL->inputURL).join(QStringLiteral(";")));
    const QString dark = styles.value(ui->widgetNavigation).join(QStringLiteral(";"));
    for (QWidget *page : pages)
        page->setStyleSheet(dark);

    setWindowFlags(windowFlags() & ~Qt::WindowContextHelpButtonHint);
    setWindowFlags(windowFlags() | Qt::WindowStaysOnTopHint);
    setWindowFlags(windowFlags() | Qt::WindowMinimizeButtonHint);
    setFixedWidth(528);

    uiSettings->pathVideo->setText(appSettings.ini->value(QStringLiteral("savepath_video"), QString()).toString());
    uiSettings->pathAudio->setText(appSettings.ini->value(QStringLiteral("savepath_audio"), QString()).toString());
    showCookiesSetting();

    setVDWindowTitle(QString());

    // Return belongs to the field that has the focus: no button of the
    // window stands in as the dialog's default button.
    for (QPushButton *button : findChildren<QPushButton *>()) {
        button->setAutoDefault(false);
        button->setDefault(false);
    }

    // A very light weight on Qt's scale, on purpose.
    QFont listFont(QStringLiteral("Monaco"), 10, 7);
    // Where Monaco is missing, another fixed-width face keeps the columns.
    listFont.setStyleHint(QFont::TypeWriter);
    uiOldSniffer->label->setFont(listFont);
    uiOldSniffer->mediaList->setFont(listFont);
    uiOptions->listFormats->setFont(listFont);
}

void Sniffer::showLayer(Sniffer::appLayer layer)
{
    layerHistory.append(layer);

    if (layer == LayerOptions) {
        if (!recordingMode) {
            const QList<Downloader::steps> &done = downloader->options->steps;
            if (!done.contains(Downloader::stepTitle) || !done.contains(Downloader::stepFormats))
                return;
        }
        setSaveFilePath();
    }

    uiOptions->inputTitle->hide();
    uiOptions->selectPath->hide();
    uiOptions->btnSelectPath->hide();
    uiOptions->label_2->hide();
    uiOptions->label_3->hide();

    if (!recordingMode) {
        setStyleSheet(QString());
        uiOptions->lblTitle->show();
        // Back from recording mode the rows come back, but only those the
        // current address has: no "0:00" length, no list for a single format.
        uiOptions->lblDLLength->setVisible(uiOptions->lblDLLength->text() != QLatin1String("0:00"));
        uiOptions->listFormats->setVisible(uiOptions->listFormats->count() > 0);
    } else {
        setStyleSheet(QStringLiteral("background-color:#1d1d1e;"));
        uiOptions->lblTitle->hide();
        uiOptions->lblDLLength->hide();
        uiOptions->listFormats->hide();
        uiOptions->inputTitle->setText(QStringLiteral("Screen_Capture_1"));
    }

    QStackedWidget *strip = uiNavigation->stackedWidget;
    QWidget *stripPage = layer == LayerMain ? uiNavigation->page_1 : uiNavigation->page_2;
    if (strip->currentWidget() != stripPage)
        strip->setCurrentWidget(stripPage);

    QList<int> shownHeights;
    const QHash<QWidget *, bool> visible = layers.value(layer);
    for (auto it = visible.constBegin(); it != visible.constEnd(); ++it) {
        if (it.value()) {
            it.key()->show();
            shownHeights.append(pageHeights.value(it.key(), 0));
        } else {
            it.key()->hide();
        }
    }
    const int height = WindowRules::layerHeight(
        shownHeights, visible.value(ui->widgetOptions),
        {!uiOptions->listFormats->isHidden(), uiOptions->listFormats->height(), !uiOptions->lblTitle->isHidden()});
    setFixedHeight(height);

    if (ui->widgetProgress->isHidden() && progressTimer->isActive())
        progressTimer->stop();

    // A hidden field keeps the keyboard focus unless it is moved on: Return
    // on the progress page would start the address check once more.
    if (QWidget *focused = focusWidget(); focused && !focused->isVisible())
        focusNextChild();

    if (layer == LayerOptions) {
        if (QScreen *screen = QGuiApplication::primaryScreen())
            setGeometry(QStyle::alignedRect(Qt::LeftToRight, Qt::AlignCenter, size(), screen->availableGeometry()));
        setSaveFilePath();
    }
}

void Sniffer::showPreviousPage()
{
    appLayer target = LayerMain;
    if (!layerHistory.isEmpty() && layerHistory.last() == LayerOptions)
        target = recordingMode ? LayerMain : LayerInsertURL;
    // Leaving a recording's Options page leaves the recording: the download
    // buttons serve addresses again.
    if (recordingMode)
        fromRecorder = false;
    recordingMode = false;
    layerHistory.clear();
    showLayer(target);
}

void Sniffer::showOptions()
{
    showLayer(LayerSettings);
}
