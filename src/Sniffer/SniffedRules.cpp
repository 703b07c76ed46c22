#include "Sniffer/SniffedRules.h"

#include <QRegularExpression>
#include <QStringList>

namespace SniffedRules {

const char *const videoSiteHost = "youtube.com";

bool isVideoSitePage(const QString &url)
{
    return url.indexOf(QLatin1String(videoSiteHost)) > 0;
}

qint64 sizeBytes(const QString &text)
{
    bool ok = false;
    const qint64 size = text.toLongLong(&ok, 10);
    return ok ? size : 0;
}

QString cleanType(const QString &type)
{
    QString clean = type;
    clean.remove(QStringLiteral("x-"));
    const int lineBreak = clean.indexOf(QStringLiteral("\r\n"));
    if (lineBreak > 0)
        clean.truncate(lineBreak);
    return clean;
}

QString sizeText(qint64 bytes)
{
    return QString::asprintf("%.2f MB", double(bytes) * 9.5367431640625e-07);
}

QString rowText(const QString &first, const QString &second, const QString &third)
{
    return first.leftJustified(22, QLatin1Char(' ')) + second.leftJustified(14, QLatin1Char(' ')) + third;
}

namespace {

// Keys as the list keeps them: lower case, "x-" removed.
const char *const mediaTypes[][2] = {
    {"video/mp4", "mp4"},    {"video/webm", "webm"},     {"video/flv", "flv"},       {"video/3gpp", "3gp"},
    {"video/mpeg", "mpg"},   {"video/quicktime", "mov"}, {"video/msvideo", "avi"},   {"video/matroska", "mkv"},
    {"video/ms-wmv", "wmv"}, {"video/ms-asf", "asf"},    {"video/ogg", "ogv"},       {"video/mp2t", "ts"},
    {"video/m4v", "m4v"},    {"audio/mpeg", "mp3"},      {"audio/mp3", "mp3"},       {"audio/mp4", "m4a"},
    {"audio/m4a", "m4a"},    {"audio/aac", "aac"},       {"audio/mp4a-latm", "m4a"}, {"audio/wav", "wav"},
    {"audio/wave", "wav"},   {"audio/vnd.wave", "wav"},  {"audio/ogg", "ogg"},       {"audio/webm", "weba"},
    {"audio/flac", "flac"},  {"audio/aiff", "aiff"},     {"audio/ms-wma", "wma"},
};

} // namespace

QString extensionForType(const QString &type)
{
    QString key = type.section(QLatin1Char(';'), 0, 0).trimmed().toLower();
    key.remove(QStringLiteral("x-"));
    for (const auto &row : mediaTypes)
        if (key == QLatin1String(row[0]))
            return QLatin1String(row[1]);
    return QString();
}

bool isMediaExtension(const QString &extension)
{
    for (const auto &row : mediaTypes)
        if (extension == QLatin1String(row[1]))
            return true;
    return false;
}

namespace {
bool startsWithWebScheme(const QString &url)
{
    return url.startsWith(QLatin1String("http://"), Qt::CaseInsensitive) ||
           url.startsWith(QLatin1String("https://"), Qt::CaseInsensitive);
}
} // namespace

QString listedAddress(const QString &reported)
{
    return startsWithWebScheme(reported) ? reported : QStringLiteral("http://") + reported;
}

QString transferAddress(const QString &url)
{
    QString address = url.trimmed();
    if (address.startsWith(QLatin1String("http://"), Qt::CaseInsensitive))
        address.remove(0, 7);
    return address;
}

QStringList previewArguments(const QString &url, const QString &trustFile)
{
    // ffplay refuses to start with an option its input does not take: the
    // TLS ones go with https addresses only.
    const QString address = url.trimmed();
    QStringList arguments;
    if (address.startsWith(QLatin1String("https://"), Qt::CaseInsensitive))
        arguments << QStringLiteral("-tls_verify") << QStringLiteral("1");
    if (!arguments.isEmpty() && !trustFile.isEmpty())
        arguments << QStringLiteral("-ca_file") << trustFile;
    return arguments << address;
}

QString versionFromUpdateOutput(const QString &output)
{
    QString version = output;
    version.remove(QRegularExpression(QStringLiteral("[^\\.0-9+]")));
    version.remove(QStringLiteral("..."));
    if (version.endsWith(QLatin1Char('.')))
        version.chop(2);
    if (version.size() < 6)
        version = QStringLiteral("last");
    return version;
}

QString upToDateText(const QString &version)
{
    const QString shown = version == QLatin1String("last") ? QString() : version + QLatin1Char(' ');
    return QStringLiteral("Vidorra 2") + QLatin1Char(' ') + shown + QStringLiteral("is up-to-date");
}

QString systemToolNotice(const QString &output)
{
    const QStringList lines = output.split(QLatin1Char('\n'));
    for (const QString &line : lines)
        if (line.contains(QLatin1String(": update it with")) && line.contains(QLatin1String("package manager")))
            return line.trimmed();
    return QString();
}

QString updateFailedText(const QString &reason, const QString &version, const QString &output)
{
    QString text = QStringLiteral("The downloader could not be updated: ") + reason;
    if (!text.endsWith(QLatin1Char('.')))
        text += QLatin1Char('.');
    if (version != QLatin1String("last"))
        return text + QStringLiteral("\n\nThe installed version ") + version + QStringLiteral(" keeps working.");
    if (!output.trimmed().isEmpty())
        return text + QStringLiteral("\n\nThe installed version keeps working.");
    return text + QStringLiteral("\n\nNo working downloader was found: addresses cannot be read until an update "
                                 "succeeds.");
}

} // namespace SniffedRules
