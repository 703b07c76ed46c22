#pragma once

#include <QByteArray>
#include <QList>

namespace Feed {

// Cuts what a connection sends into "\n"-terminated lines. A line longer
// than maxMessageBytes is dropped whole: the reader skips to the next "\n"
// and goes on from there.
class LineReader
{
public:
    // The lines these bytes complete, without their "\n".
    QList<QByteArray> add(const QByteArray &bytes);
    // How many overlong lines were dropped so far.
    int dropped() const
    {
        return droppedLines;
    }

private:
    QByteArray partial;
    bool skipping = false;
    int droppedLines = 0;
};

} // namespace Feed
