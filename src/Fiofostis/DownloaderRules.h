#pragma once

#include "Fiofostis/Downloader.h"

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>

// The text rules of the engine, free of processes: what the downloader tool
// prints becomes titles, format rows and progress figures here, and the
// command lines and tool paths are built here. The job slots only wire these
// to their child processes.
namespace DownloaderRules {

// One read of a child's standard output as the engine sees it: the bytes
// trimmed of surrounding white space, taken as ASCII up to the first zero
// byte. Every chunk is interpreted on its own; nothing is carried over.
QString chunkText(const QByteArray &bytes);

// The chunk cut at "\n", empty parts kept.
QStringList chunkLines(const QString &chunk);

// A title made safe for labels and file names: everything except ASCII
// letters, digits, white space and "(" ")" becomes a blank, blanks are
// folded, the ends trimmed, and at most 30 characters are kept.
QString cleanTitle(const QString &raw);

// Title and duration from the lines of the title query: the cleaned first
// line ("default" when there is none) and the second line as printed
// ("0:00" when there is none).
QString titleFromLines(const QStringList &lines);
QString durationFromLines(const QStringList &lines);

// The labels of the site's combined formats whose audio track is known,
// 32 entries keyed by format code.
QHash<int, QString> audioFormatLabels();

// One line of the format listing. Returns false for lines that are not
// offered (bracketed information lines, "DASH" streams, the header);
// otherwise fills `row`.
bool parseFormatLine(const QString &line, const QHash<int, QString> &audioFormats, Downloader::videoFormat *row);

// The whole listing, keyed by format code; a later line with the same code
// replaces an earlier one.
QHash<int, Downloader::videoFormat> parseFormats(const QStringList &lines, const QHash<int, QString> &audioFormats);

// The progress figure of one download chunk: the text between the first
// "]" and the first "%" as a number, 0 when it is none (or not finite),
// held to 0 .. 100.
float percentFromChunk(const QString &chunk);

// The ffmpeg argument list that converts `input` into `output`, chosen by
// the output's extension; an audio extraction, and a recording saved as
// sound, leave the picture out.
QStringList ffmpegArguments(const QString &input, const QString &output, Downloader::FormatConvertingFrom from);

// What the user is told of a failed run: the tool's "ERROR:" lines from its
// standard error, else its last line, else the exit code.
QString toolComplaint(const QByteArray &errorOutput, int exitCode);

// Why the launcher could not update the tool: the text of its last
// "run: update failed: " line of standard error; without one, a launcher
// that did not start (exit 127) or the exit code.
QString updateFailureReason(const QByteArray &errorOutput, int exitCode);

// The last complete "[download]  42.5% of yt-dlp" line of an update's
// standard error: true, with its figure held to 0 .. 100 and the name of
// what is downloaded.
bool updateProgress(const QByteArray &errorOutput, float *percent, QString *name);

// Whether the site turned the query away until the user signs in to prove
// they are not a bot (the tool's "Sign in to confirm you're not a bot").
bool asksSignIn(const QByteArray &errorOutput);

// The launcher of the downloader tool and the ffmpeg build inside the
// application folder `folder`; `build` is 7 or 9.
QString launcherPath(const QString &folder);
QString ffmpegPath(const QString &folder, int build);

} // namespace DownloaderRules
