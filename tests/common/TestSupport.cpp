#include "TestSupport.h"

#include <signal.h>

TestHome::TestHome()
{
    for (const char *folder : {".local/share", ".config", "Documents", "Desktop", "Music", "Videos"})
        QDir(dir.path()).mkpath(folder);
    qputenv("HOME", dir.path().toLocal8Bit());
    qputenv("XDG_DATA_HOME", (dir.path() + "/.local/share").toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (dir.path() + "/.config").toLocal8Bit());
    qunsetenv("XDG_DOCUMENTS_DIR");
    QDir(dir.path()).mkdir("run"); // the program's socket goes there
    QFile(dir.filePath("run")).setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    qputenv("XDG_RUNTIME_DIR", dir.filePath("run").toLocal8Bit());
}

namespace {

int pendingAnswers = 0;

void fail(const QString &message)
{
    if (QTest::currentTestFunction())
        QTest::qFail(qPrintable(message), __FILE__, __LINE__);
}

// Fails the running test and closes the window, so that no test sits in exec() for ever.
void closeStuckModal(QWidget *modal, const char *why)
{
    fail(QString(why) + ": " + modal->metaObject()->className() + " \"" + modal->windowTitle() + "\"");
    if (auto *dialog = qobject_cast<QDialog *>(modal))
        dialog->reject();
    else
        modal->close();
}

} // namespace

void answerNextModal(std::function<void(QWidget *)> action, int timeoutMs)
{
    ++pendingAnswers;
    auto *timer = new QTimer(QCoreApplication::instance()); // freed with the application when nothing came
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    QObject::connect(timer, &QTimer::timeout, [timer, clock, action, timeoutMs]() {
        QWidget *modal = QApplication::activeModalWidget();
        if (!modal && clock->elapsed() < timeoutMs)
            return;
        timer->stop();
        timer->deleteLater();
        --pendingAnswers;
        if (!modal)
            return fail("no modal window came in time");
        const QPointer<QWidget> answered(modal);
        action(modal);
        QTimer::singleShot(5000, [answered] {
            if (answered && answered->isVisible() && answered == QApplication::activeModalWidget())
                closeStuckModal(answered, "the answer did not close");
        });
    });
    timer->start(50);
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
        QTest::qWait(10); // processes events meanwhile
    }
    return true;
}

void closeNextMessage(QString *title, QString *text, int timeoutMs, QMessageBox::Icon *icon, bool *plain)
{
    *title = *text = QString();
    static QMessageBox::Icon unusedIcon; // where the answer keeps what nobody asked for
    static bool unusedPlain;
    answerNextModal(
        [title, text, icon = icon ? icon : &unusedIcon, plain = plain ? plain : &unusedPlain](QWidget *modal) {
            if (auto *box = qobject_cast<QMessageBox *>(modal))
                *title = box->windowTitle(), *text = box->text(), *icon = box->icon(),
                *plain = box->textFormat() == Qt::PlainText;
            modal->close();
        },
        timeoutMs);
}

std::function<void(QWidget *)> saveAs(const QString &name, const QString &filter)
{
    return [name, filter](QWidget *modal) {
        auto *dialog = qobject_cast<QFileDialog *>(modal);
        if (!dialog)
            return closeStuckModal(modal, "a save dialog was expected, not");
        if (!filter.isEmpty())
            dialog->selectNameFilter(filter);
        // Without the focus the dialog completes a partial name from the folder's files.
        QApplication::setActiveWindow(dialog);
        auto *edit = dialog->findChild<QLineEdit *>("fileNameEdit");
        edit->setFocus();
        edit->setText(name);
        QPushButton *save = dialog->findChild<QDialogButtonBox *>()->button(QDialogButtonBox::Save);
        if (edit->text() != name || !save->isEnabled())
            return closeStuckModal(modal, "the name was not taken by");
        QTest::mouseClick(save, Qt::LeftButton);
    };
}

void answerSaveDialog(const QString &name, const QString &filter, std::function<void()> afterSave)
{
    answerNextModal([action = saveAs(name, filter), afterSave](QWidget *modal) {
        action(modal);
        if (afterSave)
            afterSave();
    });
}

std::function<void(QWidget *)> press(QMessageBox::StandardButton button, QString *text)
{
    return [button, text](QWidget *modal) {
        auto *box = qobject_cast<QMessageBox *>(modal);
        if (!box || !box->button(button))
            return closeStuckModal(modal, "a message box with that button was expected, not");
        if (text)
            *text = box->text();
        box->button(button)->click();
    };
}

void answerModals(QList<std::function<void(QWidget *)>> actions)
{
    if (!actions.isEmpty())
        answerNextModal([actions](QWidget *modal) {
            answerModals(actions.mid(1));
            actions.first()(modal);
        });
}

bool writeSettings(const QString &dataFolder, const QString &body)
{
    const QString text = QString("[General]\nlast_update=%1\n").arg(QDate::currentDate().dayOfYear()) + body;
    return QDir().mkpath(dataFolder) && writeFile(dataFolder + "/sniffer.ini", text.toUtf8());
}

bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool MediaServer::start(const QString &folder, const QStringList &extra)
{
    process.start("/usr/bin/python3", QStringList{VIDORRA_FIXTURES_DIR "/media_server.py", folder, "0"} + extra);
    if (!process.waitForStarted(10000) || !process.waitForReadyRead(10000))
        return false;
    const QString first = QString::fromLatin1(process.readLine()).trimmed();
    const QString scheme = extra.contains("--tls") ? "https" : "http";
    url = first.startsWith("PORT ") ? scheme + "://127.0.0.1:" + first.mid(5) : QString();
    return !url.isEmpty();
}

MediaServer::~MediaServer()
{
    process.closeWriteChannel(); // the server leaves when its input closes
    if (!process.waitForFinished(5000))
        process.kill();
}

bool SoundServer::start()
{
    qputenv("XDG_RUNTIME_DIR", runtime.path().toLocal8Bit());
    server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    server.start("pulseaudio", {"-n", "--daemonize=no", "--exit-idle-time=-1", "--disable-shm=yes", "-L",
                                "module-native-protocol-unix", "-L", "module-null-sink sink_name=speakers", "-L",
                                "module-null-source source_name=quiet"});
    if (!waitFor([] { return runTool("pactl", {"info"}).contains("Default Sink: speakers"); }, 30000))
        return false;
    runTool("pactl", {"set-default-source", "quiet"});
    // Played with short blocks, as a sound card takes them.
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("PULSE_LATENCY_MSEC", "20");
    tone.setProcessEnvironment(environment);
    tone.start("sox", {"-q", "-n", "-t", "pulseaudio", "speakers", "synth", "600", "sine", "440", "vol", "0.5"});
    return tone.waitForStarted();
}

SoundServer::~SoundServer()
{
    tone.kill();
    tone.waitForFinished();
    server.terminate();
    server.waitForFinished(10000);
}

QString recordedPicture(const QString &file, int *frames, bool *toneHeard)
{
    // MPEG's stream length is only estimated: the frames, at the stream's 30 a second, tell the time.
    const QString info = runTool("ffprobe", {"-v", "error", "-count_frames", "-select_streams", "v", "-show_entries",
                                             "stream=width,height,r_frame_rate,nb_read_frames", "-of",
                                             "default=noprint_wrappers=1", file});
    *frames = QRegularExpression("nb_read_frames=(\\d+)").match(info).captured(1).toInt();
    const QString level = runTool("ffmpeg", {"-i", file, "-vn", "-af", "volumedetect", "-f", "null", "-"});
    const double mean = QRegularExpression("mean_volume: (-?[\\d.]+) dB").match(level).captured(1).toDouble();
    *toneHeard = mean > -20.0 && mean < -3.0;
    return info;
}

QString runTool(const QString &program, const QStringList &arguments, bool *ok)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    const bool ended = process.waitForFinished(120000);
    if (ok)
        *ok = ended && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    return QString::fromUtf8(process.readAll());
}

QString streams(const QString &file)
{
    return runTool("ffprobe", {"-v", "error", "-show_entries", "stream=codec_name,codec_type", "-of", "csv=p=0", file})
        .simplified()
        .replace(',', '=');
}

QString useScenario(const QString &path, const QString &text)
{
    writeFile(path, text.toUtf8());
    qputenv("VIDORRA_FAKE_SCRIPT", QFile::encodeName(path));
    return path + ".log";
}

QList<QStringList> fakeCalls(const QString &log, const QString &kind)
{
    QList<QStringList> found;
    for (const QByteArray &line : readFile(log).split('\n'))
        if (line.startsWith(kind.toUtf8() + '\t'))
            found << QJsonDocument::fromJson(line.mid(kind.size() + 1)).toVariant().toStringList();
    return found;
}

bool alive(qint64 pid)
{
    return ::kill(pid_t(pid), 0) == 0;
}

bool makeClip(const QString &path, double seconds)
{
    const QString arguments =
        "-hide_banner -loglevel error -y -f lavfi -i testsrc=size=160x120:rate=15:duration=%1 "
        "-f lavfi -i sine=frequency=440:duration=%1 -c:v libx264 -pix_fmt yuv420p -c:a aac -shortest";
    bool ok = false;
    runTool("ffmpeg", arguments.arg(seconds).split(' ') << path, &ok);
    return ok;
}
