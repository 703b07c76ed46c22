// Walks the real window through its pages on a real X server and saves a
// picture of each: the main strip, the address page, the Options page with
// a format list and in recording mode, progress, settings, the sniffed list,
// the About box and an error box. Used by tools/screenshots.sh.

#include <QApplication>
#include <QDir>
#include <QGuiApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QtTest>

#include "Sniffer/Sniffer.h"
#include "ui_Navigation.h"
#include "ui_Options.h"

namespace {

QString outDir;

void settle(int ms = 400)
{
    QTest::qWait(ms);
}

// The screen area of a window with a small dark margin around it.
void shoot(QWidget *window, const QString &name)
{
    settle();
    QScreen *screen = QGuiApplication::primaryScreen();
    const QRect area = window->frameGeometry().adjusted(-8, -8, 8, 8);
    const QPixmap picture = screen->grabWindow(0, area.x(), area.y(), area.width(), area.height());
    const QString path = outDir + "/" + name + ".png";
    picture.save(path);
    printf("%s %dx%d (window %dx%d)\n", qPrintable(path), picture.width(), picture.height(), window->width(),
           window->height());
    fflush(stdout);
}

// Pictures a modal box while it is open, then closes it.
void shootNextModal(const QString &name)
{
    QTimer::singleShot(600, [name]() {
        if (QWidget *modal = QApplication::activeModalWidget()) {
            shoot(modal, name);
            modal->close();
        }
    });
}

void fillOptions(Sniffer &sniffer)
{
    DownloaderOptions *options = sniffer.downloader->options;
    options->title = "Big Buck Bunny 60fps 4K Official";
    options->duration = "10:35";
    options->formats.clear();
    auto add = [options](int code, const char *ext, const char *res, const char *desc, bool best) {
        Downloader::videoFormat f;
        f.code = code;
        f.extension = ext;
        f.resolution = res;
        f.description = desc;
        f.best = best;
        options->formats.insert(code, f);
    };
    add(17, "3gp", "176x144", "AAC 24 KBps\t", false);
    add(36, "3gp", "320x180", "AAC 36 KBps\t", false);
    add(43, "webm", "640x360", "Vorbis 128 KBps", false);
    add(18, "mp4", "640x360", "AAC 96 KBps\t", false);
    add(22, "mp4", "1280x720", "AAC 192 KBps", true);
    options->steps = {Downloader::stepTitle, Downloader::stepFormats};
    sniffer.postTitleRequest();
    sniffer.postFormatsRequest();
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    Q_INIT_RESOURCE(vidorra);
    outDir = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QDir::currentPath();
    QDir().mkpath(outDir);

    auto *sniffer = new Sniffer(nullptr);
    sniffer->start();
    sniffer->move(40, 40);
    shoot(sniffer, "01-main");

    QTest::mouseClick(sniffer->uiNavigation->btnDownloaderYT, Qt::LeftButton);
    shoot(sniffer, "02-address");

    fillOptions(*sniffer);
    shoot(sniffer, "03-options");

    sniffer->recordingMode = true;
    sniffer->showLayer(Sniffer::LayerOptions);
    shoot(sniffer, "04-options-recording");
    sniffer->showPreviousPage();

    sniffer->progressBarStart(100);
    settle(1500);
    shoot(sniffer, "05-progress");
    sniffer->progressBarStart(100, true);
    settle(900);
    shoot(sniffer, "06-progress-converting");
    sniffer->dotsTimer->stop();

    sniffer->showLayer(Sniffer::LayerMain);
    QTest::mouseClick(sniffer->uiNavigation->btnOptions, Qt::LeftButton);
    shoot(sniffer, "07-settings");

    sniffer->showLayer(Sniffer::LayerOldSniffer);
    shoot(sniffer, "08-list");

    sniffer->showLayer(Sniffer::LayerMain);
    sniffer->showAboutDialog();
    sniffer->aboutDialog->move(60, 120);
    shoot(sniffer->aboutDialog, "09-about");
    sniffer->closeAboutDialog();

    sniffer->appSettings.errorDetails = QStringList{"src/Sniffer/DownloadFile.cpp", "231", "onDownloaderError", ""};
    shootNextModal("10-error");
    sniffer->showErrorMessage(Downloader::errorTitle);

    settle(200);
    return 0;
}
