#pragma once

#include <QDate>
#include <QString>
#include <QtGlobal>

// The message handler installed first thing in main: every debug, warning,
// critical and fatal message goes to the console and to the day's log file
// in the data folder.
void myMessageHandler(QtMsgType type, const QMessageLogContext &context, const QString &message);

namespace Log {
// "/log_" + day of the year + ".txt": one file per day number, appended to
// again a year later.
QString fileName(const QDate &day);
// The line written to the file for one message, without the line feed.
QString line(QtMsgType type, const QString &message);
// The data folder, built afresh for every message and created when missing.
QString dataFolder();
// Adds the message's line to the day's log file (made 0600).
void append(QtMsgType type, const QString &message);
} // namespace Log
