#pragma once

#include <QDateTime>
#include <QPoint>
#include <QRect>
#include <QSize>
#include <QString>
#include <QStringList>

// The recorder's arithmetic and the command lines it builds, apart from the
// windows and processes that use them.
namespace RecorderRules {

// Places of the region window's close button, Start button and hint.
QPoint closeButtonPos(const QSize &window);
QPoint startButtonPos(const QSize &window, const QSize &button);
QPoint hintPos(const QSize &window, const QSize &hint);

// The part of `region` that lies on a screen of `screen` size: ffmpeg's
// crop cannot reach beyond the picture it is given.
QRect clippedRegion(const QRect &region, const QSize &screen);

// "scale=W:H,crop=w:h:x:y:keep_aspect=1": the grabbed screen scaled to its
// logical size, then cut to the region.
QString grabFilter(const QSize &screen, const QRect &region);

// The stop dialog's top-left corner: 20 pixels from the right edge, 10
// from the top.
QPoint stopDialogPos(int screenWidth, int dialogWidth);

// ffmpeg's device list of the avfoundation input: printed on standard
// error, after which ffmpeg fails on the empty device name.
QStringList deviceListArguments();

// The screen's number in one chunk of ffmpeg's device list, or `current`
// when the chunk does not name it.
QString inputScreen(const QString &chunk, const QString &current);

// The name the work files of one region window share: the MD5 of the
// temporary folder and the time, in hexadecimal.
QString workFileName(const QString &tempDir, const QDateTime &now);

QStringList grabVideoArguments(const QString &format, const QString &screen, const QString &filter,
                               const QString &videoFile);

// A screen shared through the desktop's portal: GStreamer reads the
// PipeWire stream (connection `descriptor`, `node`), scales it to the
// logical `screen`, cuts it to `region` and writes raw frames at 30 a second
// to its standard output ("-e": an interrupt ends the stream cleanly)...
QStringList screenCastArguments(int descriptor, quint32 node, const QSize &screen, const QRect &region);
// ... where ffmpeg reads them (of `size`, the region's on the screen) and
// writes the same MPEG video file as the X11 grab.
QStringList screenCastEncodeArguments(const QSize &size, const QString &videoFile);
// Whether ffmpeg's output says the first picture has come: it describes its
// input once it has read a frame.
bool screenCastStarted(const QString &ffmpegOutput);

// The merge of picture and sound. `audioShiftMs` lines the sound up with
// the picture: positive when the sound started later than the picture (it
// is delayed), negative when it started earlier (its beginning is skipped).
// Without `audioFile` the picture is taken alone.
QStringList mergeArguments(const QString &videoFile, const QString &audioFile, const QString &resultFile,
                           qint64 audioShiftMs);

// The shift that lines the sound up, from the moments (milliseconds since
// the epoch) picture and sound started: none when they are within 40 ms,
// when either moment is unknown (zero), or when they are too far apart to
// be on one clock.
qint64 audioShift(qint64 videoStartMs, qint64 audioStartMs);

// The moment the recorded picture begins, from ffmpeg's input description
// ("start: 1795401922.529454", seconds since the epoch), or 0.
qint64 videoStartMs(const QString &ffmpegOutput);

// The moment the sound began, from the progress lines sox prints while it
// records ("In:0.00% 00:00:01.37 [...]"): the earliest of the times a line
// arrived less the recorded length it shows. A line that shows nothing
// recorded yet says nothing. `best` is the estimate so far (0 for none).
qint64 audioStartMs(const QString &soxOutput, qint64 arrivedMs, qint64 best);

} // namespace RecorderRules
