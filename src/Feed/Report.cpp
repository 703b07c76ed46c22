#include "Feed/Report.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QUrl>

#include <cmath>

namespace Feed {

namespace {

// A JSON number is exact up to 2^53; larger sizes come as text.
constexpr double largestExactNumber = 9007199254740992.0;

QString sizeText(const QJsonValue &value, QString *reason)
{
    if (value.isDouble()) {
        const double size = value.toDouble();
        if (size >= 0 && size <= largestExactNumber && std::floor(size) == size)
            return QString::number(static_cast<qint64>(size));
    } else if (value.isString()) {
        static const QRegularExpression decimal(QStringLiteral("^[0-9]{1,18}$"));
        if (decimal.match(value.toString()).hasMatch())
            return QString::number(value.toString().toLongLong());
    }
    *reason = value.isUndefined() ? QStringLiteral("no size") : QStringLiteral("size is not a whole number of bytes");
    return QString();
}

} // namespace

QString webAddress(const QString &url, QString *reason)
{
    QString scheme, rest = url;
    const int slash = url.indexOf(QLatin1Char('/'));
    if (slash > 0 && url.midRef(slash - 1, 3) == QLatin1String("://")) {
        scheme = url.left(slash - 1).toLower();
        if (scheme != QLatin1String("http") && scheme != QLatin1String("https")) {
            *reason = QStringLiteral("not a web address (%1)").arg(scheme.left(20));
            return QString();
        }
        rest = url.mid(slash + 2);
    }
    const QUrl parsed((scheme.isEmpty() ? QStringLiteral("http") : scheme) + QStringLiteral("://") + rest);
    if (rest.isEmpty() || !parsed.isValid() || parsed.host().isEmpty()) {
        *reason = QStringLiteral("not a valid address");
        return QString();
    }
    return scheme.isEmpty() ? rest : scheme + QStringLiteral("://") + rest;
}

Message readMessage(const QByteArray &json, bool commandsAllowed)
{
    Message message;
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (!document.isObject()) {
        message.reason =
            error.error != QJsonParseError::NoError ? error.errorString() : QStringLiteral("not an object");
        return message;
    }
    const QJsonObject object = document.object();
    if (object.contains(QLatin1String("command"))) {
        if (commandsAllowed && object.value(QLatin1String("command")).toString() == QLatin1String("showSniffed"))
            message.kind = Message::ShowList;
        else
            message.reason = QStringLiteral("unknown command");
        return message;
    }
    if (!commandsAllowed && object.contains(QLatin1String("hello"))) {
        message.kind = Message::Hello;
        message.sitesAllowed = object.value(QLatin1String("sites")).toBool(true);
        return message;
    }
    const QString address = webAddress(object.value(QLatin1String("url")).toString(), &message.reason);
    if (address.isEmpty())
        return message;
    const QString size = sizeText(object.value(QLatin1String("size")), &message.reason);
    if (size.isEmpty())
        return message;
    message.kind = Message::MediaReport;
    message.report = {address, object.value(QLatin1String("source")).toString(), size,
                      object.value(QLatin1String("type")).toString()};
    return message;
}

QByteArray reportLine(const Report &report)
{
    const QJsonObject object{{QStringLiteral("url"), report.address},
                             {QStringLiteral("source"), report.source},
                             {QStringLiteral("size"), report.size},
                             {QStringLiteral("type"), report.type}};
    return QJsonDocument(object).toJson(QJsonDocument::Compact) + '\n';
}

QByteArray showListLine()
{
    return QByteArrayLiteral("{\"command\":\"showSniffed\"}\n");
}

} // namespace Feed
