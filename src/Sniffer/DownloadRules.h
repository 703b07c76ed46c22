#pragma once

#include <QHash>
#include <QString>
#include <QStringList>
#include <QUrl>

#include "Fiofostis/Downloader.h"

// The naming and address rules of the download workflow, kept free of
// widgets so the slots only wire them to the window and the tests can check
// them on their own.
namespace DownloadRules {

// The video site, as its addresses are written: the full host (also the
// one of the canonical form), the bare domain and the short-link host.
// Compared exactly, case included.
extern const char *const siteHost;
extern const char *const siteBareHost;
extern const char *const siteShortHost;

// Download kinds, as the save path knows them.
enum { KindVideo = 4, KindAudio = 5 };

// What became of a typed address: the address to hand to the engine, or
// the message number to raise (error != 0).
struct Address
{
    QString text; // the typed text, trimmed and cut at the first "http"
    QUrl url;     // valid when error is 0
    int error = 0;
    bool rebuilt = false; // the site's address was rewritten to its canonical form
};

// Keeps the part from the first "http" on; text without "http" stays as it is.
QString cutAtHttp(const QString &typed);

// "https://www.youtube.com/watch?v=" + id.
QString canonicalAddress(const QString &videoId);

// `table` is "yt_urls" or "os_urls"; `mode` the number raised for an
// address the chosen downloader does not take; `fragments` the host
// fragments of the other-sites table.
Address normaliseAddress(const QString &typed, const QString &table, int mode, const QHash<int, QString> &fragments);

// The save filters offered for a kind, the preselected one first.
QStringList saveFilters(int saveMode, bool fromRecorder);

// "mp3" from "MP3 (*.mp3)".
QString extensionFromFilter(const QString &filter);

// ".mp3" from "MP3 (*.mp3)"; empty when the text has no parentheses.
QString filterPattern(const QString &filter);

// The sniffed list's save name: a typed path with the wanted extension
// forced on and its base name reduced to letters, digits, blanks, dots and
// parentheses ("My_Clip - 2.mp3" gives "My.Clip.2.mp3"). Without a wanted
// extension the typed one is kept when it is a media extension, else the
// name ends in ".media".
QString cleanSaveAsPath(const QString &chosen, QString extension);

// Appends the selected filter's pattern unless the path already ends with it.
QString withFilterPattern(const QString &path, const QString &filter);

// "." + the first three letters of the extension, lower-cased, unless the
// name already ends with exactly that.
QString fixExtension(const QString &name, const QString &extension);

// The file name taken from the Options page: "default" when nothing is
// typed, otherwise cleaned like a title.
QString outputBaseName(const QString &typed);

// One row of the Options list and its container badge.
QString formatRowText(const Downloader::videoFormat &format);
QString formatIcon(const QString &extension);

// The code of the first row whose text is `rowText`, 0 when none is.
int formatCodeForRow(const QHash<int, QString> &labels, const QString &rowText);

} // namespace DownloadRules
