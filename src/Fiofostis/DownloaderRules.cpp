#include "Fiofostis/DownloaderRules.h"

#include <QDir>
#include <QFileInfo>
#include <QRegExp>
#include <QRegularExpression>

#include <cmath>

namespace DownloaderRules {

QString chunkText(const QByteArray &bytes)
{
    // The tool's output is read as a C string: a zero byte ends the text.
    return QString::fromLatin1(bytes.trimmed().constData());
}

QStringList chunkLines(const QString &chunk)
{
    return chunk.split(QStringLiteral("\n"), Qt::KeepEmptyParts, Qt::CaseSensitive);
}

QString cleanTitle(const QString &raw)
{
    // "(-)" in the class is the range from "(" to ")": hyphens, dots and
    // every non-ASCII letter go, so the title is always a safe file name.
    QString title = raw;
    title.replace(QRegExp(QStringLiteral("[^ 0-9(-)a-zA-Z\\s]"), Qt::CaseSensitive, QRegExp::RegExp),
                  QStringLiteral(" "));
    title.replace(QRegExp(QStringLiteral("\\s+")), QStringLiteral(" "));
    return title.trimmed().left(30);
}

QString titleFromLines(const QStringList &lines)
{
    return cleanTitle(lines.isEmpty() ? QStringLiteral("default") : lines.first());
}

QString durationFromLines(const QStringList &lines)
{
    return lines.size() >= 2 ? lines.at(1) : QStringLiteral("0:00");
}

QHash<int, QString> audioFormatLabels()
{
    // Code 36 really says 36 and code 13 has no figure; the labels are shown
    // as they are.
    static const struct
    {
        int code;
        const char *label;
    } table[] = {
        {5, "MP3 64 KBps"},       {6, "MP3 64 KBps"},       {13, "AAC N/A"},         {17, "AAC 24 KBps"},
        {18, "AAC 96 KBps"},      {22, "AAC 192 KBps"},     {34, "AAC 128 KBps"},    {35, "AAC 128 KBps"},
        {36, "AAC 36 KBps"},      {37, "AAC 192 KBps"},     {38, "AAC 192 KBps"},    {43, "Vorbis 128 KBps"},
        {44, "Vorbis 128 KBps"},  {45, "Vorbis 192 KBps"},  {46, "Vorbis 192 KBps"}, {82, "AAC 96 KBps"},
        {83, "AAC 96 KBps"},      {84, "AAC 192 KBps"},     {85, "AAC 192 KBps"},    {100, "Vorbis 128 KBps"},
        {101, "Vorbis 192 KBps"}, {102, "Vorbis 192 KBps"}, {92, "AAC 48 KBps"},     {93, "AAC 128 KBps"},
        {94, "AAC 128 KBps"},     {95, "AAC 256 KBps"},     {96, "AAC 256 KBps"},    {120, "AAC 128 KBps"},
        {127, "AAC 96 KBps"},     {128, "AAC 96 KBps"},     {132, "AAC 48 KBps"},    {151, "AAC 24 KBps"},
    };
    QHash<int, QString> labels;
    for (const auto &entry : table)
        labels.insert(entry.code, QString::fromLatin1(entry.label));
    return labels;
}

bool parseFormatLine(const QString &line, const QHash<int, QString> &audioFormats, Downloader::videoFormat *row)
{
    // Separate video-only and audio-only streams cannot be saved as one
    // file, so they are not offered.
    if (line.contains(QLatin1Char('[')) || line.contains(QLatin1String("DASH")))
        return false;
    const QStringList columns = line.split(QRegExp(QStringLiteral("\\s+")), Qt::KeepEmptyParts);
    if (columns.value(0) == QLatin1String("format"))
        return false;

    row->code = columns.value(0).toInt();
    row->extension = columns.value(1);
    row->resolution = columns.value(2);

    QString description = audioFormats.value(row->code);
    if (description.isEmpty()) {
        description = QStringLiteral("N/A");
        static const char *const keywords[] = {"@", "avc1", "vp9", "mp4a"};
        bool found = false;
        for (int i = columns.size() - 1; i >= 2 && !found; --i) {
            const QString &column = columns.at(i);
            for (const char *keyword : keywords) {
                if (column.contains(QLatin1String(keyword))) {
                    description = column.left(column.indexOf(QLatin1Char('.')))
                                      .toUpper()
                                      .replace(QLatin1Char(','), QLatin1Char(' '));
                    found = true;
                    break;
                }
            }
        }
    }
    // The Options list aligns its columns with tabs.
    if (description.length() <= 11)
        description += QLatin1Char('\t');

    const QString last = columns.last();
    row->best = last == QLatin1String("(best)");
    if (!row->best)
        description += QStringLiteral("\t[") + last + QLatin1Char(']');
    row->description = description;
    return true;
}

QHash<int, Downloader::videoFormat> parseFormats(const QStringList &lines, const QHash<int, QString> &audioFormats)
{
    QHash<int, Downloader::videoFormat> formats;
    for (const QString &line : lines) {
        Downloader::videoFormat row;
        if (parseFormatLine(line, audioFormats, &row))
            formats.insert(row.code, row);
    }
    return formats;
}

float percentFromChunk(const QString &chunk)
{
    // No checks on purpose: a chunk without a figure moves the bar to 0,
    // and several progress lines in one chunk give the first figure.
    const int a = chunk.indexOf(QLatin1Char(']'));
    const int b = chunk.indexOf(QLatin1Char('%'));
    const float figure = chunk.mid(a + 1, b - (a + 1)).toFloat();
    // toFloat takes "nan" and "inf" too; the bar gets a whole percentage.
    return std::isfinite(figure) ? qBound(0.0f, figure, 100.0f) : 0.0f;
}

QStringList ffmpegArguments(const QString &input, const QString &output, Downloader::FormatConvertingFrom from)
{
    const QString suffix = QFileInfo(output).suffix();
    QStringList args{QStringLiteral("-i"), input};
    if (suffix != QLatin1String("mov"))
        args << QStringLiteral("-level") << QStringLiteral("3.1");
    if (suffix == QLatin1String("mp4") || suffix == QLatin1String("m4v") || suffix == QLatin1String("mkv")) {
        args << QStringLiteral("-vcodec") << QStringLiteral("mpeg4");
    } else if (suffix == QLatin1String("flv")) {
        args << QStringLiteral("-vcodec") << QStringLiteral("flv");
    } else if (suffix == QLatin1String("mov")) {
        args << QStringLiteral("-level") << QStringLiteral("3.1") << QStringLiteral("-vcodec")
             << QStringLiteral("mpeg4") << QStringLiteral("-f") << QStringLiteral("mov");
    }
    // Audio targets take the codec ffmpeg picks for their extension; an
    // audio file gets no picture stream (nor the time to encode one), nor
    // does a recording saved as sound (M4A or OGG would keep one).
    static const QStringList soundOnly{QStringLiteral("wav"),  QStringLiteral("mp3"), QStringLiteral("m4a"),
                                       QStringLiteral("aiff"), QStringLiteral("wma"), QStringLiteral("flac"),
                                       QStringLiteral("aac"),  QStringLiteral("ogg")};
    if (from == Downloader::fromAudioExtraction || (from == Downloader::fromRecording && soundOnly.contains(suffix)))
        args << QStringLiteral("-vn");
    args << QStringLiteral("-qscale") << QStringLiteral("1") << QStringLiteral("-y") << output;
    return args;
}

QString toolComplaint(const QByteArray &errorOutput, int exitCode)
{
    QStringList errors;
    QString last;
    const QStringList lines = QString::fromUtf8(errorOutput).split(QLatin1Char('\n'));
    for (const QString &line : lines) {
        const QString text = line.trimmed();
        if (text.startsWith(QLatin1String("ERROR:")))
            errors << text;
        if (!text.isEmpty())
            last = text;
    }
    if (!errors.isEmpty())
        return errors.join(QLatin1Char('\n'));
    if (!last.isEmpty())
        return last;
    return exitCode < 0 ? QStringLiteral("The downloader stopped unexpectedly.")
                        : QStringLiteral("The downloader ended with exit code %1.").arg(exitCode);
}

QString updateFailureReason(const QByteArray &errorOutput, int exitCode)
{
    static const QLatin1String marker("run: update failed:");
    const QString text = QString::fromUtf8(errorOutput);
    const int at = text.lastIndexOf(marker);
    if (at >= 0) {
        const QString reason = text.mid(at + marker.size()).section(QLatin1Char('\n'), 0, 0).trimmed();
        if (!reason.isEmpty())
            return reason;
    }
    if (exitCode == 127)
        return QStringLiteral("the downloader launcher could not be started");
    return exitCode < 0 ? QStringLiteral("the downloader launcher stopped unexpectedly")
                        : QStringLiteral("the downloader launcher ended with exit code %1").arg(exitCode);
}

bool updateProgress(const QByteArray &errorOutput, float *percent, QString *name)
{
    // Only ended lines: a chunk may stop inside the name.
    static const QRegularExpression line(QStringLiteral("\\[download\\]\\s+([0-9.]+)% of (\\S+)[ \\t]*[\\r\\n]"));
    QRegularExpressionMatch last;
    QRegularExpressionMatchIterator it = line.globalMatch(QString::fromUtf8(errorOutput));
    while (it.hasNext())
        last = it.next();
    if (!last.hasMatch())
        return false;
    *percent = qBound(0.0f, last.captured(1).toFloat(), 100.0f);
    *name = last.captured(2);
    return true;
}

bool asksSignIn(const QByteArray &errorOutput)
{
    const QString text = QString::fromUtf8(errorOutput);
    return text.contains(QLatin1String("confirm you"), Qt::CaseInsensitive) &&
           text.contains(QLatin1String("not a bot"), Qt::CaseInsensitive);
}

QString launcherPath(const QString &folder)
{
    return QDir::toNativeSeparators(folder) + QDir::separator() + QStringLiteral("run");
}

QString ffmpegPath(const QString &folder, int build)
{
    return QDir::toNativeSeparators(folder) + QDir::separator() + QStringLiteral("ffmpeg") + QString::number(build) +
           QStringLiteral("_311");
}

} // namespace DownloaderRules
