#pragma once

#include <QByteArray>

class QIODevice;

// Native messaging frames as browsers send them to a host's standard input:
// a 32-bit length in the machine's byte order, then that many bytes of
// UTF-8 JSON.
enum class FrameRead { Frame, Skipped, End };

// Reads the next frame into `frame`. A frame longer than maxMessageBytes is
// read past and answered Skipped, so the next one is found; End comes at
// the end of input, also in the middle of a frame.
FrameRead readFrame(QIODevice &in, QByteArray *frame);

// Writes `frame` to the browser, as a message to the add-on.
bool writeFrame(QIODevice &out, const QByteArray &frame);
