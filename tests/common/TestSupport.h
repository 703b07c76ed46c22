#pragma once

#include <QApplication>
#include <QString>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>

class QProcess;

// A private home for one test program: HOME and the XDG folders point into
// a temporary folder, so the program's data folder, settings and documents
// never touch the real user's.
class TestHome
{
public:
    TestHome();
    QString path() const { return dir.path(); }
    // The program's data folder inside this home ("Vidorra 2").
    QString dataFolder() const;
    QString documentsFolder() const;

private:
    QTemporaryDir dir;
};

// The folder that holds the test executable and the tools beside it.
QString toolFolder();

// Runs `action` on the next modal widget that appears (message box, file
// dialog), within `timeoutMs`. Returns at once; the action runs from the
// event loop while the code under test sits in exec(). No modal in time, or
// one the action leaves open, fails the running test (and is closed).
void answerNextModal(std::function<void(QWidget *)> action, int timeoutMs = 60000);

// From now on a modal window that nobody answers within `limitMs` is closed
// and fails the running test. Test mains call it once.
void watchModals(int limitMs = 30000);

// Waits, processing events, until `condition` holds or the time is up.
bool waitFor(std::function<bool()> condition, int timeoutMs = 15000);

// Closes the next message box, keeping its title and text (both cleared
// first, so an empty text means no box has come yet).
void closeNextMessage(QString *title, QString *text, int timeoutMs = 60000);

// Answers the next file dialog as a person would: picks the filter (when
// given), types the name, presses Save, then runs `afterSave`.
void answerSaveDialog(const QString &name, const QString &filter = QString(), std::function<void()> afterSave = {});

// Writes the program's settings file: today's update check already done,
// then `body` (INI groups and keys).
bool writeSettings(const QString &dataFolder, const QString &body);

// Starts tests/fixtures/media_server.py on `folder` (with `extra` options
// such as "--rate N"); returns its base address ("http://127.0.0.1:<port>"),
// empty when it did not come up.
QString startMediaServer(QProcess &server, const QString &folder, const QStringList &extra = {});

// The streams of a media file as "codec=kind", in order ("h264=video aac=audio").
QString streams(const QString &file);

// Makes a short clip with the real ffmpeg; returns false if ffmpeg failed.
bool makeClip(const QString &path, double seconds = 1.0, bool withVideo = true);

#define VIDORRA_TEST_MAIN(TestObject)                                                              \
    int main(int argc, char **argv)                                                                \
    {                                                                                              \
        TestHome home;                                                                             \
        QApplication app(argc, argv);                                                              \
        Q_INIT_RESOURCE(vidorra);                                                                  \
        QTEST_DISABLE_KEYPAD_NAVIGATION                                                            \
        watchModals();                                                                             \
        TestObject tc;                                                                             \
        QTEST_SET_MAIN_SOURCE_PATH                                                                 \
        return QTest::qExec(&tc, argc, argv);                                                      \
    }
