#pragma once

#include <QHash>
#include <QList>
#include <QObject>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QUrl>

struct DownloaderOptions;

// Drives the external downloader tool (through the launcher "run" in the
// application folder) and ffmpeg. One child process per job; every job ends
// in a signal.
class Downloader : public QObject
{
    Q_OBJECT

public:
    enum errors {
        errorNoLauncher = 0,
        errorTestRun = 1,
        errorTestTitle = 2,
        errorTitle = 3,
        errorUpdate = 4,
        errorConverting = 5,
        errorNoAudioFile = 6,
        errorCannotRemove = 7,
        errorDownload = 8,
        errorFormats = 9
    };
    Q_ENUM(errors)

    enum steps { stepIdle = 0, stepTitle = 1, stepFormats = 2, stepFile = 3, stepConverting = 4 };
    Q_ENUM(steps)

    // What a conversion is for: the audio of a download (picture dropped,
    // the download removed afterwards), a screen recording (input kept), or a
    // downloaded video in another container (the download removed afterwards).
    enum FormatConvertingFrom { fromAudioExtraction = 0, fromRecording = 1, fromVideoDownload = 2 };
    Q_ENUM(FormatConvertingFrom)

    struct videoFormat
    {
        int code = 0;
        bool best = false;
        QString extension;
        QString resolution;
        QString description;
    };

    explicit Downloader(QObject *parent = nullptr);
    ~Downloader() override;

    bool setURL(QUrl *url);
    void getOptions();
    void requestFile(int format, QString outputPath);
    void formatConverting(QString input, QString output, Downloader::FormatConvertingFrom from);
    void checkUpdates();
    void testIt(QString url, QString expectedTitle);
    void stop();
    void fillFormatAudio();

    steps step = stepIdle;
    DownloaderOptions *options = nullptr;
    QHash<int, QString> audioFormats;
    QString updateOutput;
    QProcess *processUpdate = nullptr;
    QProcess *processTest = nullptr;
    QProcess *processTitle = nullptr;
    QProcess *processFormats = nullptr;
    QProcess *processFile = nullptr;
    QProcess *processFFmpeg = nullptr;
    QString scriptSuffix;
    QString binDL;
    QString url;
    QString partFile;
    QStringList titleLines;
    QStringList formatLines;
    QStringList ffmpegArgs;
    QStringList testData;
    bool signInAsked = false; // once per address, though both queries fail
    QString lastComplaint;    // the tool's own words on the last failed query or download, plain text
    FormatConvertingFrom convertingFrom = fromAudioExtraction;

signals:
    void hasError(Downloader::errors);
    void haveOptions();
    void haveTitle();
    void haveFormats();
    void haveFile();
    void testOK();
    void doneExtractAudio();
    void percent(float);
    void snifferUpdated();
    // The update could not be made; `reason` is the launcher's, plain text.
    void updateFailed(QString reason);
    void updateProgress(float percent, QString name);
    // The site wants the user signed in before it answers the address.
    void signInNeeded();

public slots:
    void requestTitle();
    void readTitle();
    void gotTitle(int exitCode);
    void requestFormats();
    void readFormats();
    void gotFormats(int exitCode);
    void readFile();
    void gotFile(int exitCode);
    void readUpdate();
    void gotUpdate(int exitCode);
    void readFormatConverting();
    void doneFormatConverting(int exitCode);
    void testRead();
    void testResult(int exitCode);

private:
    // Creates one child for one job, wires it to the job's slots and starts
    // it; a child that cannot be started ends the job as a failed run.
    QProcess *startChild(const QString &program, const QStringList &arguments,
                         void (Downloader::*readSlot)(), void (Downloader::*doneSlot)(int));
    // The child whose end is being handled: the sender, which is not always
    // the job's field when an earlier child of the same job ends late.
    QProcess *endedChild(QProcess *current) const;
    // Lets the ended child go; the job's field forgets it, so nothing touches
    // it again.
    void releaseEndedChild(QProcess *&field);
    // Ends a running child at once, without a word from it, and lets it go.
    void endChild(QProcess *&field);
    bool holdsChild(const QProcess *child) const;
    // Keeps the last 16 KB of a child's standard error and returns them;
    // an update's progress lines are passed on as they come.
    QByteArray readErrors(QProcess *child);
    void askSignIn();
    // Logs the tool's words on a failed run and keeps them for the message.
    void keepComplaint(const QByteArray &errors, int exitCode);
};

struct DownloaderOptions
{
    QString title;
    QString duration;
    QList<Downloader::steps> steps;
    QHash<int, Downloader::videoFormat> formats;
};
