// What the downloader tool prints, read by the engine: one chunk of its
// standard output becomes the title and duration, the format listing, or a
// progress figure; its standard error becomes the complaint shown to the
// user. The input is one chunk of output, as read from the child.

#include "FuzzSupport.h"

#include "Fiofostis/DownloaderRules.h"

#include <cmath>

using namespace DownloaderRules;

namespace {

const QString titleCharacters =
    QStringLiteral(" 0123456789()abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ");

// `title` is cleanTitle of some text.
void checkTitle(const QString &title)
{
    FUZZ_CHECK(title.size() <= 30);
    FUZZ_CHECK(FuzzSupport::onlyOf(title, titleCharacters));
    FUZZ_CHECK(!title.startsWith(QLatin1Char(' ')));
    FUZZ_CHECK(!title.contains(QLatin1String("  ")));
    // Cleaning a clean title changes nothing but a blank the cut left at
    // its end.
    FUZZ_CHECK(cleanTitle(title) == title.trimmed());
}

void checkPercent(const QString &chunk)
{
    const float percent = percentFromChunk(chunk);
    FUZZ_CHECK(std::isfinite(percent));
    FUZZ_CHECK(percent >= 0.0f && percent <= 100.0f);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzSupport::quietQt();
    // Output without a line gets the default title; it does not depend on
    // the input, so it is checked once here.
    FUZZ_CHECK(titleFromLines(QStringList()) == QLatin1String("default"));
    checkTitle(titleFromLines(QStringList()));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray output = FuzzSupport::bytes(data, size);

    const QString chunk = chunkText(output);
    FUZZ_CHECK(!chunk.contains(QChar(0)));
    FUZZ_CHECK(chunk.size() <= output.size());

    const QStringList lines = chunkLines(chunk);
    FUZZ_CHECK(lines.size() == chunk.count(QLatin1Char('\n')) + 1);
    FUZZ_CHECK(lines.join(QLatin1Char('\n')) == chunk);

    // The title query.
    const QString title = titleFromLines(lines);
    FUZZ_CHECK(title == cleanTitle(lines.first()));
    checkTitle(title);
    FUZZ_CHECK(durationFromLines(lines) == (lines.size() >= 2 ? lines.at(1) : QStringLiteral("0:00")));

    // The format listing.
    static const QHash<int, QString> labels = audioFormatLabels();
    FUZZ_CHECK(labels.size() == 32);
    int offered = 0;
    for (const QString &line : lines) {
        Downloader::videoFormat row;
        if (!parseFormatLine(line, labels, &row))
            continue;
        ++offered;
        FUZZ_CHECK(!line.contains(QLatin1Char('[')) && !line.contains(QLatin1String("DASH")));
        FUZZ_CHECK(!row.description.isEmpty());
        // A row not marked best names its last column in brackets.
        if (!row.best)
            FUZZ_CHECK(row.description.contains(QLatin1String("\t[")) && row.description.endsWith(QLatin1Char(']')));
    }
    const QHash<int, Downloader::videoFormat> formats = parseFormats(lines, labels);
    FUZZ_CHECK(formats.size() <= offered);
    for (auto it = formats.constBegin(); it != formats.constEnd(); ++it)
        FUZZ_CHECK(it.key() == it.value().code);

    // The download's progress, of the chunk and of each line.
    checkPercent(chunk);
    for (const QString &line : lines)
        checkPercent(line);

    // A failed run's standard error.
    FUZZ_CHECK(!toolComplaint(output, -1).isEmpty());
    FUZZ_CHECK(!toolComplaint(output, int(size)).isEmpty());

    // A conversion between two names taken from the output.
    const Downloader::FormatConvertingFrom from = Downloader::FormatConvertingFrom(size % 3);
    const QString input = lines.first();
    const QString result = lines.value(1);
    const QStringList args = ffmpegArguments(input, result, from);
    FUZZ_CHECK(args.size() >= 6);
    FUZZ_CHECK(args.at(0) == QLatin1String("-i") && args.at(1) == input && args.last() == result);
    FUZZ_CHECK(args.at(args.size() - 2) == QLatin1String("-y"));
    if (from == Downloader::fromAudioExtraction)
        FUZZ_CHECK(args.contains(QStringLiteral("-vn")));
    if (from == Downloader::fromVideoDownload)
        FUZZ_CHECK(!args.mid(2, args.size() - 3).contains(QStringLiteral("-vn")));
    return 0;
}
