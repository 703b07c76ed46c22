#include "Sniffer/DownloadRules.h"

#include <QDir>
#include <QFileInfo>
#include <QRegExp>
#include <QUrlQuery>

#include "Fiofostis/DownloaderRules.h"
#include "Sniffer/SniffedRules.h"

namespace DownloadRules {

const char *const siteHost = "www.youtube.com";
const char *const siteBareHost = "youtube.com";
const char *const siteShortHost = "youtu.be";

namespace {

// QUrl lower-cases the host it parses, but the site's hosts are matched as
// the user wrote them: an address typed in capitals is not the site's.
QString writtenHost(const QString &address)
{
    const int scheme = address.indexOf(QLatin1String("://"));
    QString authority = address.mid(scheme < 0 ? 0 : scheme + 3);
    const int end = authority.indexOf(QRegExp(QStringLiteral("[/?#]")));
    if (end >= 0)
        authority.truncate(end);
    const int at = authority.lastIndexOf(QLatin1Char('@'));
    if (at >= 0)
        authority = authority.mid(at + 1);
    if (authority.startsWith(QLatin1Char('['))) {
        const int close = authority.indexOf(QLatin1Char(']'));
        authority = authority.mid(1, close < 0 ? -1 : close - 1);
    } else {
        const int colon = authority.indexOf(QLatin1Char(':'));
        if (colon >= 0)
            authority.truncate(colon);
    }
    return QUrl::fromPercentEncoding(authority.toUtf8());
}

} // namespace

QString cutAtHttp(const QString &typed)
{
    const QString text = typed.trimmed();
    if (text.startsWith(QLatin1String("http")))
        return text;
    const int at = text.indexOf(QLatin1String("http"));
    return at < 0 ? text : text.mid(at);
}

QString canonicalAddress(const QString &videoId)
{
    return QStringLiteral("https://") + QLatin1String(siteHost) + QStringLiteral("/watch?v=") + videoId;
}

Address normaliseAddress(const QString &typed, const QString &table, int mode, const QHash<int, QString> &fragments)
{
    Address result;
    result.text = cutAtHttp(typed);
    result.url = QUrl(result.text, QUrl::TolerantMode);
    if (result.url.isEmpty()) {
        result.error = 1;
        return result;
    }

    QString host = result.url.host(QUrl::FullyDecoded);
    const QString written = writtenHost(result.text);
    if (written.compare(host, Qt::CaseInsensitive) == 0)
        host = written;
    if (table == QLatin1String("yt_urls")) {
        QString videoId;
        if (host == QLatin1String(siteHost) || host == QLatin1String(siteBareHost)) {
            videoId = QUrlQuery(result.url).queryItemValue(QStringLiteral("v"));
        } else if (host == QLatin1String(siteShortHost)) {
            videoId = result.url.path();
            if (videoId.startsWith(QLatin1Char('/')))
                videoId.remove(0, 1);
        }
        if (videoId.isEmpty()) {
            result.error = mode;
            return result;
        }
        const QString canonical = canonicalAddress(videoId);
        if (canonical != result.text) {
            result.url = QUrl(canonical, QUrl::TolerantMode);
            result.rebuilt = true;
        }
    } else {
        bool known = false;
        for (auto it = fragments.constBegin(); it != fragments.constEnd() && !known; ++it)
            known = host.contains(it.value());
        if (!known) {
            result.error = mode;
            return result;
        }
    }

    if (!result.url.isValid())
        result.error = 3;
    return result;
}

QStringList saveFilters(int saveMode, bool fromRecorder)
{
    QStringList filters;
    if (saveMode == KindVideo) {
        // MPEG is what the recorder writes; a download is never offered it.
        if (fromRecorder)
            filters << QStringLiteral("MPEG (*.mpg)");
        filters << QStringLiteral("MPEG-4 (*.mp4)") << QStringLiteral("MPEG-4 (*.m4v)")
                << QStringLiteral("Audio Video Interleave (*.avi)") << QStringLiteral("QuickTime (*.mov)")
                << QStringLiteral("Matroska (*.mkv)") << QStringLiteral("Windows Media (*.wmv)");
    } else if (saveMode == KindAudio) {
        if (fromRecorder)
            filters << QStringLiteral("Waveform Audio (*.wav)");
        filters << QStringLiteral("MP3 (*.mp3)") << QStringLiteral("MP4 Audio (*.m4a)")
                << QStringLiteral("Audio Interchange (*.aiff)") << QStringLiteral("Windows Media (*.wma)")
                << QStringLiteral("Free Lossless Audio (*.flac)") << QStringLiteral("Advanced Audio Coding (*.aac)")
                << QStringLiteral("OGG (*.ogg)");
    }
    return filters;
}

QString extensionFromFilter(const QString &filter)
{
    QString extension = filter.mid(filter.indexOf(QLatin1Char('*')) + 2);
    extension.chop(1);
    return extension;
}

QString filterPattern(const QString &filter)
{
    const int open = filter.indexOf(QLatin1Char('('));
    const int close = filter.indexOf(QLatin1Char(')'));
    if (open < 0 || close < 0)
        return QString();
    return filter.mid(open + 2, close - (open + 2));
}

QString cleanSaveAsPath(const QString &chosen, QString extension)
{
    const QFileInfo info(chosen);
    QString base = info.completeBaseName();
    QString suffix = info.suffix();
    // No extension wanted (a media type outside the table): the typed one
    // serves when it is a media extension, else a neutral one.
    if (extension.isEmpty())
        extension = SniffedRules::isMediaExtension(suffix) ? suffix : QStringLiteral("media");
    // A foreign extension is kept as part of the name, without its dot:
    // "clip.avi" saved as mp3 becomes "clipavi.mp3".
    if (suffix != extension) {
        base += suffix;
        suffix = extension;
    }
    base.replace(QRegExp(QStringLiteral("[^ 0-9(-)a-zA-Z\\.]")), QStringLiteral("  "));
    base = base.trimmed();
    base.replace(QRegExp(QStringLiteral("\\s{2,}")), QStringLiteral("."));
    return QDir::fromNativeSeparators(info.absolutePath() + QDir::separator() + base + QLatin1Char('.') + suffix);
}

QString withFilterPattern(const QString &path, const QString &filter)
{
    const QString pattern = filterPattern(filter);
    if (pattern.isEmpty() || path.endsWith(pattern))
        return path;
    return path + pattern;
}

QString fixExtension(const QString &name, const QString &extension)
{
    const QString wanted = QLatin1Char('.') + extension.left(3).toLower();
    if (name.right(4) == wanted)
        return name;
    return name + wanted;
}

QString outputBaseName(const QString &typed)
{
    if (typed.isEmpty())
        return QStringLiteral("default");
    return DownloaderRules::cleanTitle(typed);
}

QString formatRowText(const Downloader::videoFormat &format)
{
    QString text = format.resolution + QLatin1Char('\t') + format.description;
    if (format.best)
        text += QStringLiteral("\t( BEST )");
    return text;
}

QString formatIcon(const QString &extension)
{
    static const QHash<QString, QString> icons{
        {QStringLiteral("mp4"), QStringLiteral(":/signMP4")},
        {QStringLiteral("3gp"), QStringLiteral(":/sign3GP")},
        {QStringLiteral("flv"), QStringLiteral(":/signFLV")},
        {QStringLiteral("webm"), QStringLiteral(":/signWebM")},
    };
    return icons.value(extension, QStringLiteral(":/signNONE"));
}

int formatCodeForRow(const QHash<int, QString> &labels, const QString &rowText)
{
    for (auto it = labels.constBegin(); it != labels.constEnd(); ++it) {
        if (it.value() == rowText)
            return it.key();
    }
    return 0;
}

} // namespace DownloadRules
