#pragma once

#include <QtTest>
#include <QtWidgets>

#include <memory>

// A private home (HOME, XDG folders) so the program never touches the user's files.
struct TestHome
{
    TestHome();
    QTemporaryDir dir;
};

// Runs `action` on the next modal window; none in time, or one the action leaves open, fails the test (and is closed).
void answerNextModal(std::function<void(QWidget *)> action, int timeoutMs = 60000);
// From now on a modal window nobody answers within `limitMs` fails the test and is closed.
void watchModals(int limitMs = 30000);
// Processes events until `condition` holds; false when the time is up.
bool waitFor(std::function<bool()> condition, int timeoutMs = 15000);
// Closes the next message box, keeping its title and text (cleared first), its icon and whether its text is plain.
void closeNextMessage(QString *title, QString *text, int timeoutMs = 60000, QMessageBox::Icon *icon = nullptr,
                      bool *plain = nullptr);
// Answers the next file dialog as a person: filter, typed name, Save, then `afterSave`.
void answerSaveDialog(const QString &name, const QString &filter = QString(), std::function<void()> afterSave = {});
// Answers the coming modal windows in turn, each armed before the one before it acts (a question that opens on Save is
// answered too). Actions: a save dialog answered as above, a message box's button pressed (its text kept).
void answerModals(QList<std::function<void(QWidget *)>> actions);
std::function<void(QWidget *)> saveAs(const QString &name, const QString &filter = QString());
std::function<void(QWidget *)> press(QMessageBox::StandardButton button, QString *text = nullptr);
// The settings file: today's update check done, then `body` (INI text).
bool writeSettings(const QString &dataFolder, const QString &body);
// The whole of a file, written (true when all of it went) or read (empty when it cannot be).
bool writeFile(const QString &path, const QByteArray &bytes);
QByteArray readFile(const QString &path);
// fixtures/media_server.py serving a folder until the object goes; `url`: "http://127.0.0.1:<port>" (https: --tls).
struct MediaServer
{
    bool start(const QString &folder, const QStringList &extra = {});
    ~MediaServer();
    QProcess process;
    QString url;
};
// A sound server of the test's own (its own XDG_RUNTIME_DIR): a silent output "speakers", whose monitor the recorder
// switches to, and a quiet input "quiet" that is the default until then; a 440 Hz tone plays into the output.
struct SoundServer
{
    bool start();
    ~SoundServer();
    QTemporaryDir runtime;
    QProcess server, tone;
};
// A recording's picture (width, height, frame rate declared, frames counted) as ffprobe prints it, and whether the
// tone is in its sound.
QString recordedPicture(const QString &file, int *frames, bool *toneHeard);
// Runs a program to its end (two minutes at most); what it printed on either channel. `ok`: it ended with 0.
QString runTool(const QString &program, const QStringList &arguments, bool *ok = nullptr);
// The streams of a media file as "codec=kind ..." ("h264=video aac=audio").
QString streams(const QString &file);
// Writes a scenario for the stand-in (fixtures/fake-run) to `path` and points it there (children too); returns its log.
QString useScenario(const QString &path, const QString &text);
// The argument lists of the stand-in's logged calls of one kind ("title", "download", ...).
QList<QStringList> fakeCalls(const QString &log, const QString &kind);
// Whether a process of this id still exists.
bool alive(qint64 pid);
// A short clip (H.264 picture, AAC tone) made with the real ffmpeg.
bool makeClip(const QString &path, double seconds = 1.0);

#define VIDORRA_TEST_MAIN(TestObject)                                                                                  \
    int main(int argc, char **argv)                                                                                    \
    {                                                                                                                  \
        TestHome home;                                                                                                 \
        QApplication app(argc, argv);                                                                                  \
        Q_INIT_RESOURCE(vidorra);                                                                                      \
        QCoreApplication::setAttribute(Qt::AA_DontUseNativeDialogs);                                                   \
        watchModals();                                                                                                 \
        TestObject tc;                                                                                                 \
        return QTest::qExec(&tc, argc, argv);                                                                          \
    }
