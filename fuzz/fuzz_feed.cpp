// The feed of sniffed media: what the browser add-on writes to the native
// messaging host's standard input (length-prefixed frames of JSON), the
// reports the host hands on, and what the program's socket reads (lines of
// JSON, cut by the line reader). The input is read both ways: as the
// host's standard input, and as what a connection sends to the program.
//
// Frames and lines longer than 64 KiB are read past, so the input can make
// long runs: the byte 0xFE, a count c and a byte b stand for (c + 1) * 256
// copies of b (of "a" when b is a line break: a million empty lines would
// only slow the run down). 0xFE never occurs in UTF-8, so JSON text is not
// hindered. One run is at most 64 KiB: a message over 64 KiB takes two runs
// (or a run and some text), so a stray 0xFE the fuzzer puts in mostly makes
// a long message that is still read, and only some inputs make one that is
// read past. Those cost many times more than the others (every block over
// 128 KiB the sanitizer's allocator maps and unmaps on its own, and the rules
// make one for such a message), and with (c + 1) * 1024 almost every input
// with a 0xFE in it made one.

#include "FuzzSupport.h"

#include "Feed/LineReader.h"
#include "Feed/Report.h"
#include "Feed/host/Frames.h"

#include <QBuffer>

using namespace Feed;

namespace {

// One overlong message and some room besides: the input stays below the
// size from which the sanitizer's allocator maps every block on its own,
// which would slow each run down many times.
constexpr int expandedLimit = maxMessageBytes + 24 * 1024;

QByteArray expand(const uint8_t *data, size_t size)
{
    auto walk = [data, size](auto &&put) {
        int length = 0;
        for (size_t i = 0; i < size && length < expandedLimit; ++i) {
            int count = 1;
            char byte = char(data[i]);
            if (data[i] == 0xFE && i + 2 < size) {
                count = (data[i + 1] + 1) * 256;
                byte = data[i + 2] == '\n' ? 'a' : char(data[i + 2]);
                i += 2;
            }
            count = qMin(count, expandedLimit - length);
            put(count, byte);
            length += count;
        }
        return length;
    };
    QByteArray out;
    out.reserve(walk([](int, char) {}));
    walk([&out](int count, char byte) { out.append(count, byte); });
    return out;
}

bool digitsOnly(const QString &text)
{
    return !text.isEmpty() && FuzzSupport::onlyOf(text, QStringLiteral("0123456789"));
}

// Does the address begin with a scheme of its own ("ftp://...")?
bool hasScheme(const QString &address)
{
    const int slash = address.indexOf(QLatin1Char('/'));
    return slash > 0 && address.midRef(slash - 1, 3) == QLatin1String("://");
}

void checkReport(const Message &message)
{
    FUZZ_CHECK(message.kind == Message::MediaReport);
    FUZZ_CHECK(!message.report.address.isEmpty());
    FUZZ_CHECK(digitsOnly(message.report.size));
    FUZZ_CHECK(message.report.size == QString::number(message.report.size.toLongLong()));
    QString reason;
    FUZZ_CHECK(webAddress(message.report.address, &reason) == message.report.address);
}

// The program's side of one connection: the lines of `bytes` and what the
// program makes of them.
QList<QByteArray> programLines(const QByteArray &bytes, const QList<int> &cuts, int *dropped)
{
    LineReader reader;
    QList<QByteArray> lines;
    int from = 0;
    for (int cut : cuts) {
        lines += reader.add(bytes.mid(from, cut - from));
        from = cut;
    }
    lines += reader.add(bytes.mid(from));
    *dropped = reader.dropped();
    return lines;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    FuzzSupport::quietQt();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input = expand(data, size);

    // The host: frames from standard input; each valid report goes on as a
    // line of the program's socket and is read there again.
    QBuffer in;
    in.setData(input);
    in.open(QIODevice::ReadOnly);
    QByteArray frame;
    int reads = 0;
    for (FrameRead read = readFrame(in, &frame); read != FrameRead::End; read = readFrame(in, &frame)) {
        FUZZ_CHECK(++reads <= input.size() / 4);
        if (read == FrameRead::Skipped)
            continue;
        FUZZ_CHECK(frame.size() <= maxMessageBytes);
        const Message message = readMessage(frame, false);
        FUZZ_CHECK(message.kind != Message::ShowList);
        FUZZ_CHECK((message.kind == Message::Dropped) == !message.reason.isEmpty());
        if (message.kind != Message::MediaReport)
            continue;
        checkReport(message);

        const QByteArray line = reportLine(message.report);
        FUZZ_CHECK(line.endsWith('\n') && line.count('\n') == 1);
        int dropped = 0;
        const QList<QByteArray> received = programLines(line, {int(size % line.size())}, &dropped);
        if (line.size() - 1 > maxMessageBytes) {
            FUZZ_CHECK(received.isEmpty() && dropped == 1);
            continue;
        }
        FUZZ_CHECK(received.size() == 1 && dropped == 0 && received.first() == line.chopped(1));
        const Message again = readMessage(received.first(), true);
        if (hasScheme(message.report.address)) {
            // "http://ftp://host" reaches the program as "ftp://host": it is
            // read again as an address of its own (see the report).
            continue;
        }
        checkReport(again);
        FUZZ_CHECK(again.report.address == message.report.address);
        FUZZ_CHECK(again.report.source == message.report.source);
        FUZZ_CHECK(again.report.size == message.report.size);
        FUZZ_CHECK(again.report.type == message.report.type);
    }
    FUZZ_CHECK(in.atEnd());

    // The program: the input as one connection's bytes, arriving whole or
    // cut into pieces; the pieces must not change what is read.
    int droppedWhole = 0;
    const QList<QByteArray> whole = programLines(input, {}, &droppedWhole);
    QList<int> cuts;
    for (int at = 0, step = 1; at < input.size(); step = step * 5 % 8191 + 1) {
        at += step;
        if (at < input.size())
            cuts << at;
    }
    int droppedCut = 0;
    const QList<QByteArray> pieces = programLines(input, cuts, &droppedCut);
    FUZZ_CHECK(pieces == whole && droppedCut == droppedWhole);
    FUZZ_CHECK(whole.size() + droppedWhole <= input.count('\n') + 1);
    for (const QByteArray &line : whole) {
        FUZZ_CHECK(line.size() <= maxMessageBytes && !line.contains('\n'));
        const Message message = readMessage(line, true);
        FUZZ_CHECK((message.kind == Message::Dropped) == !message.reason.isEmpty());
        if (message.kind == Message::MediaReport)
            checkReport(message);
    }

    // Any text as an address.
    if (input.size() <= 4096) {
        QString reason;
        const QString address = webAddress(QString::fromUtf8(input), &reason);
        FUZZ_CHECK(address.isEmpty() != reason.isEmpty());
        FUZZ_CHECK(!hasScheme(address) || address.startsWith(QLatin1String("http://")) ||
                   address.startsWith(QLatin1String("https://")));
    }
    return 0;
}
