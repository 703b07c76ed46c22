#pragma once

#include <QApplication>
#include <QProcess>
#include <QtTest>

// A private home (HOME, XDG folders) so the program never touches the user's files.
struct TestHome
{
    TestHome();
    QTemporaryDir dir;
};

// The folder of the test executable and the tools beside it.
QString toolFolder();
// Runs `action` on the next modal window; none in time, or one the action leaves open, fails the test (and is closed).
void answerNextModal(std::function<void(QWidget *)> action, int timeoutMs = 60000);
// From now on a modal window nobody answers within `limitMs` fails the test and is closed.
void watchModals(int limitMs = 30000);
// Processes events until `condition` holds; false when the time is up.
bool waitFor(std::function<bool()> condition, int timeoutMs = 15000);
// Closes the next message box, keeping its title and text (cleared first).
void closeNextMessage(QString *title, QString *text, int timeoutMs = 60000);
// Answers the next file dialog as a person: filter, typed name, Save, then `afterSave`.
void answerSaveDialog(const QString &name, const QString &filter = QString(), std::function<void()> afterSave = {});
// The settings file: today's update check done, then `body` (INI text).
bool writeSettings(const QString &dataFolder, const QString &body);
// Serves `folder` with fixtures/media_server.py; "http://127.0.0.1:<port>", empty on failure.
QString startMediaServer(QProcess &server, const QString &folder, const QStringList &extra = {});
// The streams of a media file as "codec=kind ..." ("h264=video aac=audio").
QString streams(const QString &file);
// Writes a scenario for the stand-in (fixtures/fake-run) to `path` and points it there (children too); returns its log.
QString useScenario(const QString &path, const QString &text);
// The argument lists of the stand-in's logged calls of one kind ("title", "download", ...).
QList<QStringList> fakeCalls(const QString &log, const QString &kind);
// Whether a process of this id still exists.
bool alive(qint64 pid);
// A short clip made with the real ffmpeg.
bool makeClip(const QString &path, double seconds = 1.0, bool withVideo = true);

#define VIDORRA_TEST_MAIN(TestObject)                                                                                  \
    int main(int argc, char **argv)                                                                                    \
    {                                                                                                                  \
        TestHome home;                                                                                                 \
        QApplication app(argc, argv);                                                                                  \
        Q_INIT_RESOURCE(vidorra);                                                                                      \
        watchModals();                                                                                                 \
        TestObject tc;                                                                                                 \
        return QTest::qExec(&tc, argc, argv);                                                                          \
    }
