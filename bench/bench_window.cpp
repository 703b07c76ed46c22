// Times the window's way from Return in the address field to the Options
// page shown, on a page served on 127.0.0.1, against
//  - the two launcher runs the window waits for (title and format list)
//    started directly at the same moment;
//  - one `yt-dlp -J URL` run, as other programs ask the tool once per
//    address: for the first address after a new version of the tool (no
//    helper of the launcher, nothing kept, no index of the extractors), for
//    the first address of a later session (the index kept in the user's
//    cache folder, nothing else) and for later addresses (the helper idle).
// Every run asks for an address of its own, so nothing kept is reused.
//
// bench_window --media DIR [--runs N]     (DIR holds watch.html)
// Runs offscreen in a private home; the executable lies in a folder with the
// real launcher "run" beside it.
#include "BenchSupport.h"

#include <QApplication>
#include <QDate>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QLoggingCategory>
#include <QPushButton>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>

#include "Sniffer/Sniffer.h"
#include "ui_InsertURL.h"
#include "ui_Navigation.h"
#include "ui_Sniffer.h"

using namespace Bench;

int main(int argc, char **argv)
{
    QTemporaryDir home;
    usePrivateHome(home.path());
    QApplication app(argc, argv);
    Q_INIT_RESOURCE(vidorra);
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.warning=false\ndefault.critical=false"));

    QString mediaDir;
    int runs = 5;
    int exitCode = 0;
    QProcess server;
    const QString base =
        serveMedia(server, app.arguments(), QStringLiteral("watch.html"),
                   "bench_window --media DIR [--runs N]  (DIR with watch.html)", &mediaDir, &runs, &exitCode);
    if (base.isEmpty())
        return exitCode;
    const QString page = base + QStringLiteral("watch.html");

    // Other sites accept the local server.
    const QString data = home.path() + QStringLiteral("/share/Vidorra 2");
    QDir().mkpath(data);
    {
        QSettings ini(data + QStringLiteral("/sniffer.ini"), QSettings::IniFormat);
        ini.setValue(QStringLiteral("os_urls/1"), QStringLiteral("127.0.0.1"));
        // Today's update of the downloader counts as done: its notice would wait for a click.
        ini.setValue(QStringLiteral("last_update"), QDate::currentDate().dayOfYear());
    }

    // VIDORRA_BENCH_TOOL: a release zipapp of yt-dlp to use as the program's
    // own copy (the launcher and the direct runs both use it).
    const QString tool = qEnvironmentVariable("VIDORRA_BENCH_TOOL");
    if (!tool.isEmpty()) {
        QDir().mkpath(data + QStringLiteral("/tools"));
        QFile::setPermissions(data + QStringLiteral("/tools"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QFile::copy(tool, data + QStringLiteral("/tools/yt-dlp"));
        out() << "tool: the program's own copy, " << tool << "\n";
    }

    QTemporaryDir state;
    useLauncherState(state.path() + QStringLiteral("/run"));

    Sniffer sniffer;
    sniffer.start();
    const QString launcher = sniffer.downloader->binDL;
    out() << "launcher: " << launcher << "\npage: " << page << "\n";
    out().flush();

    int address = 0;
    auto nextPage = [&] { return page + QStringLiteral("?run=%1").arg(++address); };
    auto returnToOptions = [&] {
        QTest::mouseClick(sniffer.uiNavigation->btnDownloaderOS, Qt::LeftButton);
        sniffer.uiInsertURL->inputURL->setText(nextPage());
        QElapsedTimer clock;
        clock.start();
        QTest::keyClick(sniffer.uiInsertURL->inputURL, Qt::Key_Return);
        const bool shown = spin([&] { return sniffer.ui->widgetOptions->isVisible(); });
        const double s = seconds(clock);
        if (!shown)
            out() << "  (the Options page did not come)\n";
        sniffer.showLayer(Sniffer::LayerMain);
        return s;
    };

    Pair options;
    options.engine = returnToOptions;
    options.direct = [&] { return titleAndFormatsDirect(launcher, nextPage()); };
    options.between = [] {};

    Pair first;
    first.engine = returnToOptions;
    first.direct = [&] { return dumpJsonDirect(nextPage()); };
    first.between = [] { forgetLauncherState(); };

    Pair firstEver = first;
    firstEver.between = [] { forgetLauncherState(true); };

    Pair later = first;
    later.between = [&] { waitForIdleHelper(); };

    const double ratio = measure("(d) Return to the Options page", options, runs);
    measure("(d0) first address after a new tool, against yt-dlp -J", firstEver, runs);
    // The index of the extractors is written by the helper of a first run.
    returnToOptions();
    waitForIdleHelper();
    const double firstRatio = measure("(d1) first address of a session, against yt-dlp -J", first, runs);
    const double laterRatio = measure("(d2) later addresses, against yt-dlp -J", later, runs);
    forgetLauncherState();
    server.closeWriteChannel();
    server.waitForFinished(5000);
    const bool ok = ratio <= 1.05 && firstRatio <= 1.0 && laterRatio <= 0.5;
    out() << (ok ? "ratios within 1.05, 1.0 and 0.5\n" : "a ratio above its target (1.05, 1.0, 0.5)\n");
    out().flush();
    return ok ? 0 : 1;
}
