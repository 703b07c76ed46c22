// The feed: the rules for one message, the program's socket, the native
// messaging host fed as a browser feeds it, vidorra2-sniff, and the host
// starting the program when nobody listens.
#include "Feed/Report.h"
#include "Feed/SniffServer.h"
#include "Feed/SocketPath.h"
#include "Platform/Platform.h"
#include "TestSupport.h"

#include <QLocalSocket>
#include <QRandomGenerator>
#include <QSignalSpy>

#include <memory>

namespace {

QByteArray frame(const QByteArray &json)
{
    const quint32 length = json.size();
    return QByteArray(reinterpret_cast<const char *>(&length), sizeof length) + json;
}

QByteArray report(const QString &url, const QString &size = QStringLiteral("123456"))
{
    const char *json = "{\"url\":\"%1\",\"size\":\"%2\",\"type\":\"video/webm\",\"source\":\"http://page.example/\"}";
    return QString::fromLatin1(json).arg(url, size).toUtf8();
}

QStringList addresses(const QSignalSpy &spy)
{
    QStringList list;
    for (const QList<QVariant> &signal : spy)
        list << signal.at(0).toString();
    return list;
}

bool finished(QProcess &process, int timeoutMs = 60000)
{
    return waitFor([&] { return process.state() == QProcess::NotRunning; }, timeoutMs) &&
           process.exitStatus() == QProcess::NormalExit;
}

// This program started under the name "vidorra2" stands in for the program
// that the host starts: it listens as the program does and notes in its data
// folder what arrives, then quits soon after the first report.
int standIn(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    SniffServer server;
    QFile notes(Platform::programDataFolder() + QStringLiteral("/stand-in.txt"));
    if (!server.listen() || !notes.open(QIODevice::Append))
        return 1;
    QObject::connect(&server, &SniffServer::showListRequested, [&] { notes.write("showSniffed\n"), notes.flush(); });
    QObject::connect(&server, &SniffServer::reportReceived, [&](const QString &address) {
        notes.write(address.toUtf8() + '\n'), notes.flush();
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
    void initTestCase();
    void rules_data();
    void rules();
    void serverLines();
    void hostFrames();
    void hostReconnects();
    void hostStartsProgram();
    void sniff_data();
    void sniff();

private:
    // A copy of the host in a folder of its own: the program it would start
    // is whatever a test puts beside it.
    QString hostIn(const QTemporaryDir &folder)
    {
        const QString host = folder.filePath(QStringLiteral("vidorra2-sniffer-host"));
        QFile::copy(toolFolder() + QStringLiteral("/vidorra2-sniffer-host"), host);
        return host;
    }
    QTemporaryDir alone;
    QString host;
};

void TestFeed::initTestCase()
{
    host = hostIn(alone);
    QVERIFY(QFileInfo(host).isExecutable());
}

void TestFeed::rules_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("address"); // empty: dropped
    QTest::addColumn<QString>("size");
    const auto row = [](const char *tag, const QString &url, const QString &size, const QString &address,
                        const QString &stored = QString()) {
        QTest::newRow(tag) << report(url, size).replace("\"#", "").replace("#\"", "") << address << stored;
    };
    row("http", "http://a.example/v.mp4", "100000", "a.example/v.mp4", "100000");
    row("https, any case", "HTTPS://a.example/v.mp4?x=1", "7", "a.example/v.mp4?x=1", "7");
    row("no scheme", "a.example:8080/v.webm", "0", "a.example:8080/v.webm", "0");
    row("size as number", "a.example/v", "#123456#", "a.example/v", "123456");
    row("size with leading zeros", "a.example/v", "000123", "a.example/v", "123");
    row("size of 18 digits", "a.example/v", "123456789012345678", "a.example/v", "123456789012345678");
    row("size of 19 digits", "a.example/v", "1234567890123456789", "");
    row("negative size", "a.example/v", "#-5#", "");
    row("fractional size", "a.example/v", "#1.5#", "");
    row("fractional size text", "a.example/v", "1.5", "");
    row("huge size", "a.example/v", "#1e300#", "");
    row("size in words", "a.example/v", "12 MB", "");
    row("size not a number", "a.example/v", "#true#", "");
    row("ftp", "ftp://a.example/v.mp4", "1", "");
    row("blob", "blob:https://a.example/1", "1", "");
    row("no host", "/v.mp4", "1", "");
    row("empty address", "", "1", "");
    QTest::newRow("no size") << QByteArray("{\"url\":\"a.example/v\"}") << ""
                             << "";
    QTest::newRow("no address") << QByteArray("{\"size\":1}") << ""
                                << "";
    QTest::newRow("not JSON") << QByteArray("{\"url\":\"a.example/v\",\"size\":1") << ""
                              << "";
    QTest::newRow("not an object") << QByteArray("[1]") << ""
                                   << "";
    QTest::newRow("command from the browser") << QByteArray("{\"command\":\"showSniffed\"}") << ""
                                              << "";
}

void TestFeed::rules()
{
    QFETCH(QByteArray, json);
    QFETCH(QString, address);
    QFETCH(QString, size);
    const Feed::Message message = Feed::readMessage(json, false);
    QCOMPARE(message.kind == Feed::Message::MediaReport, !address.isEmpty());
    QCOMPARE(message.report.address, address);
    if (!address.isEmpty())
        QCOMPARE(message.report.size, size);
    else
        QVERIFY(!message.reason.isEmpty());
}

void TestFeed::serverLines()
{
    QFile stale(Feed::socketPath()); // as left by a crashed run
    QVERIFY(QDir().mkpath(QFileInfo(stale).path()) && stale.open(QIODevice::WriteOnly));
    SniffServer server;
    QVERIFY2(server.listen(), qPrintable(server.errorString()));
    SniffServer second;
    QVERIFY(!second.listen());
    QSignalSpy reports(&server, &SniffServer::reportReceived);
    QSignalSpy shows(&server, &SniffServer::showListRequested);

    QLocalSocket socket;
    socket.connectToServer(Feed::socketPath());
    QVERIFY(socket.waitForConnected(5000));
    socket.write(QByteArray(70 * 1024, 'x') + report("x.example/in-the-long-line") + "\n" + report("a.example/1") +
                 "\n{\"command\":\"showSniffed\"}\nnot json\n" + report("ftp://a.example/2") + "\n" +
                 report("a.example/3").left(20));
    socket.flush();
    QTest::qWait(200);
    socket.write(report("a.example/3").mid(20) + "\n");
    QVERIFY(waitFor([&] { return reports.size() == 2 && shows.size() == 1; }));
    QCOMPARE(addresses(reports), QStringList({"a.example/1", "a.example/3"}));
    QCOMPARE(reports.first(), QVariantList({"a.example/1", "http://page.example/", "123456", "video/webm"}));
}

void TestFeed::hostFrames()
{
    SniffServer server;
    QVERIFY(server.listen());
    QSignalSpy reports(&server, &SniffServer::reportReceived);

    QByteArray input = frame(report("http://first.example/v.webm")) + frame(QByteArray(70 * 1024, 'x')) +
                       frame("{not json") + frame(report("a.example/v", "12 MB")) + frame(report("ftp://a.example/v"));
    QStringList expected{"first.example/v.webm"};
    QRandomGenerator random(20240601);
    for (int i = 0; i < 1000; ++i) {
        if (i % 100 == 0) {
            expected << QStringLiteral("good%1.example/v").arg(i);
            input += frame(report(expected.last()));
        }
        QByteArray junk(i % 10 == 0 ? 65537 + random.bounded(20000) : random.bounded(3000), Qt::Uninitialized);
        for (char &byte : junk)
            byte = char(random.bounded(256));
        input += frame(junk);
    }
    expected << "last.example/v";
    input += frame(report("https://last.example/v")) + frame(report("cut.example/v")).left(30);

    QProcess process;
    process.start(host, QStringList());
    process.write(input);
    process.closeWriteChannel();
    QVERIFY(finished(process, 120000));
    QCOMPARE(process.exitCode(), 0);
    QVERIFY(process.readAllStandardOutput().isEmpty()); // the browser would read it as a message
    QVERIFY(waitFor([&] { return reports.size() == expected.size(); }));
    QCOMPARE(addresses(reports), expected);
    QCOMPARE(reports.first(), QVariantList({"first.example/v.webm", "http://page.example/", "123456", "video/webm"}));
}

void TestFeed::hostReconnects()
{
    auto server = std::make_unique<SniffServer>();
    QVERIFY(server->listen());
    auto reports = std::make_unique<QSignalSpy>(server.get(), &SniffServer::reportReceived);
    QProcess process;
    process.start(host, QStringList());
    process.write(frame(report("one.example/v")));
    QVERIFY(waitFor([&] { return reports->size() == 1; }));

    server.reset(); // the program quits; nothing to start beside this host
    process.write(frame(report("two.example/v")));
    QTest::qWait(500);
    server = std::make_unique<SniffServer>();
    QVERIFY(server->listen());
    reports = std::make_unique<QSignalSpy>(server.get(), &SniffServer::reportReceived);
    process.write(frame(report("three.example/v")));
    QVERIFY(waitFor([&] { return reports->size() == 2; }));
    QCOMPARE(addresses(*reports), QStringList({"two.example/v", "three.example/v"}));
    process.closeWriteChannel();
    QVERIFY(finished(process));
    QCOMPARE(process.exitCode(), 0);
}

void TestFeed::hostStartsProgram()
{
    QTemporaryDir folder;
    const QString hostBesideProgram = hostIn(folder);
    QVERIFY(QFile::link(QCoreApplication::applicationFilePath(), folder.filePath(QStringLiteral("vidorra2"))));
    QProcess process;
    process.start(hostBesideProgram, QStringList());
    process.write(frame(report("started.example/v")));
    process.closeWriteChannel();
    QVERIFY(finished(process));
    QCOMPARE(process.exitCode(), 0);

    QFile notes(Platform::programDataFolder() + QStringLiteral("/stand-in.txt"));
    QVERIFY(waitFor([&] { return notes.open(QIODevice::ReadOnly) && notes.readAll().count('\n') == 2; }));
    notes.seek(0);
    QCOMPARE(notes.readAll(), QByteArray("showSniffed\nstarted.example/v\n"));
    QVERIFY(waitFor([] { return !QFile::exists(Feed::socketPath()); })); // the stand-in is gone
}

void TestFeed::sniff_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<bool>("listening");
    QTest::addColumn<int>("status");
    QTest::newRow("delivered") << QStringList{"a.example/v.webm", "200000", "video/webm"} << true << 0;
    QTest::newRow("with its page") << QStringList{"https://a.example/v", "1", "audio/ogg", "https://a.example/"} << true
                                   << 0;
    QTest::newRow("ftp refused") << QStringList{"ftp://a.example/v", "200000", "video/webm"} << true << 1;
    QTest::newRow("size refused") << QStringList{"a.example/v", "12MB", "video/webm"} << true << 1;
    QTest::newRow("arguments missing") << QStringList{"a.example/v"} << true << 2;
    QTest::newRow("nobody listening") << QStringList{"a.example/v", "200000", "video/webm"} << false << 3;
}

void TestFeed::sniff()
{
    QFETCH(QStringList, arguments);
    QFETCH(bool, listening);
    QFETCH(int, status);
    SniffServer server;
    QVERIFY(!listening || server.listen());
    QSignalSpy reports(&server, &SniffServer::reportReceived);
    QProcess process;
    process.start(toolFolder() + QStringLiteral("/vidorra2-sniff"), arguments);
    QVERIFY(finished(process));
    QCOMPARE(process.exitCode(), status);
    QCOMPARE(process.readAllStandardError().count('\n'), status == 0 ? 0 : 1);
    QVERIFY(waitFor([&] { return reports.size() == (status == 0 ? 1 : 0); }, status == 0 ? 15000 : 300));
}

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
