#pragma once

#include <QDialog>
#include <QHash>
#include <QList>
#include <QMessageBox>
#include <QPointer>
#include <QSettings>
#include <QString>
#include <QStringList>

#include <functional>

#include "AVRecorder/AVRecorder.h"
#include "Fiofostis/Downloader.h"
#include "Fiofostis/JobFiles.h"
#include "Sniffer/SniffedRules.h"

class QAction;
class QListWidgetItem;
class QMenu;
class QProgressBar;
class QPushButton;
class QTimer;
class QWidget;
class AVFoundation;
class SniffedDownload;
class PageServer;
class SniffServer;

class Ui_Sniffer;
class Ui_InsertURL;
class Ui_Navigation;
class Ui_OldSniffer;
class Ui_Options;
class Ui_Progress;
class Ui_Settings;
class Ui_Update;

// One media address of the sniffed list.
struct VS_RECENTLY_SNIFFED_VIDEO_DATA
{
    qint32 number = 0; // sequence number, shown in the row
    QString time;      // "hh:mm:ss" of its arrival
    QString url;       // with its scheme
    QByteArray source; // the page it was reported from (Latin-1), not shown
    qint64 sizeBytes = 0;
    QString type;
    bool isVideoSitePage = false; // a page of the video site: no preview
    qint32 downloadState = 0;     // 0 not saved, 1 saving, 2 saved
};

// The main window and the controller of every workflow of the program.
// Each workflow lives in its own source file in this folder.
class Sniffer : public QDialog
{
    Q_OBJECT

public:
    enum appLayer {
        LayerMain = 0,
        LayerProgress = 1,
        LayerInsertURL = 2,
        LayerOptions = 3,
        LayerSettings = 4,
        LayerOldSniffer = 5,
        LayerUpdate = 6
    };
    Q_ENUM(appLayer)

    // Selects the message table; callers also pass plain message numbers
    // through it (see showErrorMessage).
    enum appFlag : int { FlagWarning = 0, FlagError = 1, FlagDownloader = 2 };
    Q_ENUM(appFlag)

    struct menuItem
    {
        QString caption;
        QString action;
        QAction *menuAction = nullptr; // the address menu's entry
    };

    struct applicationSettings
    {
        QHash<QString, QHash<int, QString>> tables;
        QString settingsFile;
        QString lockerFile;
        QString appDataFolder;
        QSettings *ini = nullptr;
        QString urlTable;  // "yt_urls" or "os_urls"
        int urlMode = 0;   // 2 video site, 1 other sites
        QStringList errorDetails;
    };

    explicit Sniffer(QWidget *parent = nullptr);
    ~Sniffer() override;

    // The program's run: the window on the start page until it is closed or a
    // termination signal comes; `started` is called once the window is up.
    static int runProgram(const std::function<void(Sniffer &)> &started = {});

    void start();
    // Ends every child and removes every partial file; the pages stay.
    void endWork();
    void showMainDialog();
    void initWidgets();
    void showLayer(Sniffer::appLayer layer);

    void progressBarStart(int interval);
    void progressBarStart();
    void progressBarStart(int interval, bool caption);

    void showErrorMessage(int number, Sniffer::appFlag selector);
    void showErrorMessage(Sniffer::appFlag flag);
    void showErrorMessage(Downloader::errors error);
    void showWarningMessage(Sniffer::appFlag flag);
    // A box whose text is shown as it is: words of other programs, never markup.
    void showPlainMessage(QMessageBox::Icon icon, const QString &title, const QString &text);

    void setVDWindowTitle(QString text);

    QString getApplicationDataFolder(QString sub);
    void setSettingsFile();
    void settingsInit();
    void settingsRead();
    void settingsRead(QString group);
    void restoreMissingTables();
    // Writes the settings to disk, keeping the file the user's alone.
    void syncSettings();
    QString tableText(const QString &group, int key) const;

    void checkLocker();
    void removeLocker();

    void initClickHelp();
    void initClickDownloadOS();
    void initDownloader();
    bool checkLastUpdateDate();

    void updateURLHint();
    void setOutputVideoFile();
    void setSaveFilePath();
    QString GetSaveAsFullPath(QString extension);
    QString fixExtension(const QString &name, const QString &extension);
    // The "Processing error:" box for a file that could not be written.
    void showFileNotCreated(const QString &target);
    // Ends the current save on disk: removes exactly the work files it
    // created (never the chosen file, nor anything that was there before).
    void discardSave();
    // Whether the user lets `path`, which exists, be replaced.
    bool confirmReplace(const QString &path);

    void Append(const QString &url, const QString &source, const QString &size, const QString &type);
    int FindByURL(const QString &url) const;
    int FindBySizeBytes(qint64 size) const;
    void RemoveAt(int index);
    void SetDownloadState(int index, int state);
    void AddListItem(const QString &first, const QString &second, const QString &third);
    void RefreshList();
    QString DownloadYouTubeVideoFromSniffedURL(int index);
    void initSniffedList();
    void initSniffedFeed();
    // Reports are waiting: look at the queue soon.
    void wakeUrlQueue();
    // The list page shows the list alone (0) or the self-test's notice under it (1).
    void setListPageView(int view);

signals:
    void downloadFinished(QString);

public slots:
    void progressBarIteration();
    void progressBarTextIteration();
    void stopLastProcess();
    void showPreviousPage();
    void showURLField();
    void showOptions();
    void processURL();
    void runRecorderAV();
    void doneRecorderAV(AVRecorder::ResultingData data);
    void doneRecorderAV(QString path);
    void postRecorderAV();
    void closeRecorderAV();
    void errorRecorderAV(int code, QString description);
    void saveRecorderAV(QString file);
    void runOldSniffer();
    void showOldSniffer();
    void testSniffer();
    void updateSniffer();
    void postUpdateSniffer();
    void postUpdateFailure(const QString &reason);
    void showUpdateProgress(float percent, const QString &name);
    void showSignInNeeded();
    void onClickHelp();
    void onClickHelpItem();
    void onRightClickDownloadOS(QPoint pos);
    void onClickDownloadOSItem();
    void onDownloaderError(Downloader::errors error);
    void runDownloader();
    void postTitleRequest();
    void postFormatsRequest();
    void postFileRequest();
    void postDownload();
    void downloadVideo();
    void downloadAudio();
    void extractAudio();
    void showPercents(float percent);
    void selectSavePath();
    // False when the user declined to replace an existing file: no save.
    bool selectSaveFile();
    void showLogsFolder();
    void showAboutDialog();
    void closeAboutDialog();
    void mirelSetDefaultURL();
    void focusChanged(QWidget *old, QWidget *now);
    void focusOnInputURL();
    void saveDefaultFilePath();
    void showCookiesSetting();
    void selectDefaultFilePath();
    void onSaveFilterSelected(const QString &filter);
    QString onClickOldSnifferDownload();
    void onClickOldSnifferDownloadAudio();
    void onClickOldSnifferDownloadVideo();
    void onClickOldSnifferRemove();
    void onClickOldSnifferPreview();
    void onClickOldSnifferListItem(QListWidgetItem *item);
    void onClickOldSnifferListItem();
    void onOldSnifferDownloadFinished(QString path);
    void changeButtonIcon();
    void checkUrlQueue();
    void connectBrowserAddOn();
    void showHelpDesk();

public:
    // Empties a folder tree: files go, sub-folders stay, emptied.
    static void clearDir(const QString &path);

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

public:
    // Pages and widgets
    Ui_Sniffer *ui = nullptr;
    Ui_InsertURL *uiInsertURL = nullptr;
    Ui_Navigation *uiNavigation = nullptr;
    Ui_OldSniffer *uiOldSniffer = nullptr;
    Ui_Options *uiOptions = nullptr;
    Ui_Progress *uiProgress = nullptr;
    Ui_Settings *uiSettings = nullptr;
    Ui_Update *uiUpdate = nullptr;
    QProgressBar *progressBar = nullptr;
    QTimer *progressTimer = nullptr;
    QTimer *dotsTimer = nullptr;
    int dotsCount = 3;
    bool dotsGrowing = true;
    bool dotsRunning = false;
    QHash<QWidget *, int> pageHeights;
    QHash<appLayer, QHash<QWidget *, bool>> layers;
    QList<appLayer> layerHistory;
    QHash<QWidget *, QStringList> styles;
    bool urlHintShown = false;  // the hint image of the address field is on
    bool recordingMode = false; // the Options page saves a screen recording

    // Settings
    applicationSettings appSettings;

    // Menus
    QList<menuItem> helpMenu;
    QMenu *helpPopup = nullptr;
    QList<menuItem> downloadOSMenu;
    QPointer<QDialog> aboutDialog;

    // Download workflow
    Downloader *downloader = nullptr;
    int downloadMode = 0;
    int saveMode = 0;
    int snifferSaveMode = 0;
    bool fromRecorder = false; // the save dialogs serve a finished screen recording
    int rememberedLayer = 0;
    QString outputExtension;
    QHash<int, QString> formatLabels;
    QString outputVideoFile; // while saving: the work file the download goes to
    QString outputAudioFile; // the work file the converted result goes to (the download when none is needed)
    QString outputTarget;    // the file the user chose, replaced by the result at the end
    JobFiles saveFiles;      // the work files of the current save; removeCreated() clears them

    // Sniffed media list
    VS_RECENTLY_SNIFFED_VIDEO_DATA sniffedEntries[SniffedRules::capacity];
    qint32 sniffedCount = 0;
    qint32 sniffedSequence = 0;
    bool snifferPageWired = false;
    QTimer *urlQueueTimer = nullptr;
    QPushButton *flashButton = nullptr;
    QString flashIconPath;
    bool flashDone = true;
    QList<SniffedDownload *> sniffedDownloads;
    bool announceSniffedDownload = false; // the list's buttons emit downloadFinished when a save is complete
    QString sniffedSourceFile; // the last audio save of the list and its ".mp3" copy
    QString sniffedTargetFile;
    qint32 testUrlIndex = 0;
    qint64 lastPreviewPid = 0;
    SniffServer *sniffServer = nullptr; // reports from the browser add-on and vidorra2-sniff
    PageServer *testPageServer = nullptr; // the self-test's page, while the test runs

    // Recorder
    AVFoundation *avFoundation = nullptr;
    QPointer<AVRecorder> recorder;
    QString recordedAudio; // the work files of the last recording
    QString recordedVideo;
    QString recordedResult; // the merged file, saved from the Options page
    QRect recordedRegion;
    bool haveRecordedRegion = false; // the next recorder opens on the last region
};
