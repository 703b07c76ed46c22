#include "Feed/LineReader.h"

#include "Feed/Report.h"

namespace Feed {

QList<QByteArray> LineReader::add(const QByteArray &bytes)
{
    QList<QByteArray> lines;
    int from = 0;
    for (int end = bytes.indexOf('\n'); end >= 0; from = end + 1, end = bytes.indexOf('\n', from)) {
        if (skipping) {
            skipping = false;
            continue;
        }
        partial += bytes.mid(from, end - from);
        if (partial.size() > maxMessageBytes)
            ++droppedLines;
        else
            lines << partial;
        partial.clear();
    }
    if (!skipping)
        partial += bytes.mid(from);
    if (partial.size() > maxMessageBytes) {
        partial.clear();
        skipping = true;
        ++droppedLines;
    }
    return lines;
}

} // namespace Feed
