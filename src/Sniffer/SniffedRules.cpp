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

QString extensionForType(const QString &type)
{
    static const QHash<QString, QString> known{
        {QStringLiteral("mpeg"), QStringLiteral("mpg")},     {QStringLiteral("quicktime"), QStringLiteral("mov")},
        {QStringLiteral("3gpp"), QStringLiteral("3gp")},     {QStringLiteral("msvideo"), QStringLiteral("avi")},
        {QStringLiteral("matroska"), QStringLiteral("mkv")}, {QStringLiteral("ms-wmv"), QStringLiteral("wmv")},
        {QStringLiteral("ms-asf"), QStringLiteral("asf")},   {QStringLiteral("wave"), QStringLiteral("wav")},
        {QStringLiteral("ms-wma"), QStringLiteral("wma")},   {QStringLiteral("aiff"), QStringLiteral("aiff")},
        {QStringLiteral("vnd.wave"), QStringLiteral("wav")}, {QStringLiteral("mp4a-latm"), QStringLiteral("m4a")},
    };
    const QString main = type.section(QLatin1Char('/'), 0, 0).trimmed().toLower();
    QString sub = type.section(QLatin1Char('/'), 1).section(QLatin1Char(';'), 0, 0).trimmed().toLower();
    sub.remove(QRegularExpression(QStringLiteral("[^a-z0-9.+-]")));
    if (main == QLatin1String("audio")) {
        if (sub == QLatin1String("mpeg") || sub == QLatin1String("mp3"))
            return QStringLiteral("mp3");
        if (sub == QLatin1String("mp4") || sub == QLatin1String("aac"))
            return QStringLiteral("m4a");
    }
    if (main == QLatin1String("audio") && sub.isEmpty())
        return QStringLiteral("mp3");
    if (sub.isEmpty() || (main != QLatin1String("audio") && main != QLatin1String("video")))
        return QStringLiteral("mp4");
    return known.value(sub, sub);
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
