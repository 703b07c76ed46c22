#include "Frames.h"

#include "Feed/Report.h"

#include <QIODevice>

#include <cstring>

namespace {

// Reads exactly `count` bytes (fewer only at the end of input). The input
// is a pipe read without buffering: a read waits for data, and returns
// nothing only at the end.
QByteArray readExactly(QIODevice &in, qint64 count)
{
    QByteArray bytes;
    while (bytes.size() < count) {
        const QByteArray more = in.read(count - bytes.size());
        if (more.isEmpty())
            break;
        bytes += more;
    }
    return bytes;
}

} // namespace

FrameRead readFrame(QIODevice &in, QByteArray *frame)
{
    const QByteArray header = readExactly(in, sizeof(quint32));
    if (header.size() < int(sizeof(quint32)))
        return FrameRead::End;
    quint32 length = 0;
    std::memcpy(&length, header.constData(), sizeof length);
    if (length <= quint32(Feed::maxMessageBytes)) {
        *frame = readExactly(in, length);
        return frame->size() == int(length) ? FrameRead::Frame : FrameRead::End;
    }
    for (qint64 left = length; left > 0;) {
        const qint64 got = readExactly(in, qMin<qint64>(left, Feed::maxMessageBytes)).size();
        if (got == 0)
            return FrameRead::End;
        left -= got;
    }
    return FrameRead::Skipped;
}

bool writeFrame(QIODevice &out, const QByteArray &frame)
{
    const quint32 length = quint32(frame.size());
    QByteArray bytes(reinterpret_cast<const char *>(&length), sizeof length);
    return out.write(bytes + frame) == qint64(sizeof length) + frame.size();
}
