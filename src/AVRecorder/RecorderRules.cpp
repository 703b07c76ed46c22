#include "AVRecorder/RecorderRules.h"

#include <QCryptographicHash>
#include <QRegularExpression>
#include <QtMath>

namespace RecorderRules {

QPoint closeButtonPos(const QSize &window)
{
    return {window.width() - 24, 0};
}

QPoint startButtonPos(const QSize &window, const QSize &button)
{
    const int h = window.height();
    return {window.width() / 2 - button.width() / 2, h - h / 2 + 50};
}

QPoint hintPos(const QSize &window, const QSize &hint)
{
    const int h = window.height();
    return {window.width() / 2 - hint.width() / 2, (h - h / 2) - hint.height() / 2};
}

QRect clippedRegion(const QRect &region, const QSize &screen)
{
    return region.intersected(QRect(QPoint(0, 0), screen));
}

QString grabFilter(const QSize &screen, const QRect &region)
{
    return QStringLiteral("scale=%1:%2").arg(screen.width()).arg(screen.height()) + QStringLiteral(",") +
           QStringLiteral("crop=%1:%2:%3:%4:keep_aspect=1")
               .arg(region.width())
               .arg(region.height())
               .arg(region.x())
               .arg(region.y());
}

QPoint stopDialogPos(int screenWidth, int dialogWidth)
{
    return {screenWidth - dialogWidth - 20, 10};
}

QStringList deviceListArguments()
{
    return {QStringLiteral("-f"),   QStringLiteral("avfoundation"), QStringLiteral("-list_devices"),
            QStringLiteral("true"), QStringLiteral("-i"),           QStringLiteral("''")};
}

QString inputScreen(const QString &chunk, const QString &current)
{
    const QString screen = QStringLiteral("Capture screen 0");
    if (!chunk.contains(screen))
        return current;
    // "... [1] Capture screen 0": the character after the "[" in the four
    // characters before the name. One character only, so [10] reads as 1.
    const int at = chunk.indexOf(QStringLiteral("] ") + screen);
    const QString piece = chunk.mid(at - 4, 4);
    return piece.mid(piece.indexOf(QLatin1Char('[')) + 1, 1);
}

QString workFileName(const QString &tempDir, const QDateTime &now)
{
    const QByteArray seed = (tempDir + now.toString(Qt::TextDate)).toLatin1();
    return QString::fromLatin1(QCryptographicHash::hash(seed, QCryptographicHash::Md5).toHex());
}

QStringList grabVideoArguments(const QString &format, const QString &screen, const QString &filter,
                               const QString &videoFile)
{
    return {QStringLiteral("-rtbufsize"),
            QStringLiteral("2000M"),
            QStringLiteral("-f"),
            format,
            QStringLiteral("-i"),
            screen,
            QStringLiteral("-r"),
            QStringLiteral("30"),
            QStringLiteral("-vf"),
            filter,
            QStringLiteral("-b:v"),
            QStringLiteral("20M"),
            videoFile};
}

QStringList screenCastArguments(int descriptor, quint32 node, const QSize &screen, const QRect &region)
{
    const QRect cut = clippedRegion(region, screen);
    return {QStringLiteral("-q"),
            QStringLiteral("-e"),
            QStringLiteral("pipewiresrc"),
            QStringLiteral("fd=%1").arg(descriptor),
            QStringLiteral("path=%1").arg(node),
            QStringLiteral("do-timestamp=true"),
            // A still screen sends no frames: the last one is sent again.
            QStringLiteral("keepalive-time=100"),
            QStringLiteral("!"),
            QStringLiteral("videoconvert"),
            QStringLiteral("!"),
            QStringLiteral("videoscale"),
            QStringLiteral("!"),
            QStringLiteral("video/x-raw,width=%1,height=%2").arg(screen.width()).arg(screen.height()),
            QStringLiteral("!"),
            QStringLiteral("videocrop"),
            QStringLiteral("left=%1").arg(cut.x()),
            QStringLiteral("top=%1").arg(cut.y()),
            QStringLiteral("right=%1").arg(screen.width() - cut.right() - 1),
            QStringLiteral("bottom=%1").arg(screen.height() - cut.bottom() - 1),
            QStringLiteral("!"),
            QStringLiteral("videorate"),
            QStringLiteral("!"),
            QStringLiteral("video/x-raw,format=BGRx,framerate=30/1"),
            QStringLiteral("!"),
            QStringLiteral("fdsink"),
            QStringLiteral("fd=1")};
}

QStringList screenCastEncodeArguments(const QSize &size, const QString &videoFile)
{
    return {QStringLiteral("-f"),
            QStringLiteral("rawvideo"),
            QStringLiteral("-pix_fmt"),
            QStringLiteral("bgr0"),
            QStringLiteral("-s"),
            QStringLiteral("%1x%2").arg(size.width()).arg(size.height()),
            QStringLiteral("-r"),
            QStringLiteral("30"),
            QStringLiteral("-i"),
            QStringLiteral("-"),
            QStringLiteral("-r"),
            QStringLiteral("30"),
            QStringLiteral("-b:v"),
            QStringLiteral("20M"),
            videoFile};
}

bool screenCastStarted(const QString &ffmpegOutput)
{
    return ffmpegOutput.contains(QStringLiteral("Input #0, rawvideo"));
}

QStringList mergeArguments(const QString &videoFile, const QString &audioFile, const QString &resultFile,
                           qint64 audioShiftMs)
{
    QStringList args{QStringLiteral("-i"), videoFile};
    if (!audioFile.isEmpty()) {
        const QString seconds = QString::number(qAbs(audioShiftMs) / 1000.0, 'f', 3);
        if (audioShiftMs > 0)
            args << QStringLiteral("-itsoffset") << seconds;
        else if (audioShiftMs < 0)
            args << QStringLiteral("-ss") << seconds;
        args << QStringLiteral("-i") << audioFile;
    }
    args << QStringLiteral("-vcodec") << QStringLiteral("copy") << QStringLiteral("-y") << resultFile;
    return args;
}

qint64 audioShift(qint64 videoStartMs, qint64 audioStartMs)
{
    if (videoStartMs <= 0 || audioStartMs <= 0)
        return 0;
    const qint64 shift = audioStartMs - videoStartMs;
    // Seconds apart, the two moments are not on the same clock (a capture
    // device whose start is not the time of day): nothing to line up.
    return qAbs(shift) > 40 && qAbs(shift) < 5000 ? shift : 0;
}

qint64 videoStartMs(const QString &ffmpegOutput)
{
    static const QRegularExpression start(QStringLiteral("Input #0,.*\\n.*start: (\\d+\\.\\d+)"));
    const QRegularExpressionMatch match = start.match(ffmpegOutput);
    // A time of day, in seconds: anything of 13 digits or more is not one.
    // x11grab stamps each frame with the time it was grabbed, so the first
    // frame shows the screen at this moment (measured with a flash on the
    // screen: to the millisecond on an idle machine; under a heavy load the
    // first frame shows the screen up to a few frames earlier).
    const double seconds = match.hasMatch() ? match.captured(1).toDouble() : 0;
    return seconds > 0 && seconds < 1e12 ? qRound64(seconds * 1000.0) : 0;
}

qint64 audioStartMs(const QString &soxOutput, qint64 arrivedMs, qint64 best)
{
    static const QRegularExpression position(QStringLiteral("In:\\S+\\s+(\\d{1,5}):(\\d\\d):(\\d\\d\\.\\d\\d)"));
    qint64 earliest = best;
    auto lines = position.globalMatch(soxOutput);
    while (lines.hasNext()) {
        const QRegularExpressionMatch line = lines.next();
        const double seconds =
            line.captured(1).toInt() * 3600 + line.captured(2).toInt() * 60 + line.captured(3).toDouble();
        // sox shows 00:00:00.00 as it opens the device, before the sound
        // server has sent anything; a fresh server sends its first block a
        // second or more later, and only what arrives is in the file.
        if (seconds <= 0)
            continue;
        const qint64 start = arrivedMs - qRound64(seconds * 1000.0);
        // 0 stands for no estimate: a chunk claiming more than was ever
        // recorded says nothing.
        if (start <= 0)
            return best;
        if (earliest == 0 || start < earliest)
            earliest = start;
    }
    return earliest;
}

} // namespace RecorderRules
