#include "TestSupport.h"

#include <QDate>
#include <QDialogButtonBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QProcess>
#include <QPointer>
#include <QPushButton>
#include <QTimer>

#include <memory>

TestHome::TestHome()
{
    const QString home = dir.path();
    QDir(home).mkpath(QStringLiteral(".local/share"));
    QDir(home).mkpath(QStringLiteral(".config"));
    QDir(home).mkpath(QStringLiteral("Documents"));
    QDir(home).mkpath(QStringLiteral("Desktop"));
    QDir(home).mkpath(QStringLiteral("Music"));
    QDir(home).mkpath(QStringLiteral("Videos"));
    qputenv("HOME", home.toLocal8Bit());
    qputenv("XDG_DATA_HOME", (home + QStringLiteral("/.local/share")).toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (home + QStringLiteral("/.config")).toLocal8Bit());
    qunsetenv("XDG_DOCUMENTS_DIR");
}

QString TestHome::dataFolder() const
{
    return dir.path() + QStringLiteral("/.local/share/Vidorra 2");
}

QString TestHome::documentsFolder() const
{
    return dir.path() + QStringLiteral("/Documents");
}

QString toolFolder()
{
    return QCoreApplication::applicationDirPath();
}

namespace {

// Closes a modal window the test did not expect, or one whose answer did not
// close it, failing the running test, so that no test sits in exec() for ever.
void closeStuckModal(QWidget *modal, const char *why)
{
    const QString message = QStringLiteral("%1: %2 \"%3\"").arg(QLatin1String(why),
                                                               QLatin1String(modal->metaObject()->className()),
                                                               modal->windowTitle());
    if (QTest::currentTestFunction())
        QTest::qFail(qPrintable(message), __FILE__, __LINE__);
    if (auto *dialog = qobject_cast<QDialog *>(modal))
        dialog->reject();
    else
        modal->close();
}

int pendingAnswers = 0;

} // namespace

void answerNextModal(std::function<void(QWidget *)> action, int timeoutMs)
{
    ++pendingAnswers;
    auto *timer = new QTimer;
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    timer->setInterval(50);
    QObject::connect(timer, &QTimer::timeout, [timer, clock, action, timeoutMs]() {
        QWidget *modal = QApplication::activeModalWidget();
        if (!modal && clock->elapsed() < timeoutMs)
            return;
        timer->stop();
        timer->deleteLater();
        --pendingAnswers;
        if (!modal) {
            if (QTest::currentTestFunction())
                QTest::qFail("no modal window came in time", __FILE__, __LINE__);
            return;
        }
        const QPointer<QWidget> answered(modal);
        action(modal);
        // An answer that did not close the window must not leave the test waiting.
        QTimer::singleShot(5000, [answered] {
            if (answered && answered->isVisible() && answered == QApplication::activeModalWidget())
                closeStuckModal(answered, "the answer did not close");
        });
    });
    timer->start();
}

void watchModals(int limitMs)
{
    auto *timer = new QTimer(QCoreApplication::instance());
    auto seen = std::make_shared<QPointer<QWidget>>();
    auto since = std::make_shared<QElapsedTimer>();
    QObject::connect(timer, &QTimer::timeout, [seen, since, limitMs] {
        QWidget *modal = QApplication::activeModalWidget();
        if (modal != *seen) {
            *seen = modal;
            since->start();
        } else if (modal && pendingAnswers == 0 && since->elapsed() > limitMs) {
            closeStuckModal(modal, "nobody answered");
        }
    });
    timer->start(250);
}

bool waitFor(std::function<bool()> condition, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > timeoutMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        QTest::qWait(10);
    }
    return true;
}

void closeNextMessage(QString *title, QString *text, int timeoutMs)
{
    title->clear();
    text->clear();
    answerNextModal(
        [title, text](QWidget *modal) {
            if (auto *box = qobject_cast<QMessageBox *>(modal)) {
                *title = box->windowTitle();
                *text = box->text();
            }
            modal->close();
        },
        timeoutMs);
}

void answerSaveDialog(const QString &name, const QString &filter, std::function<void()> afterSave)
{
    answerNextModal([name, filter, afterSave](QWidget *modal) {
        auto *dialog = qobject_cast<QFileDialog *>(modal);
        if (!dialog)
            return closeStuckModal(modal, "a save dialog was expected, not");
        if (!filter.isEmpty())
            dialog->selectNameFilter(filter);
        // The name field needs the focus: without it the dialog completes a
        // partial name from the folder's files into the field.
        QApplication::setActiveWindow(dialog);
        auto *edit = dialog->findChild<QLineEdit *>(QStringLiteral("fileNameEdit"));
        edit->setFocus();
        edit->setText(name);
        QPushButton *save = dialog->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Save);
        if (edit->text() != name || !save->isEnabled())
            return closeStuckModal(modal, "the name was not taken by");
        QTest::mouseClick(save, Qt::LeftButton);
        if (afterSave)
            afterSave();
    });
}

bool writeSettings(const QString &dataFolder, const QString &body)
{
    QFile ini(dataFolder + QStringLiteral("/sniffer.ini"));
    if (!QDir().mkpath(dataFolder) || !ini.open(QIODevice::WriteOnly | QIODevice::Text))
        return false;
    const QString text = QStringLiteral("[General]\nlast_update=%1\n").arg(QDate::currentDate().dayOfYear()) + body;
    return ini.write(text.toUtf8()) == text.toUtf8().size();
}

QString startMediaServer(QProcess &server, const QString &folder, const QStringList &extra)
{
    server.start(QStringLiteral("/usr/bin/python3"),
                 QStringList{QStringLiteral(VIDORRA_FIXTURES_DIR "/media_server.py"), folder, QStringLiteral("0")} +
                     extra);
    if (!server.waitForStarted(10000) || !server.waitForReadyRead(10000))
        return QString();
    const QString first = QString::fromLatin1(server.readLine()).trimmed();
    return first.startsWith(QLatin1String("PORT ")) ? QStringLiteral("http://127.0.0.1:") + first.mid(5) : QString();
}

QString streams(const QString &file)
{
    QProcess probe;
    probe.start(QStringLiteral("ffprobe"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
                                            QStringLiteral("stream=codec_name,codec_type"), QStringLiteral("-of"),
                                            QStringLiteral("csv=p=0"), file});
    probe.waitForFinished(30000);
    QStringList found;
    for (const QString &line : QString::fromUtf8(probe.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts))
        found << line.trimmed().replace(QLatin1Char(','), QLatin1Char('='));
    return found.join(QLatin1Char(' '));
}

bool makeClip(const QString &path, double seconds, bool withVideo)
{
    QStringList args{QStringLiteral("-hide_banner"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                     QStringLiteral("-y")};
    const QString duration = QString::number(seconds);
    if (withVideo)
        args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i")
             << QStringLiteral("testsrc=size=160x120:rate=15:duration=") + duration;
    args << QStringLiteral("-f") << QStringLiteral("lavfi") << QStringLiteral("-i")
         << QStringLiteral("sine=frequency=440:duration=") + duration;
    if (withVideo)
        args << QStringLiteral("-c:v") << QStringLiteral("libx264") << QStringLiteral("-pix_fmt")
             << QStringLiteral("yuv420p");
    args << QStringLiteral("-c:a") << QStringLiteral("aac") << QStringLiteral("-shortest") << path;
    QProcess ffmpeg;
    ffmpeg.start(QStringLiteral("ffmpeg"), args);
    return ffmpeg.waitForFinished(60000) && ffmpeg.exitStatus() == QProcess::NormalExit && ffmpeg.exitCode() == 0;
}
