#pragma once

#include <QByteArray>
#include <QString>

// Media addresses reported from outside the program: by the browser add-on
// through the native messaging host, or by vidorra2-sniff from a shell.
namespace Feed {

// One sniffed media file. The address keeps the scheme the browser used (http
// or https); older add-ons report it without one, and the program then puts
// "http://" in front.
struct Report
{
    QString address;
    QString source;
    QString size; // bytes, decimal
    QString type;
};

// What one message turned out to be.
struct Message
{
    enum Kind { Dropped, MediaReport, ShowList, Hello };
    Kind kind = Dropped;
    Report report;
    bool sitesAllowed = true; // Hello: whether the add-on may read the pages
    QString reason; // why it was dropped
};

// The longest message the program, the host and the command line take.
constexpr int maxMessageBytes = 64 * 1024;

// Reads one JSON object: a report {"url", "source", "size", "type"}; when
// `commandsAllowed` (the program's socket), the command {"command":
// "showSniffed"}; otherwise (from the browser) the add-on's greeting
// {"hello": version, "sites": whether it may read the pages}. A report needs a
// whole, non-negative size (a JSON number or decimal text) and an address
// that is http, https or scheme-less with a host; anything else is dropped.
Message readMessage(const QByteArray &json, bool commandsAllowed);

// The address with its scheme in lower case, or without one when it came
// without; empty, with `reason` set, when it does not name a web address.
QString webAddress(const QString &url, QString *reason);

// One line of the program's socket ("\n"-terminated compact JSON).
QByteArray reportLine(const Report &report);
QByteArray showListLine();

} // namespace Feed
