// The feed: message rules, the socket's lines, the native messaging host fed
// as a browser feeds it (starting the program when nobody listens), vidorra2-sniff.
#include "Feed/LineReader.h"
#include "Feed/Report.h"
#include "Feed/SniffServer.h"
#include "Feed/SocketPath.h"
#include "Platform/Platform.h"
#include "Platform/PrivateFiles.h"
#include "TestSupport.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray frame(const QByteArray &json)
{
    const quint32 length = json.size();
    return QByteArray(reinterpret_cast<const char *>(&length), sizeof length) + json;
}

// A size between # marks goes as a JSON number, else as text.
QByteArray report(const QString &url, const QString &size = QStringLiteral("123456"))
{
    const char *json = "{\"url\":\"%1\",\"size\":\"%2\",\"type\":\"video/webm\",\"source\":\"http://page.example/\"}";
    return QString::fromLatin1(json).arg(url, size).toUtf8().replace("\"#", "").replace("#\"", "");
}

// Notes each report the server passes on as "address source size type";
// received() is what report() sent, noted so.
void collect(SniffServer &server, QStringList *reports)
{
    QObject::connect(&server, &SniffServer::reportReceived,
                     [reports](const QString &a, const QString &b, const QString &c, const QString &d) {
                         *reports << QStringList{a, b, c, d}.join(' ');
                     });
}
QString received(const QString &address)
{
    return address + " http://page.example/ 123456 video/webm";
}
// Python on `path`, run with `setpriv` options `as`: "connect" sends a report, "listen" waits for a client and
// prints what it sent, both after "ready"; "flood" prints how many of 1,100 connections it holds until its input ends.
void python(QProcess &process, const QString &how, const QString &path, const QStringList &as)
{
    const char *code = R"(import resource, socket, sys
how, path, line = sys.argv[1:]
s = socket.socket(socket.AF_UNIX)
if how == "flood":
    resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
    held = [socket.socket(socket.AF_UNIX) for i in range(1100)]
    print(sum(c.connect_ex(path) == 0 for c in held), flush=True); sys.stdin.read(); sys.exit()
if how == "listen":
    s.bind(path); s.listen(); print("ready", flush=True); s = s.accept()[0]
else:
    s.connect(path); s.sendall(line.encode()); print("ready", flush=True)
print(s.recv(99999) if how == "listen" else b"", flush=True))";
    process.start(as.isEmpty() ? "env" : "setpriv",
                  as + QStringList{"/usr/bin/python3", "-c", code, how, path, report("nobody.example/v") + '\n'});
}

// This program run as "vidorra2" stands in for the program the host starts:
// it listens as the program does, notes what arrives in its data folder and
// quits soon after the first report.
int standIn(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    SniffServer server;
    QFile notes(Platform::programDataFolder() + QStringLiteral("/stand-in.txt"));
    if (!server.listen() || !QDir().mkpath(Platform::programDataFolder()) ||
        !notes.open(QIODevice::Append | QIODevice::Unbuffered))
        return 1;
    QObject::connect(&server, &SniffServer::showListRequested, [&] { notes.write("showSniffed\n"); });
    QObject::connect(&server, &SniffServer::reportReceived, [&](const QString &address) {
        notes.write(address.toUtf8() + '\n');
        QTimer::singleShot(1000, &app, &QCoreApplication::quit);
    });
    QTimer::singleShot(60000, &app, &QCoreApplication::quit);
    return app.exec();
}

} // namespace

class TestFeed : public QObject
{
    Q_OBJECT

private slots:
    void rules()
    {
        // The address and size stored; empty: dropped.
        const QList<QPair<QByteArray, QString>> rows{
            {report("http://a.example/v.mp4", "100000"), "http://a.example/v.mp4 100000"},
            {report("HTTPS://a.example/v?x=http://b", "7"), "https://a.example/v?x=http://b 7"}, // the scheme kept
            {report("a.example:8080/v.webm", "0"), "a.example:8080/v.webm 0"},
            {report("a.example/v", "#123456#"), "a.example/v 123456"},
            {report("a.example/v", "000123"), "a.example/v 123"},
            {report("a.example/v", "1234567890123456789"), ""},
            {report("a.example/v", "#-5#"), ""},
            {report("a.example/v", "#1.5#"), ""},
            {report("a.example/v", "#1e300#"), ""},
            {report("blob:https://a.example/1", "1"), ""},
            {report("/v.mp4", "1"), ""},
            {"{\"url\":\"a.example/v\"}", ""},           // no size
            {"{\"url\":\"a.example/v\",\"size\":1", ""}, // not JSON
            {"{\"command\":\"showSniffed\"}", ""},       // a command from the browser
        };
        for (const auto &[json, stored] : rows) {
            const Feed::Message message = Feed::readMessage(json, false);
            QCOMPARE(message.kind == Feed::Message::MediaReport ? message.report.address + ' ' + message.report.size
                                                                : QString(),
                     stored);
            QCOMPARE(message.reason.isEmpty(), !stored.isEmpty());
        }
    }

    void lines()
    {
        Feed::LineReader reader; // a line over 64 KiB goes, up to its end
        QCOMPARE(reader.add(QByteArray(70 * 1024, 'x') + "\n{a}\n" + QByteArray(70 * 1024, 'y') + "z\n{b"),
                 QList<QByteArray>({"{a}"}));
        QCOMPARE(reader.add("c}\n"), QList<QByteArray>({"{bc}"}));
        QCOMPARE(Feed::readMessage(Feed::showListLine(), true).kind, Feed::Message::ShowList);
    }

    void host()
    {
        // The host beside a stand-in for the program: this program as "vidorra2".
        QTemporaryDir folder;
        const QString host = folder.filePath(QStringLiteral("vidorra2-sniffer-host"));
        QVERIFY(QFile::copy(QCoreApplication::applicationDirPath() + QStringLiteral("/vidorra2-sniffer-host"), host));
        QVERIFY(QFile::link(QCoreApplication::applicationFilePath(), folder.filePath(QStringLiteral("vidorra2"))));
        // A socket file left by a crashed run:
        QVERIFY(QFile(Feed::socketPath()).open(QIODevice::WriteOnly));
        auto server = std::make_unique<SniffServer>();
        QVERIFY2(server->listen(), qPrintable(server->errorString()));
        QVERIFY(!SniffServer().listen()); // the socket of a running instance is never taken
        QStringList reports, expected{received("http://first.example/v"), received("https://last.example/v")};
        collect(*server, &reports);

        QByteArray input = frame(report("http://first.example/v")) + frame(QByteArray(70 * 1024, 'x')) +
                           frame("{not json") + frame(report("a.example/v", "12 MB")) +
                           frame(report("ftp://a.example/v"));
        QRandomGenerator random(20240601);
        for (int i = 0; i < 1000; ++i) {
            QByteArray junk(i % 10 == 0 ? 65537 + random.bounded(20000) : random.bounded(3000), Qt::Uninitialized);
            for (char &byte : junk)
                byte = char(random.bounded(256));
            input += frame(junk);
        }
        QProcess process;
        process.start(host, QStringList());
        process.write(input + frame(report("https://last.example/v")));
        QVERIFY(waitFor([&] { return reports.size() == 2; }, 120000));
        QCOMPARE(reports, expected);

        server.reset(); // the program quits: the next report starts it again
        process.write(frame(report("again.example/v")) + frame(report("cut.example/v")).left(30));
        process.closeWriteChannel();
        QVERIFY(waitFor([&] { return process.state() == QProcess::NotRunning; }, 60000));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
        QVERIFY(process.readAllStandardOutput().isEmpty()); // the browser would take it for a message
        const QString notes = Platform::programDataFolder() + QStringLiteral("/stand-in.txt");
        QVERIFY(waitFor([&] { return readFile(notes).count('\n') == 2; }));
        QCOMPARE(readFile(notes), QByteArray("showSniffed\nagain.example/v\n"));
        QVERIFY(waitFor([] { return !QFile::exists(Feed::socketPath()); })); // the stand-in has quit
    }

    void sniff_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");   // 3: nobody listens
        QTest::addColumn<QString>("peer"); // what python() does first; "taken": the first names of the temporary folder
        const QStringList good{"https://a.example/v", "123456", "video/webm", "http://page.example/"};
        QTest::newRow("delivered") << good << 0 << "";
        QTest::newRow("refused") << QStringList{"ftp://a.example/v", "1", "video/webm"} << 1 << "";
        QTest::newRow("arguments missing") << QStringList(good.mid(0, 2)) << 2 << "";
        QTest::newRow("nobody listening") << good << 3 << "";
        QTest::newRow("the temporary folder's names taken") << good << 0 << "taken";
        QTest::newRow("another user connects") << good << 0 << "connect";
        QTest::newRow("another user listens") << good << 3 << "listen";
        QTest::newRow("1,100 connections, few descriptors left") << good << 0 << "flood";
    }

    void sniff()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, status);
        QFETCH(QString, peer);
        const bool root = ::geteuid() == 0, nobody = peer == "connect" || peer == "listen";
        if (nobody && !root)
            QSKIP("only root can be another user");
        // The temporary folder's first names: another user's (as root, a folder of nobody's; else a link), a link.
        QTemporaryDir temp;
        const QString name = temp.filePath("vidorra2-" + Platform::userId());
        if (peer == "taken") {
            QVERIFY(root ? QDir().mkdir(name) && ::chown(qPrintable(name), 65534, 65534) == 0 : QFile::link("/", name));
            QVERIFY(QFile::link("/", name + "-1"));
            qputenv("TMPDIR", temp.path().toLocal8Bit());
            qputenv("XDG_RUNTIME_DIR", "/tmp"); // not this user's alone
        }
        SniffServer server;
        QVERIFY(status == 3 || server.listen());
        QStringList reports;
        collect(server, &reports);
        const QString path = Feed::socketPath();
        QVERIFY(Platform::isPrivateFolder(QFileInfo(path).path()) &&
                (path == name + "-2/sniffer.socket") == (peer == "taken"));
        const auto letIn = [&](mode_t mode) { // nobody, until connected or listening
            for (QString folder = QFileInfo(path).path(); folder.startsWith(qEnvironmentVariable("HOME"));
                 folder = QFileInfo(folder).path())
                QVERIFY(::chmod(qPrintable(folder), mode) == 0);
            QVERIFY(!QFile::exists(path) || ::chmod(qPrintable(path), 0666) == 0);
        };
        const int before = int(QDir("/proc/self/fd").count());
        rlimit saved, few;
        QVERIFY(::getrlimit(RLIMIT_NOFILE, &saved) == 0);
        few = {rlim_t(before + 40), saved.rlim_max};
        QProcess attacker;
        letIn(peer == "listen" ? 0777 : peer == "connect" ? 0711 : 0700);
        if (nobody || peer == "flood") {
            python(attacker, peer, path,
                   nobody ? QStringList{"--reuid=nobody", "--regid=nogroup", "--clear-groups"} : QStringList());
            QVERIFY(attacker.waitForStarted() && (nobody || ::setrlimit(RLIMIT_NOFILE, &few) == 0));
            QVERIFY(waitFor([&] { return attacker.canReadLine(); }, 120000));
            QVERIFY(::setrlimit(RLIMIT_NOFILE, &saved) == 0 && attacker.readLine() == (nobody ? "ready\n" : "1100\n"));
        }
        letIn(0700);
        QProcess process;
        process.start(QCoreApplication::applicationDirPath() + QStringLiteral("/vidorra2-sniff"), arguments);
        QVERIFY(waitFor([&] { return process.state() == QProcess::NotRunning; }));
        QCOMPARE(process.exitCode(), status);
        QCOMPARE(process.readAllStandardError().count('\n'), status == 0 ? 0 : peer == "listen" ? 2 : 1);
        waitFor([&] { return !reports.isEmpty(); }, status == 0 ? 15000 : 300);
        QCOMPARE(reports, status == 0 ? QStringList{received("https://a.example/v")} : QStringList());
        // Another user is refused at either end: nothing is read. A flood leaves maxConnections open.
        QVERIFY(int(QDir("/proc/self/fd").count()) < before + SniffServer::maxConnections + 10);
        attacker.closeWriteChannel();
        attacker.waitForFinished();
        QCOMPARE(attacker.readAll(), QByteArray(nobody ? "b''\n" : ""));
        qputenv("XDG_RUNTIME_DIR", QDir::home().filePath("run").toLocal8Bit());
        qunsetenv("TMPDIR");
    }
};

int main(int argc, char **argv)
{
    if (QFileInfo(QFile::decodeName(argv[0])).fileName() == QLatin1String("vidorra2"))
        return standIn(argc, argv);
    TestHome home;
    QCoreApplication app(argc, argv);
    TestFeed test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_feed.moc"
