// What the recorder reads from ffmpeg and sox, and the region it is given:
// the screen's number in ffmpeg's device list, the moment the picture
// began (ffmpeg's input description), the moment the sound began (sox's
// progress lines), the merge lined up from both, and the grabbed region
// clipped to the screen. The input's last bytes are the screen size, the
// region and the time the sox output arrived; the rest is ffmpeg's device
// list and its description, each ended by a lone backslash, then sox's
// output. ffmpeg and sox are read as Latin-1, as the recorder reads them.

#include "FuzzSupport.h"

#include "AVRecorder/RecorderRules.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <QRegularExpression>

using namespace RecorderRules;

namespace {

// The moments the recorder sees: milliseconds since the epoch up to the
// year 2500.
constexpr qint64 latestMoment = 16725225600000LL;

void checkRegion(const QRect &region, const QSize &screen)
{
    const QRect clipped = clippedRegion(region, screen);
    if (!clipped.isEmpty()) {
        // ffmpeg's crop must lie inside the picture it is given.
        FUZZ_CHECK(QRect(QPoint(0, 0), screen).contains(clipped));
        FUZZ_CHECK(region.contains(clipped));
        FUZZ_CHECK(clipped.x() >= 0 && clipped.y() >= 0);
        FUZZ_CHECK(clipped.x() + clipped.width() <= screen.width());
        FUZZ_CHECK(clipped.y() + clipped.height() <= screen.height());
    }
    if (QRect(QPoint(0, 0), screen).contains(region) && !region.isEmpty())
        FUZZ_CHECK(clipped == region);

    const QString filter = grabFilter(screen, clipped);
    static const QRegularExpression form(
        QStringLiteral("^scale=(-?\\d+):(-?\\d+),crop=(-?\\d+):(-?\\d+):(-?\\d+):(-?\\d+):keep_aspect=1$"));
    const QRegularExpressionMatch match = form.match(filter);
    FUZZ_CHECK(match.hasMatch());
    FUZZ_CHECK(match.captured(1).toInt() == screen.width() && match.captured(2).toInt() == screen.height());
    FUZZ_CHECK(match.captured(3).toInt() == clipped.width() && match.captured(4).toInt() == clipped.height());
    FUZZ_CHECK(match.captured(5).toInt() == clipped.x() && match.captured(6).toInt() == clipped.y());
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzSupport::quietQt();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzedDataProvider provider(data, size);
    // Screens up to 32767 pixels wide; the region window may hang over any
    // edge, or be turned inside out (a negative size).
    const QSize screen(provider.ConsumeIntegralInRange(0, 32767), provider.ConsumeIntegralInRange(0, 32767));
    const QRect region(provider.ConsumeIntegral<int16_t>(), provider.ConsumeIntegral<int16_t>(),
                       provider.ConsumeIntegral<int16_t>(), provider.ConsumeIntegral<int16_t>());
    const qint64 arrived = provider.ConsumeIntegralInRange<qint64>(0, latestMoment);
    const QString devices = FuzzSupport::latin1(provider.ConsumeRandomLengthString());
    const QString description = FuzzSupport::latin1(provider.ConsumeRandomLengthString());
    const QString sox = FuzzSupport::latin1(provider.ConsumeRemainingBytesAsString());

    // The device list.
    const QString current = QStringLiteral("0");
    const QString screenNumber = inputScreen(devices, current);
    if (!devices.contains(QLatin1String("Capture screen 0")))
        FUZZ_CHECK(screenNumber == current);
    else
        FUZZ_CHECK(screenNumber.size() <= 1);

    // The region.
    checkRegion(region, screen);

    // The moments picture and sound began, and the merge lined up on them.
    const qint64 videoStart = videoStartMs(description);
    FUZZ_CHECK(videoStart == 0 || description.contains(QLatin1String("start: ")));
    const qint64 audioStart = audioStartMs(sox, arrived, 0);
    FUZZ_CHECK(audioStart == 0 || sox.contains(QLatin1String("In:")));
    // A second chunk arriving later never moves the estimate later.
    const qint64 again = audioStartMs(sox, arrived + 1000, audioStart);
    FUZZ_CHECK(again == audioStart || audioStart == 0);

    const qint64 shift = audioShift(videoStart, audioStart);
    FUZZ_CHECK(shift == 0 || (shift > 40 || shift < -40));
    const QString video = QStringLiteral("/tmp/v.mkv"), audio = QStringLiteral("/tmp/a.wav"),
                  result = QStringLiteral("/tmp/r.mp4");
    const QStringList args = mergeArguments(video, audio, result, shift);
    FUZZ_CHECK(args.first() == QLatin1String("-i") && args.at(1) == video && args.last() == result);
    FUZZ_CHECK(args.contains(audio));
    FUZZ_CHECK(args.contains(QStringLiteral("-itsoffset")) == (shift > 0));
    FUZZ_CHECK(args.contains(QStringLiteral("-ss")) == (shift < 0));
    FUZZ_CHECK(!mergeArguments(video, QString(), result, shift).contains(QStringLiteral("-itsoffset")));
    return 0;
}
