#include "Sniffer/SniffedRules.h"

#include <QHash>
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

const QHash<QString, QString> &mediaTypes()
{
    // Keys as the list keeps them: lower case, "x-" removed.
    static const QHash<QString, QString> table{
        {QStringLiteral("video/mp4"), QStringLiteral("mp4")},        {QStringLiteral("video/webm"), QStringLiteral("webm")},
        {QStringLiteral("video/flv"), QStringLiteral("flv")},        {QStringLiteral("video/3gpp"), QStringLiteral("3gp")},
        {QStringLiteral("video/quicktime"), QStringLiteral("mov")},  {QStringLiteral("video/mpeg"), QStringLiteral("mpg")},
        {QStringLiteral("video/msvideo"), QStringLiteral("avi")},    {QStringLiteral("video/matroska"), QStringLiteral("mkv")},
        {QStringLiteral("video/ms-wmv"), QStringLiteral("wmv")},     {QStringLiteral("video/ms-asf"), QStringLiteral("asf")},
        {QStringLiteral("video/ogg"), QStringLiteral("ogv")},        {QStringLiteral("video/mp2t"), QStringLiteral("ts")},
        {QStringLiteral("video/m4v"), QStringLiteral("m4v")},        {QStringLiteral("audio/mpeg"), QStringLiteral("mp3")},
        {QStringLiteral("audio/mp3"), QStringLiteral("mp3")},        {QStringLiteral("audio/mp4"), QStringLiteral("m4a")},
        {QStringLiteral("audio/m4a"), QStringLiteral("m4a")},        {QStringLiteral("audio/aac"), QStringLiteral("aac")},
        {QStringLiteral("audio/mp4a-latm"), QStringLiteral("m4a")},  {QStringLiteral("audio/wav"), QStringLiteral("wav")},
        {QStringLiteral("audio/wave"), QStringLiteral("wav")},       {QStringLiteral("audio/vnd.wave"), QStringLiteral("wav")},
        {QStringLiteral("audio/ogg"), QStringLiteral("ogg")},        {QStringLiteral("audio/webm"), QStringLiteral("weba")},
        {QStringLiteral("audio/flac"), QStringLiteral("flac")},      {QStringLiteral("audio/aiff"), QStringLiteral("aiff")},
        {QStringLiteral("audio/ms-wma"), QStringLiteral("wma")},
    };
    return table;
}

} // namespace

QString extensionForType(const QString &type)
{
    QString key = type.section(QLatin1Char(';'), 0, 0).trimmed().toLower();
    key.remove(QStringLiteral("x-"));
    return mediaTypes().value(key);
}

bool isMediaExtension(const QString &extension)
{
    return !extension.isEmpty() && !mediaTypes().key(extension).isEmpty();
}

QString transferAddress(const QString &url)
{
    return url.trimmed().remove(QStringLiteral("http://"));
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
