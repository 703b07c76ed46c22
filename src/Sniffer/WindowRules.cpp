#include "Sniffer/WindowRules.h"

#include <QRegExp>

namespace WindowRules {

int optionsAdjustment(bool listShown, int listHeight, bool titleShown)
{
    int adjustment = listShown ? listHeight : 0;
    adjustment -= titleShown ? 75 : 165;
    return adjustment;
}

int layerHeight(const QList<int> &visiblePageHeights, bool optionsVisible, const OptionsRows &rows)
{
    int height = 0;
    for (int page : visiblePageHeights)
        height += page;
    if (optionsVisible)
        height += optionsAdjustment(rows.listShown, rows.listHeight, rows.titleShown);
    return height;
}

int formatRowsShown(int count, int availableHeight)
{
    // The Options layer is 60 + 270 - 75 pixels besides its list; the list
    // adds up to 10 pixels to its rows, the window frame about 40.
    const int room = (availableHeight - (60 + 270 - 75) - 10 - 40) / 27;
    return qMin(count, qMax(1, room));
}

int progressNext(int value, int minimum, int maximum, quint32 random)
{
    int next = value + 1;
    // With 0 to 100 the bar climbs to 97; the tick that would show 98 throws
    // it back to 20 .. 98. It never gets to 99, from where the next tick
    // would fill the bar and leave it standing still at the end.
    if (next >= maximum - 2)
        next = int(random % quint32(maximum - 1 - (minimum + 20))) + minimum + 20;
    return next;
}

void dotsNext(int &count, bool &growing)
{
    const int before = count;
    if (growing) {
        count = before + 1;
        if (before >= 10)
            growing = false;
    } else {
        count = before - 1;
        if (before < 3)
            growing = true;
    }
}

QString messageTable(int selector)
{
    switch (selector) {
    case 1:
        return QStringLiteral("error_messages");
    case 2:
        return QStringLiteral("error_messages_dl");
    default:
        return QStringLiteral("warning_messages");
    }
}

bool isErrorSelector(int selector)
{
    return selector != 0;
}

MessageRow splitMessageRow(const QString &row)
{
    QStringList parts = row.split(QStringLiteral("~"), Qt::KeepEmptyParts, Qt::CaseSensitive);
    if (parts.isEmpty())
        parts << QStringLiteral("0");
    MessageRow result;
    result.titleNumber = parts.at(0).toInt();
    result.text = parts.size() > 1 ? parts.at(1) : QStringLiteral("Indefinite Error");
    return result;
}

QString errorDetailsBlock(int number, int selector, const QStringList &details)
{
    // The details hold paths and the words of tools and servers: shown as
    // they are written, never read as markup (a server's "<a href" is no link).
    auto at = [&details](int i) { return i < details.size() ? details.at(i).toHtmlEscaped() : QStringLiteral("?"); };

    const QString first =
        QStringLiteral("<b>error #") + QString::number(number) + QStringLiteral(":") + at(1) + QStringLiteral("</b>");
    QString second = QStringLiteral("in '") + at(2) + QStringLiteral("' : ") + at(0);
    if (selector == 2)
        second.prepend(QStringLiteral("[DL] "));
    QString third = QStringLiteral("comment: ");
    if (details.size() < 4) {
        third += QStringLiteral("---");
    } else if (details.size() < 5) {
        third += at(3);
    } else {
        third += QStringLiteral("<ul>");
        for (int i = 3; i < details.size(); ++i)
            third += QStringLiteral("<li>") + at(i) + QStringLiteral("</li>");
        third += QStringLiteral("</ul>");
    }
    return QStringList{first, second, third}.join(QStringLiteral("<br>"));
}

QString messageBody(const QString &text, const QString &detailsBlock)
{
    return text + QStringLiteral("<br><br><hr><div style=\"font-size:10px\"><i>") + detailsBlock +
           QStringLiteral("</i></div>");
}

} // namespace WindowRules
